#pragma once

#include <QColor>
#include <QString>

// One piece of a coloured code block. The texts of a block's tokens, joined, give the code
// back exactly.
struct SyntaxToken {
    enum class Kind { Keyword, Type, String, Number, Comment, Operator, Plain };

    QString text;
    Kind kind = Kind::Plain;

    // The colour of a kind; comments, operators and plain text are the given text colour at
    // reduced alpha, so they follow the desktop's light or dark look.
    static QColor colorOf(Kind kind, const QColor &textColor);
};
