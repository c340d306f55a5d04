#include "chat/session/StreamTextFilter.h"

#include <QRegularExpression>
#include <QTextBoundaryFinder>

namespace StreamTextFilter {

namespace {

bool allowed(char32_t scalar)
{
    return scalar < 128 || scalar == 196 || scalar == 214 || scalar == 220 || scalar == 223 || scalar == 228 ||
           scalar == 246 || scalar == 252;
}

}  // namespace

QString filter(const QString &text)
{
    QString kept;
    kept.reserve(text.size());
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    qsizetype start = 0;
    while (start < text.size()) {
        qsizetype end = finder.toNextBoundary();
        if (end < 0)
            end = text.size();
        const QStringView character = QStringView(text).mid(start, end - start);
        bool keep = true;
        for (char32_t scalar : character.toUcs4()) {
            if (!allowed(scalar)) {
                keep = false;
                break;
            }
        }
        if (keep)
            kept += character;
        start = end;
    }
    return kept;
}

QString cleanReasoning(const QString &soFar, const QString &delta)
{
    if (delta.isEmpty())
        return delta;
    static const QRegularExpression leading(QStringLiteral("^\\s*\\n+"));
    static const QRegularExpression blankLines(QStringLiteral("\\n[ \\t]*\\n+"));
    static const QRegularExpression leadingNewlines(QStringLiteral("^\\n+"));
    QString text = delta;
    text.replace(QStringLiteral("\r\n"), QStringLiteral("\n"));
    text.replace(u'\r', u'\n');
    if (soFar.isEmpty())
        text.remove(leading);
    text.replace(blankLines, QStringLiteral("\n"));
    if (soFar.endsWith(u'\n'))
        text.remove(leadingNewlines);
    return text;
}

}  // namespace StreamTextFilter
