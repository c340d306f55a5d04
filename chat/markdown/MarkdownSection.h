#pragma once

#include <QList>
#include <QString>
#include <optional>

// A section of a help document: the simpler reading of Markdown that the read-only help
// pages use (headings, paragraphs, code, bullet and numbered items). Any thread.
struct MarkdownSection {
    enum class Type { Heading1, Heading2, Heading3, Heading4, Heading5, Heading6, Paragraph, Code, BulletPoint,
                      NumberedItem };

    int id = 0; // the position in the document
    Type type = Type::Paragraph;
    QString content;
    std::optional<int> number;

    static QList<MarkdownSection> parse(const QString &text);
    // The section's text as HTML: escaped, with bold, italic, code and strikethrough marks
    // turned into styles and removed.
    static QString inlineHtml(const QString &content);
};
