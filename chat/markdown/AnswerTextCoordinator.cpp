#include "chat/markdown/AnswerTextCoordinator.h"

#include <QRegularExpression>
#include <QTextCursor>
#include <QTextDocument>

AnswerTextCoordinator::AnswerTextCoordinator(QTextDocument *document, MarkdownRenderer renderer)
    : m_document(document), m_renderer(std::move(renderer))
{
}

void AnswerTextCoordinator::update(const QString &content, bool isStreaming, bool isComplete)
{
    bool onlyNewlines = true;
    for (QChar c : content)
        if (c != QLatin1Char('\n')) {
            onlyNewlines = false;
            break;
        }
    if (onlyNewlines)
        return;

    const bool ended = isComplete || !isStreaming;
    if (content == m_rendered) {
        if (ended && !m_lastFinal)
            renderFully(content, true);
        return;
    }
    if (ended || !content.startsWith(m_rendered)) {
        renderFully(content, ended);
        return;
    }

    static const QRegularExpression newlineRuns(QStringLiteral("\n+"));
    QString added = content.mid(m_rendered.size());
    added.replace(newlineRuns, QStringLiteral("\n"));
    if (added.isEmpty())
        return;
    const MarkdownStyle &style = m_renderer.style();
    QTextCharFormat plain;
    QFont font = style.bodyFont;
    font.setPointSizeF(style.bodySize);
    plain.setFont(font);
    plain.setForeground(style.primary);
    QTextCursor cursor(m_document);
    cursor.movePosition(QTextCursor::End);
    m_insertedStart = cursor.position();
    cursor.insertText(added, plain);
    m_insertedLength = cursor.position() - m_insertedStart;
    m_appended += added.size();
    m_rendered = content;
    m_lastFinal = false;
}

void AnswerTextCoordinator::renderFully(const QString &content, bool final)
{
    m_renderer.render(content, m_document);
    ++m_fullRenders;
    m_rendered = content;
    m_lastFinal = final;
    m_insertedStart = m_insertedLength = 0;
}
