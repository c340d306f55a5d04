#pragma once

#include "chat/markdown/MDBlock.h"
#include "chat/markdown/MarkdownStyle.h"

#include <QTextCharFormat>
#include <QTextCursor>

class QTextDocument;

// Renders an answer's Markdown into styled runs of a text document: headings, paragraphs,
// quotes and lists with their spacing and indents, tables as padded columns, code blocks
// with a rule, the language, a "Copy" link carrying the code, and coloured tokens. Main
// thread (it fills a QTextDocument).
class MarkdownRenderer {
public:
    // The property of a "Copy" link's format that holds the code block's text.
    static constexpr int CodeCopyPayload = QTextFormat::UserProperty + 1;

    explicit MarkdownRenderer(MarkdownStyle style) : m_style(std::move(style)) {}

    const MarkdownStyle &style() const { return m_style; }

    // Replaces the document's content by the rendered text. Only newlines render nothing.
    void render(const QString &markdown, QTextDocument *document) const;

private:
    void renderBlock(QTextCursor &cursor, const MDBlock &block, bool &first) const;
    void renderSpans(QTextCursor &cursor, const QList<MDSpan> &spans, const QTextCharFormat &base) const;
    void renderCode(QTextCursor &cursor, const MDBlock &block) const;
    void renderTable(QTextCursor &cursor, const MDBlock &block) const;
    void renderItemChildren(QTextCursor &cursor, const std::vector<MDBlock> &children,
                            const QTextCharFormat &base) const;
    QTextCharFormat bodyFormat(const QColor &color, double size) const;
    QTextBlockFormat paragraphFormat(double before, double after, double spacing, double size, double indent) const;
    // Writes text that may hold LFs: each LF opens a new paragraph of the current style.
    static void write(QTextCursor &cursor, const QString &text, const QTextCharFormat &format);

    MarkdownStyle m_style;
};
