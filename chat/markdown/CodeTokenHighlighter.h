#pragma once

#include "chat/markdown/SyntaxToken.h"

#include <QList>
#include <QString>

// Splits the code of an answer's code block into coloured tokens: one general scanner driven
// by a table of languages (keywords, types, comment marks), and scanners of their own for
// JSON and for XML/HTML. An unknown language gives the whole text as one plain token. The
// language tables are built once, on first use. Main thread (the tables are not locked).
class CodeTokenHighlighter {
public:
    static QList<SyntaxToken> tokenize(const QString &code, const QString &language);

private:
    static QList<SyntaxToken> tokenizeJson(const QString &code);
    static QList<SyntaxToken> tokenizeXml(const QString &code);
};
