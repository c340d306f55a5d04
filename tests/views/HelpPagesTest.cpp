// The help pages as a reader sees them: every document renders as formatted text (no raw
// table rules, no heading run into a paragraph), its code blocks copy, and its links lead.
#include "base/AppPaths.h"
#include "chat/markdown/MarkdownRenderer.h"
#include "views/common/MarkdownBrowser.h"
#include "views/common/ReadOnlyTextView.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QClipboard>
#include <QDesktopServices>
#include <QDir>
#include <QFontDatabase>
#include <QScrollBar>
#include <QTest>
#include <QRegularExpression>
#include <QTextBlock>
#include <QUrl>

namespace {

// Catches what a desktop URL handler would be given.
class UrlCatcher : public QObject {
    Q_OBJECT
public:
    QList<QUrl> urls;
public slots:
    void handle(const QUrl &url) { urls.append(url); }
};

// The viewport point of the first character whose link is `href`.
std::optional<QPoint> linkPoint(MarkdownBrowser &browser, const QString &href)
{
    for (QTextBlock block = browser.document()->begin(); block.isValid(); block = block.next()) {
        for (auto it = block.begin(); !it.atEnd(); ++it) {
            const QTextFragment fragment = it.fragment();
            if (fragment.charFormat().anchorHref() != href)
                continue;
            QTextCursor cursor(browser.document());
            cursor.setPosition(fragment.position() + 1);
            return browser.cursorRect(cursor).center() - QPoint(2, 0);
        }
    }
    return std::nullopt;
}

}  // namespace

TEST(HelpPagesTest, EveryPageRendersAsFormattedText)
{
    const QDir help(AppPaths::resourcesDir() + QStringLiteral("/help"));
    const QStringList pages = help.entryList({QStringLiteral("*.md")}, QDir::Files);
    ASSERT_GE(pages.size(), 5);
    for (const QString &page : pages) {
        ReadOnlyTextView view(page, page);
        ASSERT_TRUE(view.loaded()) << page.toStdString();
        const QString text = view.text();
        for (const QString &line : text.split(QLatin1Char('\n'))) {
            const QString trimmed = line.trimmed();
            // Raw Markdown that the renderer did not take: table rules, fences, headings run
            // into a line, emphasis marks, a shell line continuation joined to the next line.
            EXPECT_FALSE(trimmed.startsWith(QLatin1Char('|')) && trimmed.contains(QStringLiteral("---")))
                << page.toStdString() << ": " << line.toStdString();
            EXPECT_FALSE(trimmed.startsWith(QStringLiteral("```"))) << page.toStdString() << ": " << line.toStdString();
            EXPECT_FALSE(QRegularExpression(QStringLiteral("\\S\\s+#{1,6} \\S")).match(trimmed).hasMatch())
                << page.toStdString() << ": " << line.toStdString();
            EXPECT_FALSE(trimmed.contains(QStringLiteral("**"))) << page.toStdString() << ": " << line.toStdString();
            EXPECT_FALSE(trimmed.contains(QStringLiteral("\\ -"))) << page.toStdString() << ": " << line.toStdString();
        }
    }
}

// Prose reads in the application's font and code in the fixed one, and a page opens at its
// top, whatever was shown before.
TEST(HelpPagesTest, ProseIsInTheApplicationsFontAndAPageOpensAtItsTop)
{
    ReadOnlyTextView view(QStringLiteral("getstarted.md"), QStringLiteral("Get started"));
    ASSERT_TRUE(view.loaded());
    auto *browser = view.findChild<MarkdownBrowser *>();
    ASSERT_NE(browser, nullptr);
    bool sawProse = false;
    bool sawCode = false;
    for (QTextBlock block = browser->document()->begin(); block.isValid(); block = block.next()) {
        for (auto it = block.begin(); !it.atEnd(); ++it) {
            const QString family = it.fragment().charFormat().font().family();
            if (family == QApplication::font().family())
                sawProse = true;
            else if (family == QFontDatabase::systemFont(QFontDatabase::FixedFont).family())
                sawCode = true;
        }
    }
    EXPECT_TRUE(sawProse);
    EXPECT_TRUE(sawCode);
    view.resize(400, 300);
    view.show();
    browser->verticalScrollBar()->setValue(browser->verticalScrollBar()->maximum());
    view.load(QStringLiteral("help_tool_config.md"));
    EXPECT_EQ(browser->textCursor().position(), 0);
    EXPECT_TRUE(QTest::qWaitFor([&] { return browser->verticalScrollBar()->value() == 0; }, 2000));
}

TEST(HelpPagesTest, CopyPutsTheCodeOnTheClipboardAndLinksLead)
{
    UrlCatcher catcher;
    QDesktopServices::setUrlHandler(QStringLiteral("kelvara"), &catcher, "handle");
    QDesktopServices::setUrlHandler(QStringLiteral("https"), &catcher, "handle");

    MarkdownBrowser browser;
    browser.resize(600, 400);
    browser.show();
    QString requested;
    QObject::connect(&browser, &MarkdownBrowser::documentRequested, [&](const QString &document) { requested = document; });
    browser.showMarkdown(QStringLiteral("Try it:\n\n```sh\ncurl -s http://127.0.0.1:8888/ \\\n  -d '{}'\n```\n\n"
                                        "[the overview](overview.md) and [the protocol](https://modelcontextprotocol.io)\n"));
    QApplication::clipboard()->clear();

    const std::optional<QPoint> copy = linkPoint(browser, QStringLiteral("kelvara://copy-code"));
    ASSERT_TRUE(copy);
    EXPECT_TRUE(browser.activateLinkAt(*copy));
    EXPECT_EQ(QApplication::clipboard()->text(), "curl -s http://127.0.0.1:8888/ \\\n  -d '{}'");

    const std::optional<QPoint> overview = linkPoint(browser, QStringLiteral("overview.md"));
    ASSERT_TRUE(overview);
    EXPECT_TRUE(browser.activateLinkAt(*overview));
    EXPECT_EQ(requested, "overview.md");

    const std::optional<QPoint> web = linkPoint(browser, QStringLiteral("https://modelcontextprotocol.io"));
    ASSERT_TRUE(web);
    EXPECT_TRUE(browser.activateLinkAt(*web));
    // Only the web link reached the desktop; the copy link never does.
    ASSERT_EQ(catcher.urls.size(), 1);
    EXPECT_EQ(catcher.urls.first().toString(), "https://modelcontextprotocol.io");
    QDesktopServices::unsetUrlHandler(QStringLiteral("kelvara"));
    QDesktopServices::unsetUrlHandler(QStringLiteral("https"));
}

TEST(HelpPagesTest, ALinkToAnotherPageOpensItInTheSameWindow)
{
    ReadOnlyTextView view(QStringLiteral("getstarted.md"), QStringLiteral("Get started"));
    view.resize(640, 720);
    view.show();
    const std::optional<QPoint> back = linkPoint(*view.browser(), QStringLiteral("overview.md"));
    ASSERT_TRUE(back);
    EXPECT_TRUE(view.browser()->activateLinkAt(*back));
    EXPECT_EQ(view.filename(), "overview.md");
    EXPECT_TRUE(view.text().contains(QStringLiteral("Where your data lives")));
}

#include "HelpPagesTest.moc"
