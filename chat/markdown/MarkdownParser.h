#pragma once

#include "chat/markdown/MDBlock.h"
#include "chat/markdown/MDSpan.h"

#include <QString>
#include <QStringList>

#include <vector>

// The small Markdown parser of the chat, tuned to what language models write rather than to
// any standard. One pass over the lines, with recursion only for quotes and list items, so it
// stays cheap enough for the main thread. Stateless; any thread.
class MarkdownParser {
public:
    static std::vector<MDBlock> parseBlocks(const QString &text);
    static QList<MDSpan> parseInline(const QString &text);

    // Blanks and tabs trimmed at both ends (nothing else: a CR stays).
    static QString trimBlanks(const QString &s);
    static bool isBullet(const QString &trimmed);
    static bool isNumbered(const QString &trimmed);
    static bool isTask(const QString &trimmed);
    static bool isFence(const QString &trimmed);
    static bool isTableSeparator(const QString &line);

private:
    static std::vector<MDBlock> parseLines(const QStringList &lines);
};
