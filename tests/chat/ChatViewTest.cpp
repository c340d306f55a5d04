#include "chat/appearance/AppearanceSettings.h"
#include "chat/integrations/MCPIntegrationHost.h"
#include "chat/integrations/MCPIntegrationManager.h"
#include "chat/session/ChatViewModel.h"
#include "store/PromptArguments.h"
#include "store/PromptConfig.h"
#include "store/PromptQueryService.h"
#include "app/config/ServerConfigController.h"
#include "store/StoreContext.h"
#include "tests/chatclients/peer/ProviderPeer.h"
#include "tests/support/TestSupport.h"
#include "tests/views/ViewsTestSupport.h"
#include "views/app/AppMainWindow.h"
#include "views/app/BuiltinFeatures.h"
#include "views/chat/ChatInputField.h"
#include "views/chat/ChatView.h"
#include "views/chat/MCPToolCallBubble.h"
#include "views/chat/MCPIntegrationListWindow.h"
#include "views/chat/MCPIntegrationSettingsView.h"
#include "views/chat/InferenceFields.h"
#include "views/chat/LLMConnectionSettingsDialog.h"
#include "views/chat/MessageBubble.h"
#include "views/chat/ModelSettingsWindow.h"
#include "views/chat/PromptPickerSheet.h"
#include "tests/support/TestServices.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QComboBox>
#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMessageBox>
#include <QPushButton>
#include <QSettings>
#include <QTest>
#include <QTimer>
#include <QToolButton>

using TestSupport::waitUntil;

// The chat screen against a stand-in LM Studio: connect, ask with Return, watch the answer
// with its reasoning and tool call, search the transcript, save it and read it back.
TEST(ChatViewTest, ConnectAskSearchSaveAndImport)
{
    ChatView::startsServerOnAppear = false;
    ProviderPeer peer;
    auto *model = new ChatViewModel;
    model->connection().selectProvider(AIProviderID::lmStudio);
    model->connection().setBaseURL(peer.baseURL());
    model->connection().setSystemPrompt(QString());
    ChatView view(model, TestServices::application().server());
    model->setParent(&view);
    view.resize(900, 700);
    view.show();

    view.findChild<QPushButton *>(QStringLiteral("connect"))->click();
    ASSERT_TRUE(waitUntil([&] {
        return model->connection().state() == ChatViewModel::ConnectionState::connected && !model->status().isBusy();
    }));
    EXPECT_EQ(view.statusLine()->text(), "Connected — 2 model(s) available.");
    EXPECT_EQ(view.findChild<QComboBox *>(QStringLiteral("models"))->count(), 2);
    EXPECT_EQ(view.findChild<QPushButton *>(QStringLiteral("connect"))->text(), "Disconnect");
    EXPECT_EQ(view.findChild<QPushButton *>(QStringLiteral("loadModel"))->text(), "Unload model");

    // Return with blanks only goes to the field; Shift+Return makes a line; Return sends.
    view.input()->setFocus();
    QTest::keyClicks(view.input(), QStringLiteral("   "));
    QTest::keyClick(view.input(), Qt::Key_Return);
    EXPECT_TRUE(model->session().transcript().isEmpty());
    view.input()->clear();
    QTest::keyClicks(view.input(), QStringLiteral("Read"));
    QTest::keyClick(view.input(), Qt::Key_Return, Qt::ShiftModifier);
    QTest::keyClicks(view.input(), QStringLiteral("the file"));
    EXPECT_EQ(model->prompt(), "Read\nthe file");
    QTest::keyClick(view.input(), Qt::Key_Return);
    EXPECT_EQ(view.sendButton()->text(), "Stop");
    ASSERT_TRUE(waitUntil([&] { return !model->status().isBusy(); }, 20000));
    EXPECT_TRUE(view.input()->toPlainText().isEmpty());
    EXPECT_EQ(view.sendButton()->text(), "Send");

    const QList<MessageBubble *> bubbles = view.bubbles();
    ASSERT_EQ(bubbles.size(), 2);
    EXPECT_EQ(bubbles.at(0)->shownText(), "Read\nthe file");
    EXPECT_EQ(bubbles.at(1)->shownText(), "Hello, world.");
    EXPECT_EQ(bubbles.at(1)->reasoningText(), "Let me look.");
    ASSERT_EQ(bubbles.at(1)->toolCallBubbles().size(), 1);
    MCPToolCallBubble *call = bubbles.at(1)->toolCallBubbles().at(0);
    EXPECT_TRUE(call->headText().contains("read_file"));
    EXPECT_TRUE(call->headText().contains("✓"));
    EXPECT_EQ(call->bodyText(), "Parameters\n  path: \"/tmp/a\"\nResult\n  [text] hello");
    EXPECT_EQ(view.statusLine()->text(), "42 tok/s | 34 tokens | 0.25s to first token");

    // Search steps round through the two messages that hold "read" (the answer in its tool call).
    view.searchField()->setText(QStringLiteral("hello"));
    EXPECT_EQ(view.searchPosition()->text(), "1/1");
    view.searchField()->setText(QStringLiteral("READ"));
    EXPECT_EQ(view.searchPosition()->text(), "1/2");
    view.stepSearch(1);
    EXPECT_EQ(view.searchPosition()->text(), "2/2");
    view.stepSearch(1);
    EXPECT_EQ(view.searchPosition()->text(), "1/2");

    // Save, clear and read back; a file that is no chat is refused with an alert.
    const QString path = TestSupport::makeTempDir() + QStringLiteral("/chat.json");
    ASSERT_TRUE(view.exportTo(path));
    view.findChild<QPushButton *>(QStringLiteral("clearChat"))->click();
    EXPECT_TRUE(view.bubbles().isEmpty());
    ASSERT_TRUE(view.importFrom(path));
    ASSERT_EQ(view.bubbles().size(), 2);
    EXPECT_EQ(view.bubbles().at(1)->shownText(), "Hello, world.");
    EXPECT_EQ(view.bubbles().at(1)->toolCallBubbles().at(0)->bodyText(), "Result\n  [text] done");

    QFile bad(path);
    ASSERT_TRUE(bad.open(QIODevice::WriteOnly));
    bad.write("[1, 2]");
    bad.close();
    bool alerted = false;
    QTimer::singleShot(100, [&] {
        if (auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget())) {
            alerted = box->text() == "Import failed.";
            box->accept();
        }
    });
    EXPECT_FALSE(view.importFrom(path));
    EXPECT_TRUE(alerted);
    EXPECT_EQ(view.bubbles().size(), 2);
}

// The input field and the chips above it follow the model both ways; Tab walks the screen
// from the connection row down to the send button.
TEST(ChatViewTest, TheInputAndTheAttachmentsFollowTheModel)
{
    ChatView::startsServerOnAppear = false;
    ProviderPeer peer;
    auto *model = new ChatViewModel;
    model->connection().selectProvider(AIProviderID::lmStudio);
    model->connection().setBaseURL(peer.baseURL());
    model->connection().setSystemPrompt(QString());
    ChatView view(model, TestServices::application().server());
    model->setParent(&view);
    view.show();
    model->connection().connect();
    ASSERT_TRUE(waitUntil([&] {
        return model->connection().state() == ChatViewModel::ConnectionState::connected && !model->status().isBusy();
    }));

    EXPECT_FALSE(view.sendButton()->isEnabled());  // nothing to send yet
    QTest::keyClicks(view.input(), QStringLiteral("Hi"));
    EXPECT_EQ(model->prompt(), "Hi");
    EXPECT_TRUE(view.sendButton()->isEnabled());
    model->insertPickedText(QStringLiteral("from a picker"));
    EXPECT_EQ(view.input()->toPlainText(), "Hi\nfrom a picker");
    model->setPrompt(QString());
    EXPECT_TRUE(view.input()->toPlainText().isEmpty());
    EXPECT_FALSE(view.sendButton()->isEnabled());

    model->attachments().addText(QStringLiteral("int a;"));
    auto chip = [&]() -> QToolButton * {
        for (QToolButton *button : view.findChildren<QToolButton *>())
            if (button->text() == QStringLiteral("Editor Text  ✕"))
                return button;
        return nullptr;
    };
    ASSERT_NE(chip(), nullptr);
    EXPECT_EQ(chip()->toolTip(), "int a;");
    chip()->click();
    EXPECT_TRUE(waitUntil([&] { return model->attachments().items().isEmpty() && !chip(); }));

    const QStringList walk = {"provider", "connect", "models", "loadModel", "refreshModels", "connectionSettings",
                              "modelSettings", "chatSettings", "mcpIntegrations", "transcriptSearch", "server",
                              "exportChat", "importChat", "clearChat", "transcript", "startDownload", "checkStatus",
                              "addFiles", "insertPrompt", "insertResource", "chatInput", "send", "chatStatus"};
    EXPECT_EQ(ViewsTestSupport::focusOrder(&view, walk), walk);
}

// The AI Chat destination of the window is the chat screen.
TEST(ChatViewTest, TheDestinationShowsTheChat)
{
    ChatView::startsServerOnAppear = false;
    BuiltinFeatures::registerAll(TestServices::application());
    AppMainWindow *window = ViewsTestSupport::launchedWindow(MenuDestination::menuAIChat);
    EXPECT_NE(qobject_cast<ChatView *>(window->currentScreen()), nullptr);
    ViewsTestSupport::closeAllWindows();
}

// The prompt picker over the app's store: pick a prompt, fill its argument, insert.
TEST(ChatViewTest, ThePromptPickerFillsATemplate)
{
    StoreContext *context = TestServices::application().server()->context();
    auto *prompt = context->insert<PromptConfig>();
    prompt->setName(QStringLiteral("summarise"));
    prompt->setTemplateText(QStringLiteral("Summarise {{file}} briefly."));
    PromptArguments *argument = PromptQueryService::createArgument(context, prompt);
    argument->setName(QStringLiteral("file"));
    argument->setRequired(true);
    ASSERT_TRUE(context->save());

    QString inserted;
    PromptPickerSheet sheet(context, [&](const QString &text) { inserted = text; });
    sheet.searchField()->setText(QStringLiteral("summ"));
    ASSERT_EQ(sheet.list()->count(), 1);
    sheet.list()->setCurrentRow(0);
    EXPECT_TRUE(sheet.nextButton()->isEnabled());
    sheet.goOn();
    EXPECT_EQ(sheet.nextButton()->text(), "Insert");
    EXPECT_FALSE(sheet.nextButton()->isEnabled());  // the required argument is empty
    QList<QLineEdit *> fields = sheet.findChildren<QLineEdit *>();
    ASSERT_FALSE(fields.isEmpty());
    fields.last()->setText(QStringLiteral("/tmp/report.txt"));
    EXPECT_TRUE(sheet.nextButton()->isEnabled());
    sheet.goOn();
    EXPECT_EQ(inserted, "Summarise /tmp/report.txt briefly.");
}

namespace {

// Two store tools for the integration editor.
class TwoToolsHost : public MCPIntegrationHost {
public:
    std::optional<QList<QJsonObject>> toolConfigs() override
    {
        return QList<QJsonObject>{{{"name", "alpha"}, {"description", "A"}}, {{"name", "beta"}}};
    }
    QString serverLabel() override { return QStringLiteral("Kelvara Server"); }
    int serverPort() override { return 8888; }
    QString serverToken() override { return {}; }
    void resetToolRegistry() override { ++resets; }
    void registerTool(const QJsonObject &config) override { registered.append(config.value("name").toString()); }
    int resets = 0;
    QStringList registered;
};

}  // namespace

// The integration editor: the internal tools with a switch each and the allowed-tools line;
// saving stores the integration and registers its tools; the list toggles and removes.
TEST(ChatViewTest, TheIntegrationEditorChoosesInternalTools)
{
    TwoToolsHost host;
    QSettings defaults(TestSupport::makeTempDir() + QStringLiteral("/defaults.conf"), QSettings::IniFormat);
    MCPIntegrationManager manager(defaults, host);
    MCPIntegrationListWindow list(&manager);
    EXPECT_EQ(list.list()->item(0)->text(), "No MCP servers configured");

    MCPIntegrationSettingsView editor(&manager, std::nullopt);
    editor.kindField()->setCurrentIndex(editor.kindField()->findData(int(MCPIntegration::Kind::plugin)));
    ASSERT_EQ(editor.toolList()->count(), 2);
    // New tools start off, and the allowed-tools line says the same, not "all".
    EXPECT_EQ(editor.toolList()->item(0)->checkState(), Qt::Unchecked);
    EXPECT_EQ(editor.allowedToolsField()->text(), "");
    EXPECT_EQ(editor.allowedToolsField()->placeholderText(), "No tool is switched on");
    // A tick shows in the line; all ticked reads as the empty line.
    editor.toolList()->item(1)->setCheckState(Qt::Checked);
    EXPECT_EQ(editor.allowedToolsField()->text(), "beta");
    editor.toolList()->item(0)->setCheckState(Qt::Checked);
    EXPECT_EQ(editor.allowedToolsField()->text(), "");
    EXPECT_EQ(editor.allowedToolsField()->placeholderText(), "tool_a, tool_b  (empty = all tools)");
    // Typed names switch exactly those on, and the ticks follow.
    QTest::keyClicks(editor.allowedToolsField(), QStringLiteral(" alpha ,"));
    EXPECT_EQ(editor.toolList()->item(0)->checkState(), Qt::Checked);
    EXPECT_EQ(editor.toolList()->item(1)->checkState(), Qt::Unchecked);
    editor.labelField()->setText(QStringLiteral("Studio"));
    editor.save();
    ASSERT_EQ(manager.servers().size(), 1);
    EXPECT_EQ(manager.servers().at(0).label, "Studio");
    EXPECT_EQ(manager.servers().at(0).enabledTools().size(), 1);
    EXPECT_EQ(host.registered, QStringList({"alpha"}));

    // The list says the server is limited, and one click serves everything again.
    list.refresh();
    EXPECT_FALSE(list.limitNotice()->isHidden());
    EXPECT_EQ(list.limitNotice()->text(), "Serving 1 of 2 tools: limited by the AI Chat integration 'Studio'");
    host.registered.clear();
    list.serveAllButton()->click();
    EXPECT_EQ(host.registered, QStringList({"alpha", "beta"}));
    EXPECT_EQ(manager.limitNotice(), "");
    QApplication::processEvents();
    EXPECT_TRUE(list.limitNotice()->isHidden());
    EXPECT_TRUE(list.serveAllButton()->isHidden());
    // An emptied line switches all on.
    MCPIntegrationSettingsView again(&manager, manager.servers().at(0));
    again.toolList()->item(1)->setCheckState(Qt::Unchecked);
    EXPECT_EQ(again.allowedToolsField()->text(), "alpha");
    again.allowedToolsField()->selectAll();
    QTest::keyClick(again.allowedToolsField(), Qt::Key_Backspace);
    EXPECT_EQ(again.draft().enabledTools().size(), 2);

    list.refresh();
    auto named = [&](const QString &text) -> QPushButton * {
        for (QPushButton *button : list.list()->findChildren<QPushButton *>())
            if (button->text() == text && button->isVisibleTo(&list))
                return button;
        return nullptr;
    };
    ASSERT_NE(named("Disable"), nullptr);
    named("Disable")->click();
    EXPECT_FALSE(manager.servers().at(0).isEnabled);
    QApplication::processEvents();
    ASSERT_NE(named("Enable"), nullptr);
    named("Remove")->click();
    EXPECT_TRUE(manager.servers().isEmpty());
}

// The model settings clamp the temperature and keep what does not parse; the connection
// sheet stores another provider's drafts under its keys and leaves the live fields alone.
TEST(ChatViewTest, ModelAndConnectionSettings)
{
    ChatViewModel model;
    model.connection().selectProvider(AIProviderID::lmStudio);
    model.connection().setTemperature(0.5);
    model.connection().setMaxOutputTokens(512);
    ModelSettingsWindow window(&model.connection());
    window.fields()->temperatureField()->setText(QStringLiteral("1.7"));
    window.fields()->maxTokensField()->setText(QStringLiteral("lots"));
    window.save();
    EXPECT_EQ(model.connection().temperature(), 1.0);
    EXPECT_EQ(model.connection().maxOutputTokens(), 512);
    ModelSettingsWindow again(&model.connection());
    for (QToolButton *choice : again.findChildren<QToolButton *>())
        if (choice->text() == "2k")
            choice->click();
    EXPECT_EQ(again.fields()->maxTokensField()->text(), "2048");

    const QString liveURL = model.connection().baseURL();
    LLMConnectionSettingsDialog sheet(&model.connection());
    // The sheet says where its settings go, and that the key is kept readable there.
    const QString note = sheet.findChild<QLabel *>(QStringLiteral("storageNote"))->text();
    EXPECT_TRUE(note.startsWith("Settings are stored locally in UserDefaults.")) << note.toStdString();
    EXPECT_TRUE(note.contains("plain text, the API key included")) << note.toStdString();
    sheet.providerField()->setCurrentIndex(sheet.providerField()->findData(int(AIProviderID::anthropic)));
    EXPECT_EQ(sheet.urlField()->text(), AIProvider::defaultBaseURL(AIProviderID::anthropic));
    sheet.tokenField()->setText(QStringLiteral("  sk-ant  "));
    sheet.saveAndClose();
    EXPECT_EQ(model.connection().baseURL(), liveURL);
    EXPECT_EQ(model.connection().settings(AIProviderID::anthropic).token, "sk-ant");
    EXPECT_NE(model.connection().token(), "sk-ant");
}

// A long answer can be folded to its first lines and opened again; a short one cannot.
TEST(ChatViewTest, ALongAnswerFoldsAndOpens)
{
    AppearanceSettings appearance;
    TranscriptMessage answer;
    answer.role = TranscriptMessage::Role::assistant;
    answer.isComplete = true;
    for (int line = 0; line < 200; ++line)
        answer.content += QStringLiteral("Line %1 of a long answer.\n\n").arg(line);
    MessageBubble bubble(answer, &appearance);
    bubble.resize(600, 400);
    bubble.show();
    QApplication::processEvents();
    ASSERT_TRUE(bubble.collapseButton()->isVisibleTo(&bubble));
    const int full = bubble.findChild<QWidget *>(QStringLiteral("messageBody"))->height();
    bubble.collapseButton()->click();
    EXPECT_TRUE(bubble.isCollapsed());
    EXPECT_EQ(bubble.collapseButton()->text(), "Expand");
    EXPECT_LT(bubble.findChild<QWidget *>(QStringLiteral("messageBody"))->height(), full);
    bubble.collapseButton()->click();
    EXPECT_EQ(bubble.findChild<QWidget *>(QStringLiteral("messageBody"))->height(), full);

    TranscriptMessage brief = answer;
    brief.content = QStringLiteral("Short.");
    MessageBubble small(brief, &appearance);
    small.resize(600, 200);
    small.show();
    QApplication::processEvents();
    EXPECT_FALSE(small.collapseButton()->isVisibleTo(&small));
}
