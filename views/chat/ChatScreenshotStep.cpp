#include "views/chat/ChatScreenshotStep.h"

#include "chat/appearance/AppearanceSettings.h"
#include "chat/markdown/MarkdownRenderer.h"
#include "views/chat/ChatSettingsWindow.h"

#include <QPointer>
#include <QTextBrowser>

namespace ChatScreenshotStep {

namespace {
const QString kAnswer = QStringLiteral(
    "## Listing the tools\n\nCall **tools/list** on the server; each entry has a *name*, a description and an "
    "input schema.\n\n1. Start the server\n2. Send the request:\n\n```json\n{\"jsonrpc\": \"2.0\", \"id\": 1, "
    "\"method\": \"tools/list\"}\n```\n\n| Tool | Calls |\n|---|--:|\n| read_file | 12 |\n| search | 3 |\n\n"
    "> Tip: `kelvara serve` runs it headless.\n\n- [x] server started\n- [ ] first tool written");
}

ScreenshotTour::Step step()
{
    return [](ScreenshotTour *tour, AppMainWindow *, std::function<void()> done) {
        auto *settings = new AppearanceSettings;
        auto *answer = new QTextBrowser;
        answer->setAttribute(Qt::WA_DeleteOnClose);
        answer->setWindowTitle(QStringLiteral("Rendered answer"));
        answer->resize(560, 620);
        MarkdownRenderer(settings->markdownStyle()).render(kAnswer, answer->document());
        answer->show();
        auto *window = new ChatSettingsWindow(settings);
        window->setAttribute(Qt::WA_DeleteOnClose);
        settings->setParent(window);
        window->show();
        QPointer<QTextBrowser> weakAnswer(answer);
        QPointer<ChatSettingsWindow> weakWindow(window);
        tour->after(300, [tour, weakAnswer, weakWindow, done] {
            if (weakAnswer) {
                tour->grab(weakAnswer, QStringLiteral("40-chat-answer"));
                weakAnswer->close();
            }
            if (weakWindow) {
                tour->grab(weakWindow, QStringLiteral("41-chat-settings"));
                weakWindow->close();
            }
            done();
        });
    };
}

}  // namespace ChatScreenshotStep
