// Prints the time of a full render of a 2,000-line answer (mixed Markdown with 30 code
// blocks; goal under 20 ms) and the cost of one streamed delta appended to an answer of
// 50,000 characters (goal under 0.2 ms).
#include "chat/markdown/AnswerTextCoordinator.h"
#include "chat/markdown/MarkdownRenderer.h"

#include <QElapsedTimer>
#include <QGuiApplication>
#include <QTextDocument>

#include <algorithm>
#include <cstdio>
#include <vector>

namespace {

QString longAnswer()
{
    QStringList lines;
    int block = 0;
    const char *languages[] = {"cpp", "python", "json", "bash", "xml", "ts"};
    while (lines.size() < 2000) {
        lines << QStringLiteral("## Step %1").arg(block + 1) << QString()
              << QStringLiteral("This step uses **bold**, *italics*, `inline code` and a [link](https://example.org)"
                                " to show how the renderer copes with ~~old~~ mixed text.")
              << QString() << QStringLiteral("1. First item with **bold** inside") << QStringLiteral("   - nested `x`")
              << QStringLiteral("2. Second item") << QString() << QStringLiteral("| Name | Value |")
              << QStringLiteral("|:--|--:|") << QStringLiteral("| alpha | 1 |") << QStringLiteral("| beta | 22 |")
              << QString() << QStringLiteral("> A quoted remark about the step.") << QString();
        if (block < 30) {
            lines << QStringLiteral("```%1").arg(QLatin1String(languages[block % 6]));
            for (int k = 0; k < 30; ++k)
                lines << QStringLiteral("    if (value_%1 > 0x1F) { call(\"text %1\"); } // note").arg(k);
            lines << QStringLiteral("```") << QString();
        }
        ++block;
    }
    lines.resize(2000);
    return lines.join(QLatin1Char('\n'));
}

double median(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

} // namespace

int main(int argc, char **argv)
{
    qputenv("QT_QPA_PLATFORM", qgetenv("QT_QPA_PLATFORM").isEmpty() ? "offscreen" : qgetenv("QT_QPA_PLATFORM"));
    QGuiApplication app(argc, argv);
    const MarkdownStyle style = MarkdownStyle::fromPalette();
    const QString answer = longAnswer();

    std::vector<double> renders;
    for (int run = 0; run < 7; ++run) {
        QTextDocument doc;
        QElapsedTimer timer;
        timer.start();
        MarkdownRenderer(style).render(answer, &doc);
        renders.push_back(timer.nsecsElapsed() / 1e6);
    }
    std::printf("full render, 2,000 lines with 30 code blocks (%lld characters): %.2f ms median of 7 (goal < 20 ms)\n",
                static_cast<long long>(answer.size()), median(renders));

    QTextDocument doc;
    AnswerTextCoordinator coordinator(&doc, MarkdownRenderer(style));
    QString content = answer.left(50000);
    while (content.size() < 50000)
        content += answer.left(50000 - content.size());
    coordinator.update(content, true, false);
    const QString delta = QStringLiteral("some **streamed** words\n");
    std::vector<double> deltas;
    for (int k = 0; k < 2000; ++k) {
        content += delta;
        QElapsedTimer timer;
        timer.start();
        coordinator.update(content, true, false);
        deltas.push_back(timer.nsecsElapsed() / 1e6);
    }
    std::printf("streamed delta appended to a 50,000-character answer: %.4f ms median, %.4f ms p99 (goal < 0.2 ms)\n",
                median(deltas), [&] { auto v = deltas; std::sort(v.begin(), v.end()); return v[v.size() * 99 / 100]; }());
    return 0;
}
