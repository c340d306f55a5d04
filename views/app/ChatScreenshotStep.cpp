#include "views/app/ChatScreenshotStep.h"

#include "chat/appearance/AppearanceSettings.h"
#include "chat/markdown/MarkdownRenderer.h"
#include "app/MenuVisibility.h"
#include "chat/session/ChatViewModel.h"
#include "views/app/AppMainWindow.h"
#include "views/chat/ChatSettingsWindow.h"
#include "views/chat/ChatView.h"

#include <QPointer>
#include <QPushButton>
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

ScreenshotTour::Step transcriptStep()
{
    return [](ScreenshotTour *tour, AppMainWindow *window, std::function<void()> done) {
        const QString peer = qEnvironmentVariable("KELVARA_SCREENSHOT_CHAT_PEER");
        if (peer.isEmpty()) {
            done();
            return;
        }
        MenuVisibility::shared()->setRequestedDestination(MenuDestination::menuAIChat);
        QPointer<AppMainWindow> weak(window);
        tour->after(400, [tour, weak, peer, done] {
            auto *view = weak ? qobject_cast<ChatView *>(weak->currentScreen()) : nullptr;
            if (!view) {
                done();
                return;
            }
            ChatViewModel *model = view->model();
            ProviderConnection &link = model->connection();
            link.selectProvider(AIProviderID::lmStudio);
            link.setBaseURL(peer);
            link.setSystemPrompt(QString());
            link.connect();
            // Waits in steps of 200 ms, at most 10 s, for what `ready` says.
            auto poll = std::make_shared<std::function<void(std::function<bool()>, std::function<void()>, int)>>();
            *poll = [tour, poll](std::function<bool()> ready, std::function<void()> then, int left) {
                if (ready() || left <= 0)
                    return then();
                tour->after(200, [poll, ready, then, left] { (*poll)(ready, then, left - 1); });
            };
            (*poll)([model] { return model->connection().state() == ProviderConnection::State::connected && !model->status().isBusy(); },
                    [tour, weak, model, poll, done] {
                        model->setPrompt(QStringLiteral("Which tools does the server have? Answer in markdown."));
                        model->sendPrompt(true);
                        (*poll)([model] { return !model->status().isBusy(); },
                                [tour, weak, done] {
                                    tour->after(300, [tour, weak, done] {
                                        if (!weak)
                                            return done();
                                        tour->grab(weak, QStringLiteral("42-chat-transcript"));
                                        // The same chat with its input history open, restyled
                                        // through the application's one appearance.
                                        AppearanceSettings *look = AppearanceSettings::shared();
                                        const AppearanceSettings::Payload before = look->values();
                                        AppearanceSettings::Payload styled = before;
                                        styled.chatFont = ChatFontFamily::SystemSerif;
                                        styled.userFontSize = 16;
                                        styled.assistantFontSize = 14;
                                        styled.colors[AppearanceSettings::UserBubbleBackground] = QColor(0x2e, 0x5c, 0x8a);
                                        styled.colors[AppearanceSettings::UserBubbleText] = Qt::white;
                                        styled.colors[AppearanceSettings::AssistantBubbleBackground] = QColor(0xf4, 0xf1, 0xe8);
                                        styled.colors[AppearanceSettings::AssistantTextPrimary] = QColor(0x20, 0x20, 0x20);
                                        styled.colors[AppearanceSettings::InputBackground] = QColor(0xff, 0xfb, 0xe6);
                                        look->setValues(styled);
                                        auto *history = weak->findChild<QPushButton *>(QStringLiteral("showHistory"));
                                        if (history)
                                            history->setChecked(true);
                                        tour->after(300, [tour, weak, look, before, history, done] {
                                            if (weak)
                                                tour->grab(weak, QStringLiteral("43-chat-history-restyled"));
                                            look->setValues(before);
                                            if (weak && history)
                                                history->setChecked(false);
                                            done();
                                        });
                                    });
                                },
                                50);
                    },
                    50);
        });
    };
}

}  // namespace ChatScreenshotStep
