#include "chat/markdown/AnswerTextCoordinator.h"
#include "chat/markdown/MarkdownRenderer.h"
#include "chat/markdown/SyntaxToken.h"

#include <gtest/gtest.h>

#include <QTextBlock>
#include <QTextCursor>
#include <QTextDocument>

namespace {

MarkdownStyle testStyle()
{
    MarkdownStyle s = MarkdownStyle::fromPalette();
    s.primary = Qt::black;
    s.secondary = Qt::darkGray;
    s.muted = Qt::gray;
    s.faint = Qt::lightGray;
    s.accent = Qt::blue;
    s.text = Qt::black;
    return s;
}

QString rendered(const QString &markdown, QTextDocument &doc)
{
    MarkdownRenderer(testStyle()).render(markdown, &doc);
    return doc.toPlainText();
}

// The character format at the first occurrence of `needle`.
QTextCharFormat formatAt(QTextDocument &doc, const QString &needle)
{
    const QTextCursor found = doc.find(needle);
    EXPECT_FALSE(found.isNull()) << needle.toStdString();
    QTextCursor c(&doc);
    c.setPosition(found.selectionStart() + 1);
    return c.charFormat();
}

TEST(MarkdownRenderer, BlocksBecomeTheirText)
{
    QTextDocument doc;
    EXPECT_EQ(rendered(QStringLiteral("# Title\n\nSome **bold** and *it*.\n\n> quoted\n\n---\n\n- [x] done\n- [ ] open"),
                       doc),
              QStringLiteral("Title\nSome bold and it.\n▍ quoted\n\n☑\tdone\n☐\topen"));
}

TEST(MarkdownRenderer, OrderedNumbersCountFromTheStartAndAlignRight)
{
    QTextDocument doc;
    QString md;
    for (int k = 0; k < 3; ++k)
        md += QStringLiteral("%1. item\n").arg(k == 0 ? 9 : 1);
    EXPECT_EQ(rendered(md, doc), QStringLiteral(" 9. item\n10. item\n11. item"));
}

TEST(MarkdownRenderer, NestedListsFollowTheirParentItem)
{
    QTextDocument doc;
    EXPECT_EQ(rendered(QStringLiteral("- a\n  - b\n- c"), doc), QStringLiteral("• a\n• b\n• c"));
}

TEST(MarkdownRenderer, TablesArePaddedColumnsWithARuleUnderTheHeader)
{
    QTextDocument doc;
    EXPECT_EQ(rendered(QStringLiteral("| Name | N |\n|---|---|\n| x | 100 |"), doc),
              QStringLiteral("Name   N  \n────   ───\nx      100"));
    // A narrow view scrolls a wide table instead of wrapping its rows apart.
    EXPECT_TRUE(doc.findBlock(doc.toPlainText().indexOf(QStringLiteral("x      100"))).blockFormat().nonBreakableLines());
}

TEST(MarkdownRenderer, CodeBlockHasRuleLanguageAndCopyLinkWithTheCode)
{
    QTextDocument doc;
    const QString text = rendered(QStringLiteral("```json\n{\"a\": 1}\n```"), doc);
    EXPECT_EQ(text, QString(28, QChar(0x2500)) + QStringLiteral("\nJSON  |  Copy\n{\"a\": 1}\n\n "));
    const QTextCharFormat copy = formatAt(doc, QStringLiteral("Copy"));
    EXPECT_EQ(copy.anchorHref(), QStringLiteral("kelvara://copy-code"));
    EXPECT_EQ(copy.property(MarkdownRenderer::CodeCopyPayload).toString(), QStringLiteral("{\"a\": 1}"));
    EXPECT_EQ(formatAt(doc, QStringLiteral("\"a\"")).foreground().color(),
              SyntaxToken::colorOf(SyntaxToken::Kind::String, Qt::black));
}

TEST(MarkdownRenderer, AnAnswerCutOffInACodeBlockStillRenders)
{
    QTextDocument doc;
    EXPECT_TRUE(rendered(QStringLiteral("Look:\n```python\ndef f(:"), doc).contains(QStringLiteral("def f(:")));
}

TEST(MarkdownRenderer, SpansCarryTheirStyles)
{
    QTextDocument doc;
    rendered(QStringLiteral("**B** *I* `c` [site](https://example.org) ~~gone~~"), doc);
    EXPECT_GE(formatAt(doc, QStringLiteral("B")).fontWeight(), QFont::Bold);
    EXPECT_TRUE(formatAt(doc, QStringLiteral("I")).fontItalic());
    EXPECT_EQ(formatAt(doc, QStringLiteral("c")).foreground().color(), testStyle().inlineCode);
    const QTextCharFormat link = formatAt(doc, QStringLiteral("site"));
    EXPECT_EQ(link.anchorHref(), QStringLiteral("https://example.org"));
    EXPECT_TRUE(link.fontUnderline());
    const QTextCharFormat strike = formatAt(doc, QStringLiteral("gone"));
    EXPECT_TRUE(strike.fontStrikeOut());
    EXPECT_EQ(strike.foreground().color(), QColor(Qt::lightGray));
}

TEST(MarkdownRenderer, OnlyNewlinesRenderNothing)
{
    QTextDocument doc;
    EXPECT_TRUE(rendered(QStringLiteral("\n\n\n"), doc).isEmpty());
}

// While streaming, each update appends only the new text, newline runs folded; the Markdown
// is parsed once, at the end.
TEST(AnswerTextCoordinator, StreamingAppendsWithoutRenderingUntilTheEnd)
{
    QTextDocument doc;
    AnswerTextCoordinator coordinator(&doc, MarkdownRenderer(testStyle()));
    QString content;
    qsizetype delivered = 0;
    for (int k = 0; k < 500; ++k) {
        const QString delta = QStringLiteral("**word %1** ").arg(k) + (k % 50 == 49 ? QStringLiteral("\n\n\n") : QString());
        content += delta;
        coordinator.update(content, true, false);
        delivered += delta.size() - (k % 50 == 49 ? 2 : 0);
    }
    EXPECT_EQ(coordinator.fullRenders(), 0);
    EXPECT_EQ(coordinator.appendedCharacters(), delivered);
    EXPECT_FALSE(coordinator.lastRenderWasFinal());
    EXPECT_TRUE(doc.toPlainText().startsWith(QStringLiteral("**word 0** **word 1**")));
    EXPECT_GT(coordinator.lastInsertedLength(), 0);

    coordinator.update(content, true, true);
    EXPECT_EQ(coordinator.fullRenders(), 1);
    EXPECT_TRUE(coordinator.lastRenderWasFinal());
    EXPECT_TRUE(doc.toPlainText().startsWith(QStringLiteral("word 0 word 1")));
    coordinator.update(content, false, true); // nothing new: no second render
    EXPECT_EQ(coordinator.fullRenders(), 1);
}

TEST(AnswerTextCoordinator, ContentThatNoLongerContinuesIsRenderedAgain)
{
    QTextDocument doc;
    AnswerTextCoordinator coordinator(&doc, MarkdownRenderer(testStyle()));
    coordinator.update(QStringLiteral("\n\n"), true, false);
    EXPECT_EQ(coordinator.fullRenders(), 0);
    EXPECT_TRUE(coordinator.renderedContent().isEmpty());
    coordinator.update(QStringLiteral("Hello"), true, false);
    EXPECT_EQ(coordinator.fullRenders(), 0);
    coordinator.update(QStringLiteral("Goodbye"), true, false);
    EXPECT_EQ(coordinator.fullRenders(), 1);
    EXPECT_FALSE(coordinator.lastRenderWasFinal());
    // A stream that stops without completing still gets its final render once.
    coordinator.update(QStringLiteral("Goodbye"), false, false);
    EXPECT_EQ(coordinator.fullRenders(), 2);
    EXPECT_TRUE(coordinator.lastRenderWasFinal());
}

} // namespace
