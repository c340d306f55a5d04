#include "chat/appearance/AppearanceSettings.h"
#include "chat/session/ChatViewModel.h"
#include "tests/views/ViewsTestSupport.h"
#include "views/chat/ChatInputField.h"
#include "views/chat/ChatView.h"
#include "views/chat/MessageBubble.h"
#include "views/common/MarkdownBrowser.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QClipboard>
#include <QDesktopServices>
#include <QLabel>
#include <QSettings>
#include <QTemporaryDir>
#include <QTest>
#include <QTextBlock>
#include <QTextDocument>

namespace {

TranscriptMessage message(TranscriptMessage::Role role, const QString &content, bool complete = true)
{
    TranscriptMessage m;
    m.role = role;
    m.content = content;
    m.isComplete = complete;
    return m;
}

// Settings that differ from the defaults in every font, size and colour.
AppearanceSettings::Payload restyled()
{
    AppearanceSettings::Payload values = AppearanceSettings::defaults();
    values.chatFont = ChatFontFamily::SystemSerif;
    values.inputFont = ChatFontFamily::SystemDefault;
    values.userFontSize = 22;
    values.assistantFontSize = 17;
    values.inputFontSize = 19;
    values.codeFont = ChatFontFamily::SystemSerif;
    values.codeFontSize = 15;
    values.lineSpacing = 1.6;
    const QColor colors[] = {Qt::red, Qt::darkGreen, Qt::yellow, Qt::blue, Qt::magenta,
                             Qt::darkCyan, Qt::darkYellow, Qt::cyan, Qt::darkBlue};
    for (int role = 0; role < AppearanceSettings::ColorCount; ++role)
        values.colors[role] = colors[role];
    return values;
}

class ChatAppearanceTest : public ::testing::Test {
protected:
    std::unique_ptr<QSettings> store() const
    {
        return std::make_unique<QSettings>(m_dir.filePath(QStringLiteral("group.conf")), QSettings::IniFormat);
    }
    QTemporaryDir m_dir;
};

// The point of the "Copy" link in a rendered answer, in the viewport's coordinates.
QPoint copyLink(MarkdownBrowser *body)
{
    const QTextCursor found = body->document()->find(QStringLiteral("Copy"));
    if (found.isNull())
        return {-1, -1};
    QTextCursor inside(body->document());
    inside.setPosition(found.selectionStart() + 1);
    return body->cursorRect(inside).center();
}

} // namespace

// Each font, size and colour of the settings reaches the widget that shows it.
TEST_F(ChatAppearanceTest, BubblesAndTheInputFollowEverySetting)
{
    AppearanceSettings appearance(store());
    appearance.setValues(restyled());
    using Role = AppearanceSettings::ColorRole;

    MessageBubble user(message(TranscriptMessage::Role::user, "Hello"), &appearance);
    EXPECT_EQ(user.body()->font().pointSizeF(), 22);
    EXPECT_EQ(user.body()->font().family(), appearance.userFont().family());
    EXPECT_EQ(user.palette().color(QPalette::Window), QColor(Qt::red));
    EXPECT_TRUE(user.autoFillBackground());
    EXPECT_EQ(user.body()->palette().color(QPalette::Text), QColor(Qt::yellow));

    TranscriptMessage answered = message(TranscriptMessage::Role::assistant, "Plain *answer*");
    answered.stats = AIChatStats{3, 40, 0, 12.4, 0, std::nullopt};
    MessageBubble assistant(answered, &appearance);
    EXPECT_EQ(assistant.body()->font().pointSizeF(), 17);
    EXPECT_EQ(assistant.palette().color(QPalette::Window), QColor(Qt::darkGreen));
    EXPECT_EQ(assistant.body()->palette().color(QPalette::Text), QColor(Qt::blue));
    EXPECT_EQ(assistant.statsLabel()->palette().color(QPalette::WindowText), QColor(Qt::darkYellow));
    // The Markdown takes the primary colour and the assistant's size.
    QTextCursor first(assistant.body()->document());
    first.movePosition(QTextCursor::NextCharacter);
    EXPECT_EQ(first.charFormat().foreground().color(), appearance.color(Role::AssistantTextPrimary));
    EXPECT_EQ(first.charFormat().font().pointSizeF(), 17);
    // The line spacing leads the paragraph, and a code block is set in the code font and size.
    AppearanceSettings::Payload tight = appearance.values();
    tight.lineSpacing = 1.0;
    AppearanceSettings plain(store());
    plain.setValues(tight);
    MessageBubble code(message(TranscriptMessage::Role::assistant, "Some words\n\n```\nlet x = 1\n```\n"), &appearance);
    MessageBubble tighter(message(TranscriptMessage::Role::assistant, "Some words\n\n```\nlet x = 1\n```\n"), &plain);
    const QTextBlock words = code.body()->document()->firstBlock();
    EXPECT_GT(words.blockFormat().lineHeight(), tighter.body()->document()->firstBlock().blockFormat().lineHeight());
    const QTextCursor inCode = code.body()->document()->find(QStringLiteral("let"));
    ASSERT_FALSE(inCode.isNull());
    EXPECT_EQ(inCode.charFormat().font().pointSizeF(), 15);
    EXPECT_EQ(inCode.charFormat().font().family(), ChatFontFamily::font(ChatFontFamily::SystemSerif, 15).family());

    ChatInputField input;
    input.applyAppearance(appearance);
    EXPECT_EQ(input.font().pointSizeF(), 19);
    EXPECT_EQ(input.font().family(), appearance.inputFont().family());
    EXPECT_EQ(input.palette().color(QPalette::Text), QColor(Qt::cyan));
    EXPECT_EQ(input.palette().color(QPalette::Base), QColor(Qt::darkBlue));
}

// One settings object for the application: a change made there restyles an open chat at once,
// its bubbles and its input.
TEST_F(ChatAppearanceTest, AnOpenChatFollowsTheSharedSettingsLive)
{
    AppearanceSettings *shared = AppearanceSettings::shared();
    EXPECT_EQ(shared, AppearanceSettings::shared());
    const AppearanceSettings::Payload before = shared->values();
    ChatView::startsServerOnAppear = false;
    auto *model = new ChatViewModel;
    ChatView view(model);
    model->setParent(&view);
    model->session().setTranscript({message(TranscriptMessage::Role::user, "Question"),
                                    message(TranscriptMessage::Role::assistant, "Answer")});
    view.resize(900, 700);
    view.show();
    ASSERT_EQ(view.bubbles().size(), 2);

    shared->setValues(restyled());
    ASSERT_EQ(view.bubbles().size(), 2);
    EXPECT_EQ(view.bubbles().at(0)->body()->font().pointSizeF(), 22);
    EXPECT_EQ(view.bubbles().at(0)->palette().color(QPalette::Window), QColor(Qt::red));
    EXPECT_EQ(view.bubbles().at(1)->body()->font().pointSizeF(), 17);
    EXPECT_EQ(view.input()->font().pointSizeF(), 19);
    EXPECT_EQ(view.input()->palette().color(QPalette::Base), QColor(Qt::darkBlue));

    shared->setValues(before);
    EXPECT_EQ(view.input()->font().pointSizeF(), before.inputFontSize);
}

// A click on a code block's "Copy" puts exactly that block's code on the clipboard, says
// "Kopiert", and hands nothing to the desktop.
TEST_F(ChatAppearanceTest, CopyInAnAnswerCopiesTheCodeAndOpensNothing)
{
    ViewsTestSupport::UrlCatcher catcher;
    QDesktopServices::setUrlHandler(QStringLiteral("kelvara"), &catcher, "open");
    QDesktopServices::setUrlHandler(QStringLiteral("https"), &catcher, "open");
    AppearanceSettings appearance(store());
    const QString answer = QStringLiteral("Run this:\n\n```sh\nkelvara serve --port 3000\n```\n\nand this:\n\n"
                                          "```json\n{\"id\": 1}\n```\n");
    MessageBubble bubble(message(TranscriptMessage::Role::assistant, answer), &appearance);
    bubble.resize(600, 500);
    bubble.show();
    QApplication::processEvents();
    QApplication::clipboard()->setText(QStringLiteral("before"));

    const QPoint link = copyLink(bubble.body());
    ASSERT_GE(link.x(), 0);
    QTest::mouseClick(bubble.body()->viewport(), Qt::LeftButton, {}, link);
    EXPECT_EQ(QApplication::clipboard()->text(), "kelvara serve --port 3000");
    auto *note = bubble.findChild<QLabel *>(QStringLiteral("copiedNote"));
    ASSERT_NE(note, nullptr);
    EXPECT_EQ(note->text(), "Kopiert");
    EXPECT_TRUE(catcher.urls.isEmpty());

    // Text that is no link copies nothing.
    QApplication::clipboard()->setText(QStringLiteral("kept"));
    EXPECT_FALSE(bubble.body()->activateLinkAt(QPoint(2, 2)));
    EXPECT_EQ(QApplication::clipboard()->text(), "kept");
    QDesktopServices::unsetUrlHandler(QStringLiteral("kelvara"));
    QDesktopServices::unsetUrlHandler(QStringLiteral("https"));
}

// An empty complete answer says so; figures the provider didn't give don't show as zeros.
TEST_F(ChatAppearanceTest, EmptyAnswersAndMissingFigures)
{
    AppearanceSettings appearance(store());
    MessageBubble empty(message(TranscriptMessage::Role::assistant, QString()), &appearance);
    EXPECT_EQ(empty.shownText(), MessageBubble::emptyAnswerText());
    MessageBubble growing(message(TranscriptMessage::Role::assistant, QString(), false), &appearance);
    EXPECT_EQ(growing.shownText(), "In progress...");

    TranscriptMessage noUsage = message(TranscriptMessage::Role::assistant, "Hi");
    noUsage.stats = AIChatStats{0, 0, 0, 0, 0, std::nullopt};
    MessageBubble none(noUsage, &appearance);
    EXPECT_TRUE(none.statsLabel()->isHidden());
    EXPECT_EQ(none.statsLabel()->text(), "");

    TranscriptMessage tokensOnly = noUsage;
    tokensOnly.stats->totalOutputTokens = 9;
    MessageBubble some(tokensOnly, &appearance);
    EXPECT_EQ(some.statsLabel()->text(), "9 tokens");
    TranscriptMessage both = tokensOnly;
    both.stats->tokensPerSecond = 41.6;
    MessageBubble all(both, &appearance);
    EXPECT_EQ(all.statsLabel()->text(), "9 tokens · 42 tok/s");
}
