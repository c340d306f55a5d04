// The chat screen while an answer streams: 20,000 tokens arrive as deltas of 1 to 4 tokens,
// each applied to the transcript as the stream does and followed by a painted frame of the
// window. Prints the frame time's percentiles, the total, and the final render when the
// answer completes.
#include "app/ApplicationServices.h"
#include "chat/session/ChatViewModel.h"
#include "views/chat/ChatView.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QRandomGenerator>

#include <algorithm>
#include <cstdio>
#include <vector>

namespace {

// A Markdown answer's words: prose, a list and a fenced code block now and then.
QString token(int i)
{
    static const char *words[] = {"the ", "server ", "lists ", "**tools** ", "and ", "`resources` ", "for ", "a ",
                                  "client, ", "which ", "calls ", "them.\n\n", "- item ", "one\n", "```js\n",
                                  "const x = 42;\n", "```\n\n", "## Section\n\n"};
    return QString::fromLatin1(words[i % int(std::size(words))]);
}

double percentile(std::vector<double> values, double p)
{
    std::sort(values.begin(), values.end());
    return values[std::min(values.size() - 1, size_t(p * double(values.size())))];
}

}  // namespace

int main(int argc, char **argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    ChatView::startsServerOnAppear = false;
    ApplicationServices services;
    auto *model = new ChatViewModel;
    ChatView view(model, services.server());
    model->setParent(&view);
    view.resize(1000, 800);
    view.show();
    QApplication::processEvents();

    TranscriptMessage question;
    question.content = QStringLiteral("Explain the server.");
    TranscriptMessage answer;
    answer.role = TranscriptMessage::Role::assistant;
    ChatSession &session = model->session();
    session.setTranscript({question, answer});
    QApplication::processEvents();

    constexpr int tokens = 20000;
    std::vector<double> frames;
    QRandomGenerator random(7);
    QElapsedTimer total;
    total.start();
    for (int sent = 0; sent < tokens;) {
        const int count = std::min(tokens - sent, 1 + int(random.bounded(4)));
        QString delta;
        for (int i = 0; i < count; ++i)
            delta += token(sent + i);
        sent += count;
        QElapsedTimer frame;
        frame.start();
        session.updateMessage(answer.id, [&](TranscriptMessage &message) { message.content += delta; });
        view.repaint();
        frames.push_back(frame.nsecsElapsed() / 1e6);
    }
    const double streamed = total.nsecsElapsed() / 1e6;
    QElapsedTimer final;
    final.start();
    session.updateMessage(answer.id, [](TranscriptMessage &message) { message.isComplete = true; });
    view.repaint();
    const double finalRender = final.nsecsElapsed() / 1e6;

    std::printf("Chat screen, a streamed answer of %d tokens in %zu deltas (%lld characters)\n", tokens, frames.size(),
                static_cast<long long>(session.transcript().last().content.size()));
    std::printf("  frame time: median %.2f ms, p90 %.2f ms, p99 %.2f ms, worst %.2f ms (goal: median under 16 ms)\n",
                percentile(frames, 0.5), percentile(frames, 0.9), percentile(frames, 0.99), percentile(frames, 1.0));
    std::printf("  total %.0f ms; the final Markdown render when the answer completes %.0f ms\n", streamed, finalRender);
    return 0;
}
