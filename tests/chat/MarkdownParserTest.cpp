#include "chat/markdown/MarkdownParser.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>

namespace {

QString outline(const QString &markdown) { return MDBlock::outline(MarkdownParser::parseBlocks(markdown)); }
QString inlineOutline(const QString &text) { return MDSpan::outline(MarkdownParser::parseInline(text)); }

struct BlockCase {
    const char *name;
    const char *markdown;
    const char *expected;
};

class BlockTable : public testing::TestWithParam<BlockCase> {};

TEST_P(BlockTable, GivesTheExpectedOutline)
{
    const BlockCase &c = GetParam();
    EXPECT_EQ(outline(QString::fromUtf8(c.markdown)).toStdString(), c.expected) << c.name;
}

// Where models' habits meet the rules' corners: underlines against rules, heading marks,
// bullets that are and aren't, ordered starts, tables needing their separator.
const BlockCase kBlockCases[] = {
    {"text over dashes is a heading", "Title\n---\n", "h2 \"Title\"\n"},
    {"dashes after a blank are a rule", "Title\n\n---\n", "p \"Title\"\nhr\n"},
    {"a single dash underlines nothing", "Title\n-\n", "p \"Title -\"\n"},
    {"equals underline", "Big\n===", "h1 \"Big\"\n"},
    {"seven hashes are a paragraph", "####### word", "p \"####### word\"\n"},
    {"hash without blank is a paragraph", "#x", "p \"#x\"\n"},
    {"lone hash is an empty heading", "#", "h1 \n"},
    {"closing hashes stay", "## Name ##", "h2 \"Name ##\"\n"},
    {"stars rule", "* * *", "hr\n"},
    {"fence never closing takes the rest", "Intro\n```python\nprint(1)\n\nx = 2",
     "p \"Intro\"\ncode(python) 3 lines\n"},
    {"tilde fence", "~~~\na\n~~~\nafter", "code() 1 lines\np \"after\"\n"},
    {"dash-bold is a bullet", "-**Bold** text", "ul\n  -\n    p b(\"Bold\") \" text\"\n"},
    {"star without blank is no list", "*not a list", "p \"*not a list\"\n"},
    {"ordered start from the first item only", "2. a\n7. b", "ol start=2\n  -\n    p \"a\"\n  -\n    p \"b\"\n"},
    {"paren numbers start at one", "3) a", "ol start=1\n  -\n    p \"a\"\n"},
    {"pipe without separator is a paragraph", "a | b\nc | d", "p \"a | b c | d\"\n"},
    // Trimming dashes leaves a lone colon, which counts as both ends.
    {"table with alignment", "| A | B | C | D |\n|:--|:-:|--:|---|\n| 1 | 2 | 3 | 4 |\n| 5 | 6 | 7 | 8 |\nafter",
     "table 4x2 align=c,c,c,- header=A|B|C|D\np \"after\"\n"},
    {"task list, capital X is a bullet", "- [x] done\n- [ ] open\n- [X] other",
     "tasks\n  - [x]\n    p \"done\"\n  - [ ]\n    p \"open\"\nul\n  -\n    p \"[X] other\"\n"},
    {"quote with lazy continuation", "> first\nlazy\n\nafter", "quote\n  p \"first lazy\"\np \"after\"\n"},
    {"list inside a quote", "> - a\n> - b", "quote\n  ul\n    -\n      p \"a\"\n    -\n      p \"b\"\n"},
    {"one blank keeps a list, two end it", "- a\n\n- b\n\n\n- c",
     "ul\n  -\n    p \"a\"\n  -\n    p \"b\"\nul\n  -\n    p \"c\"\n"},
    {"empty item takes the next line", "1.\n\ntext", "ol start=1\n  -\n    p \"text\"\n"},
    {"empty item before a block stays empty", "1.\n  - a", "ol start=1\n  -\n    ul\n      -\n        p \"a\"\n"},
    {"a lone dash is no bullet", "-", "p \"-\"\n"},
    {"paragraph stops before an underlined line", "a\nb\n---", "p \"a\"\nh2 \"b\"\n"},
    {"paragraph runs through a rule-like star line", "a\nb\nc", "p \"a b c\"\n"},
    {"only newlines give nothing", "\n\n\n", ""},
};

INSTANTIATE_TEST_SUITE_P(EdgeCases, BlockTable, testing::ValuesIn(kBlockCases));

TEST(MarkdownInline, FollowsItsRulesInOrder)
{
    const std::pair<const char *, const char *> cases[] = {
        {"**bold", "\"**bold\""},
        {"\\*x\\*", "\"*x*\""},
        {"[a](b", "\"[a](b\""},
        {"[docs](https://example.org) end", "[docs](https://example.org) \" end\""},
        {"``a ` b``", "`a ` b`"},
        {"` x `", "`x`"},
        {"`open", "\"`open\""},
        {"***both*** and __strong__", "bi(\"both\") \" and \" b(\"strong\")"},
        {"_ not italic_ but _yes_", "\"_ not italic_ but \" i(\"yes\")"},
        {"~~gone~~", "s(\"gone\")"},
        {"**a *b* c**", "b(\"a \" i(\"b\") \" c\")"},
        {"line  \nnext", "\"line\" <br> \"next\""},
        {"a ** b", "\"a ** b\""},
    };
    for (const auto &[in, expected] : cases)
        EXPECT_EQ(inlineOutline(QString::fromUtf8(in)).toStdString(), expected) << in;
}

TEST(MarkdownBlocks, CodeBodyStartsWithBlankAndNewline)
{
    const auto blocks = MarkdownParser::parseBlocks(QStringLiteral("```js\nlet a = 1;\n```"));
    ASSERT_EQ(blocks.size(), 1u);
    EXPECT_EQ(blocks[0].body, QStringLiteral(" \nlet a = 1;"));
    EXPECT_EQ(blocks[0].language, QStringLiteral("js"));
}

TEST(MarkdownBlocks, TableCellsStayPlain)
{
    const auto blocks = MarkdownParser::parseBlocks(QStringLiteral("a|b\n-|-\n**x** | `y`\n"));
    ASSERT_EQ(blocks.size(), 1u);
    ASSERT_EQ(blocks[0].rows.size(), 1);
    EXPECT_EQ(blocks[0].rows[0], (QStringList{QStringLiteral("**x**"), QStringLiteral("`y`")}));
}

// Answers in the style models write, each beside the outline its blocks must have.
TEST(MarkdownAnswers, MatchTheirOutlines)
{
    QDir dir(QStringLiteral(KELVARA_ANSWERS_DIR));
    const QStringList answers = dir.entryList({QStringLiteral("*.md")}, QDir::Files, QDir::Name);
    ASSERT_GE(answers.size(), 4);
    for (const QString &name : answers) {
        QFile md(dir.filePath(name));
        QFile expected(dir.filePath(name.chopped(3) + QStringLiteral(".outline")));
        ASSERT_TRUE(md.open(QIODevice::ReadOnly)) << name.toStdString();
        ASSERT_TRUE(expected.open(QIODevice::ReadOnly)) << name.toStdString();
        QString want;
        for (const QString &line : QString::fromUtf8(expected.readAll()).split(QLatin1Char('\n')))
            if (!line.isEmpty() && !line.startsWith(QLatin1Char('#'))) // "#" lines are notes
                want += line + QLatin1Char('\n');
        EXPECT_EQ(outline(QString::fromUtf8(md.readAll())).toStdString(), want.toStdString())
            << name.toStdString();
    }
}

} // namespace
