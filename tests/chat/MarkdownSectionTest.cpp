#include "chat/markdown/MarkdownSection.h"

#include <gtest/gtest.h>

namespace {

using Type = MarkdownSection::Type;

TEST(MarkdownSection, ReadsTheHelpDocumentShapes)
{
    const auto sections = MarkdownSection::parse(QStringLiteral(
        "# Title\n\nFirst line\nsecond line\n> quoted\n\n---\n## Steps\n1. Open\n12. Close\n- bullet\n"
        "```\n  code line\n\nmore\n```\n###### Small\n####### not a heading"));
    ASSERT_EQ(sections.size(), 9);
    EXPECT_EQ(sections[0].type, Type::Heading1);
    EXPECT_EQ(sections[0].content, QStringLiteral("Title"));
    EXPECT_EQ(sections[1].type, Type::Paragraph);
    EXPECT_EQ(sections[1].content, QStringLiteral("First line second line quoted"));
    EXPECT_EQ(sections[2].type, Type::Heading2);
    EXPECT_EQ(sections[3].type, Type::NumberedItem);
    EXPECT_EQ(sections[4].number, 12);
    EXPECT_EQ(sections[5].type, Type::BulletPoint);
    EXPECT_EQ(sections[6].type, Type::Code);
    EXPECT_EQ(sections[6].content, QStringLiteral("code line\n\nmore"));
    EXPECT_EQ(sections[7].type, Type::Heading6);
    EXPECT_EQ(sections[8].type, Type::Paragraph);
    EXPECT_EQ(sections[8].id, 8);
}

TEST(MarkdownSection, InlineMarksBecomeStylesAndAreRemoved)
{
    EXPECT_EQ(MarkdownSection::inlineHtml(QStringLiteral("**b** and __b2__, *i* _j_ `c<d>` ~~s~~")),
              QStringLiteral("<b>b</b> and <b>b2</b>, <i>i</i> <i>j</i> <code>c&lt;d&gt;</code> <s>s</s>"));
}

} // namespace
