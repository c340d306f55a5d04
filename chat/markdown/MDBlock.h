#pragma once

#include "chat/markdown/MDSpan.h"

#include <QList>
#include <QString>
#include <QStringList>

#include <vector>

struct MDBlock;

// An item of a bullet, ordered or task list; `checked` is read for task items only.
struct MDListItem {
    bool checked = false;
    std::vector<MDBlock> children;
};

enum class MDColumnAlign { Left, Center, Right, None };

// One block of an answer. Which fields are filled depends on `kind`: headings and
// paragraphs have `spans` (and a heading its `level`), code blocks `language` and `body`,
// quotes `children`, lists `items` (an ordered list also `start`), tables `header`, `align`
// and `rows` (cells stay plain strings).
struct MDBlock {
    enum class Kind { Heading, Paragraph, CodeBlock, Blockquote, BulletList, OrderedList, TaskList,
                      Table, HorizontalRule, Blank };

    Kind kind = Kind::Paragraph;
    int level = 0;
    QList<MDSpan> spans;
    QString language;
    QString body;
    std::vector<MDBlock> children;
    std::vector<MDListItem> items;
    int start = 1;
    bool tight = true;
    QStringList header;
    QList<MDColumnAlign> align;
    QList<QStringList> rows;

    // An indented outline of the blocks, one line per block or list item, for tests: "h2 ...",
    // "p ...", "code(lang) N lines", "quote", "ul", "ol start=N", "tasks", "- item",
    // "- [x] item", "table 3x2 align=l,c,r,-", "hr". Children are indented by two blanks.
    static QString outline(const std::vector<MDBlock> &blocks, int indent = 0);
};
