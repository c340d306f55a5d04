#include "views/script/JavaScriptHighlighter.h"

#include "views/common/ColorScheme.h"

#include <QApplication>

#include "workbench/EditorSettings.h"

namespace {

enum BlockState { Normal = 0, InComment = 1, InTemplate = 2 };

const QRegularExpression &keywords()
{
    static const QRegularExpression expression(QStringLiteral(
        R"(\b(?:break|case|catch|class|const|continue|debugger|default|delete|do|else|export|extends|finally|for|)"
        R"(function|if|import|in|instanceof|let|new|return|super|switch|this|throw|try|typeof|var|void|while|with|)"
        R"(yield|async|await)\b)"));
    return expression;
}

// A "/" opens a regular-expression literal, not a division, at the start of a line or after
// one of these (blanks between them allowed).
bool regexMayStartAfter(const QString &text, qsizetype slash)
{
    qsizetype k = slash - 1;
    while (k >= 0 && text.at(k).isSpace())
        --k;
    return k < 0 || QStringLiteral("=(:,[!&|?{};").contains(text.at(k));
}

// The end of a regular-expression literal starting at `slash` ("/", at least one character,
// "/", flags), or -1 when there is none on this line.
qsizetype regexLiteralEnd(const QString &text, qsizetype slash)
{
    const qsizetype n = text.size();
    qsizetype j = slash + 1;
    if (j >= n || text.at(j) == u'/' || text.at(j) == u'*')
        return -1;
    while (j < n && text.at(j) != u'/') {
        if (text.at(j) == u'\\') {
            if (j + 1 >= n)
                return -1;
            j += 2;
        } else {
            ++j;
        }
    }
    if (j >= n || j == slash + 1)
        return -1;
    ++j;
    while (j < n && QStringLiteral("gimsuy").contains(text.at(j)))
        ++j;
    return j;
}

bool isIdentifierUnit(QChar c)
{
    return c.isLetterOrNumber() || c == u'_' || c == u'$';
}

}  // namespace

JavaScriptHighlighter::JavaScriptHighlighter(QTextDocument *document, EditorSettings *settings)
    : QSyntaxHighlighter(document), m_settings(settings)
{
}

void JavaScriptHighlighter::highlightBlock(const QString &text)
{
    // The colours are made for a dark editor; on a light one they are taken darker.
    const QColor base = QApplication::palette().color(QPalette::Base);
    auto colored = [&base](const QColor &color) {
        QTextCharFormat format;
        format.setForeground(ColorScheme::readableOn(color, base));
        return format;
    };
    const QTextCharFormat keyword = colored(m_settings->keywordColor);
    const QTextCharFormat string = colored(m_settings->stringColor);
    const QTextCharFormat comment = colored(m_settings->commentColor);
    const QTextCharFormat number = colored(m_settings->numberColor);
    const QTextCharFormat function = colored(m_settings->functionColor);

    // Keywords and function names first; strings and comments then take their ranges over.
    for (auto it = keywords().globalMatch(text); it.hasNext();) {
        const QRegularExpressionMatch match = it.next();
        setFormat(int(match.capturedStart()), int(match.capturedLength()), keyword);
    }
    static const QRegularExpression functionName(QStringLiteral(R"(\b([A-Za-z_$][\w$]*)\s*(?=\())"));
    for (auto it = functionName.globalMatch(text); it.hasNext();) {
        const QRegularExpressionMatch match = it.next();
        if (!keywords().match(match.captured(1)).hasMatch())
            setFormat(int(match.capturedStart(1)), int(match.capturedLength(1)), function);
    }

    int state = previousBlockState() < 0 ? Normal : previousBlockState();
    qsizetype i = 0;
    const qsizetype n = text.size();
    while (i < n) {
        if (state == InComment) {
            const qsizetype end = text.indexOf(QStringLiteral("*/"), i);
            const qsizetype stop = end < 0 ? n : end + 2;
            setFormat(int(i), int(stop - i), comment);
            i = stop;
            if (end >= 0)
                state = Normal;
            continue;
        }
        if (state == InTemplate) {
            qsizetype j = i;
            while (j < n && text.at(j) != u'`')
                j += text.at(j) == u'\\' ? 2 : 1;
            const qsizetype stop = std::min(n, j + 1);
            setFormat(int(i), int(stop - i), string);
            i = stop;
            if (j < n)
                state = Normal;
            continue;
        }
        const QChar c = text.at(i);
        if (c == u'/' && i + 1 < n && text.at(i + 1) == u'/') {
            setFormat(int(i), int(n - i), comment);
            break;
        }
        if (c == u'/' && i + 1 < n && text.at(i + 1) == u'*') {
            state = InComment;
            setFormat(int(i), 2, comment);
            i += 2;
            continue;
        }
        if (c == u'/' && regexMayStartAfter(text, i)) {
            if (const qsizetype end = regexLiteralEnd(text, i); end > 0) {
                setFormat(int(i), int(end - i), string);
                i = end;
                continue;
            }
        }
        if (c == u'`') {
            state = InTemplate;
            setFormat(int(i), 1, string);
            ++i;
            continue;
        }
        if (c == u'"' || c == u'\'') {
            qsizetype j = i + 1;
            while (j < n && text.at(j) != c)
                j += text.at(j) == u'\\' ? 2 : 1;
            const qsizetype stop = std::min(n, j + 1);
            setFormat(int(i), int(stop - i), string);
            i = stop;
            continue;
        }
        if (c.isDigit() && (i == 0 || !isIdentifierUnit(text.at(i - 1)))) {
            qsizetype j = i;
            while (j < n && (text.at(j).isLetterOrNumber() || text.at(j) == u'.' || text.at(j) == u'_'))
                ++j;
            setFormat(int(i), int(j - i), number);
            i = j;
            continue;
        }
        ++i;
    }
    setCurrentBlockState(state);
}
