#pragma once

#include <QList>
#include <QString>

// One inline piece of an answer's text. Containers (bold, italic, boldItalic,
// strikethrough) hold their parsed children; code and text hold `text`; a link holds its
// text unparsed and its `url`.
struct MDSpan {
    enum class Kind { Text, Bold, Italic, BoldItalic, Strikethrough, Code, Link, LineBreak };

    Kind kind = Kind::Text;
    QString text;
    QString url;
    QList<MDSpan> children;

    // A compact one-line outline, for tests and logs: "text" as quoted, b(...), i(...),
    // bi(...), s(...), `code`, [text](url), and "<br>" for a line break.
    static QString outline(const QList<MDSpan> &spans);
};
