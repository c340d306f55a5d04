#include "base/UserDefaults.h"
#include "diagnostics/LogController.h"
#include "store/ConfigurationController.h"
#include "store/PromptConfig.h"
#include "store/PromptQueryService.h"
#include "store/ServerAccessSettings.h"
#include "store/StoreContext.h"
#include "store/ToolsConfig.h"
#include "store/ToolsQueryService.h"
#include "store/ServerConfig.h"
#include "app/config/ServerConfigController.h"
#include "chat/integrations/MCPIntegrationManager.h"
#include "tests/support/TestSupport.h"
#include "tests/views/ViewsTestSupport.h"
#include "views/app/AppMainWindow.h"
#include "views/app/BuiltinFeatures.h"
#include "views/log/LogListModel.h"
#include "views/log/LogPaneView.h"
#include "views/server/ServerConfigView.h"
#include "tests/support/TestServices.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QCheckBox>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QProcess>
#include <QStandardPaths>
#include <QClipboard>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QScrollArea>
#include <QTest>

using namespace ViewsTestSupport;

namespace {

class ServerScreenTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        UserDefaults::standard()->setValue(QStringLiteral("serverView.VSplitViewPos"), 200);
        BuiltinFeatures::registerAll(TestServices::application());
        window = launchedWindow(MenuDestination::menuServerConfig);
        window->resize(1000, 700);
        view = qobject_cast<ServerConfigView *>(window->currentScreen());
        ASSERT_NE(view, nullptr);
        controller = view->controller();
        ASSERT_TRUE(TestSupport::waitUntil([&] { return controller->serverConfig() != nullptr; }));
    }
    void TearDown() override
    {
        if (controller->isServerRunning()) {
            view->stopButton()->click();
            TestSupport::waitUntil([&] { return !controller->isServerRunning(); });
        }
        closeAllWindows();
    }
    void closeAlert(const QString &expectedText)
    {
        ASSERT_TRUE(TestSupport::waitUntil([] { return openMessageBox() != nullptr; }));
        EXPECT_EQ(openMessageBox()->informativeText(), expectedText);
        openMessageBox()->accept();
        TestSupport::waitUntil([] { return openMessageBox() == nullptr; });
    }
    void typePort(const QString &text)
    {
        view->portField()->setText(text);
        emit view->portField()->editingFinished();
    }

    AppMainWindow *window = nullptr;
    ServerConfigView *view = nullptr;
    ServerConfigController *controller = nullptr;
};

TEST_F(ServerScreenTest, StartsAndStopsFromTheScreenWithItsStatusWords)
{
    ASSERT_TRUE(TestSupport::waitUntil([&] { return view->statusLabel()->text() == "MCP Server stopped"; }));
    EXPECT_EQ(view->startButton()->text(), QStringLiteral("Start server ") + QKeySequence(Qt::CTRL | Qt::Key_R).toString(QKeySequence::NativeText));
    EXPECT_EQ(view->portField()->text(), "8888");
    EXPECT_EQ(view->addressLabel()->text(), "http://127.0.0.1:8888");
    // The buttons while edits are pending are checked with the bind toggle below.
    EXPECT_FALSE(view->stopButton()->isEnabled());

    const int port = TestSupport::freeLowPort();
    ASSERT_GT(port, 0);
    typePort(QString::number(port));
    view->saveButton()->click();
    ASSERT_TRUE(TestSupport::waitUntil([&] { return view->startButton()->isEnabled(); }));

    controller->logController()->log(QStringLiteral("before the start"), 0, MCPLogMessageType::Info);
    QApplication::setActiveWindow(window);
    ASSERT_TRUE(QTest::qWaitForWindowActive(window));
    QTest::keyClick(window, Qt::Key_R, Qt::ControlModifier);  // the button's shortcut
    ASSERT_TRUE(TestSupport::waitUntil([&] { return view->statusLabel()->text() == "MCP Server running"; }, 10000));
    // Every screen's status bar says so, with the port.
    EXPECT_TRUE(TestSupport::waitUntil(
        [&] { return window->serverStateLabel()->text() == QStringLiteral("MCP Server running on port %1").arg(port); }))
        << window->serverStateLabel()->text().toStdString();
    EXPECT_TRUE(view->stopButton()->isEnabled());
    EXPECT_FALSE(view->startButton()->isEnabled());
    EXPECT_EQ(view->addressLabel()->text(), QStringLiteral("http://127.0.0.1:%1").arg(port));
    // The start cleared the log; the pane shows this start's lines only.
    LogListModel *lines = view->logPane()->model();
    EXPECT_TRUE(TestSupport::waitUntil([&] {
        bool old = false;
        for (int row = 0; row < lines->rowCount(); ++row)
            old = old || lines->entryAt(row).message == "before the start";
        return lines->rowCount() > 0 && !old;
    }));

    view->copyAddress();
    EXPECT_EQ(QApplication::clipboard()->text(), QStringLiteral("http://127.0.0.1:%1").arg(port));
    // Copy says it was done, then goes back to its word.
    auto *copy = view->findChild<QPushButton *>(QStringLiteral("copyAddressButton"));
    EXPECT_EQ(copy->text(), "Copied");
    EXPECT_TRUE(TestSupport::waitUntil([&] { return copy->text() == "Copy to clipboard"; }, 3000));

    view->stopButton()->click();
    ASSERT_TRUE(TestSupport::waitUntil([&] { return view->statusLabel()->text() == "MCP Server stopped"; }));
    EXPECT_EQ(window->serverStateLabel()->text(), "MCP Server stopped");
    // Stopped reads muted, in a colour the window's background does not swallow.
    EXPECT_EQ(window->serverStateLabel()->foregroundRole(), QPalette::PlaceholderText);
    EXPECT_TRUE(view->startButton()->isEnabled());
}

TEST_F(ServerScreenTest, RefusedPortAndTheBindToggleAndRevert)
{
    TestSupport::spin(50);  // the first sync and the notice of its new row
    if (controller->hasUnsavedChanges())
        view->saveButton()->click();
    ASSERT_TRUE(TestSupport::waitUntil([&] { return !controller->hasUnsavedChanges(); }));
    const QString stored = QString::number(controller->serverConfig()->port());
    typePort(QStringLiteral("70000"));
    closeAlert(QStringLiteral("Invalid port number."));
    EXPECT_EQ(view->portField()->text(), stored);
    EXPECT_FALSE(controller->hasUnsavedChanges());

    view->listenAllToggle()->click();
    ASSERT_TRUE(TestSupport::waitUntil([&] { return view->revertButton()->isEnabled(); }));
    // Not the address the server listens on (0.0.0.0 answers nobody) but one of this machine.
    EXPECT_EQ(view->addressLabel()->text(), "http://" + ServerConfigView::reachableHost() + ":" + stored);
    EXPECT_FALSE(view->addressLabel()->text().contains(QStringLiteral("0.0.0.0")));
    EXPECT_FALSE(view->startButton()->isEnabled());
    // A disabled Start says why.
    EXPECT_TRUE(view->startButton()->toolTip().startsWith("Save or revert your changes first"));
    view->revertButton()->click();
    ASSERT_TRUE(TestSupport::waitUntil([&] { return !view->revertButton()->isEnabled(); }));
    EXPECT_FALSE(view->listenAllToggle()->isChecked());
    EXPECT_FALSE(view->startButton()->toolTip().startsWith("Save or revert"));
    EXPECT_EQ(view->addressLabel()->text(), "http://127.0.0.1:" + stored);

    // Field edits reach the row and are dropped again by Revert.
    auto *name = view->findChild<QLineEdit *>(QStringLiteral("serverName"));
    name->setText(QString());
    QTest::keyClicks(name, QStringLiteral("Renamed"));
    ASSERT_TRUE(TestSupport::waitUntil([&] { return view->saveButton()->isEnabled(); }));
    view->revertButton()->click();
    ASSERT_TRUE(TestSupport::waitUntil([&] { return name->text() != "Renamed"; }));
}

TEST_F(ServerScreenTest, LogPaneKeepsItsStoredHeight)
{
    ASSERT_TRUE(TestSupport::waitUntil([&] { return view->logPane()->height() > 0; }));
    EXPECT_NEAR(view->logPane()->height(), 200, 2);
    // The whole pane lies inside the window.
    const QPoint bottom = view->logPane()->mapTo(window, QPoint(0, view->logPane()->height()));
    EXPECT_LE(bottom.y(), window->height()) << window->height() << " " << view->height() << " " << window->centralWidget()->height();
    EXPECT_EQ(view->logPane()->objectName(), "logView");
}

}  // namespace

// Tab walks the server's fields, who may call, the commands and then the log.
TEST_F(ServerScreenTest, TabWalksFieldsAccessCommandsAndLog)
{
    const QStringList walk = {"serverName", "serverTitle", "serverVersion", "port", "instructions",
                              "listenAllInterfaces", "serverStatus", "clientAddress", "copyAddressButton",
                              "copyClientConfigurationButton", "accessToken", "copyTokenButton", "renewTokenButton",
                              "tokenHint", "requireTokenToggle", "tokenOnLoopbackToggle", "allowedOriginsField",
                              "startServerButton", "stopServerButton", "saveChangesButton", "revertChangesButton",
                              "logView", "serverSplit"};
    EXPECT_EQ(focusOrder(view, walk), walk);
}

TEST_F(ServerScreenTest, TheTokenTheRequirementAndTheAllowedOrigins)
{
    // The token is there from the first look, copied as shown, and renewed on request.
    const QString token = view->tokenLabel()->text();
    EXPECT_EQ(token.size(), 43);
    EXPECT_EQ(token, controller->accessToken());
    view->copyTokenButton()->click();
    EXPECT_EQ(QApplication::clipboard()->text(), token);
    view->renewTokenButton()->click();
    EXPECT_NE(view->tokenLabel()->text(), token);
    EXPECT_EQ(view->tokenLabel()->text(), controller->accessToken());

    // Loopback asks for the token too, since other users of this computer reach 127.0.0.1;
    // turning that off is allowed, warned, and shown.
    const QString headerHint = QStringLiteral("Clients send it as the header \"Authorization: Bearer <token>\".");
    EXPECT_TRUE(view->tokenOnLoopbackToggle()->isChecked());
    EXPECT_TRUE(controller->tokenRequired());
    EXPECT_EQ(view->tokenHint()->text(), headerHint);
    view->tokenOnLoopbackToggle()->click();
    closeAlert(QStringLiteral("Without a token, every other user and program on this computer can call every tool, "
                              "reading and writing your files as you."));
    EXPECT_FALSE(controller->tokenRequired());
    EXPECT_EQ(view->tokenHint()->text(), "Without a token, every other user and program on this computer can call every "
                                         "tool, reading and writing your files as you.");
    EXPECT_EQ(UserDefaults::standard()->value(ServerAccessSettings::tokenOnLoopbackKey).toBool(), false);
    view->tokenOnLoopbackToggle()->click();
    EXPECT_TRUE(controller->tokenRequired());
    // What a client on this computer is configured with carries the token it must send, as
    // the document clients read (kelvara mcp-config --http prints the same).
    view->copyClientConfigurationButton()->click();
    const QJsonObject document = QJsonDocument::fromJson(QApplication::clipboard()->text().toUtf8()).object();
    EXPECT_EQ(document.keys(), QStringList{"mcpServers"});
    const QJsonObject configuration = document.value("mcpServers").toObject().value("kelvara").toObject();
    EXPECT_EQ(configuration.value("type").toString(), "http");
    EXPECT_EQ(configuration.value("url").toString(), QStringLiteral("http://127.0.0.1:%1/mcp").arg(controller->listeningPort()));
    EXPECT_EQ(configuration.value("headers").toObject().value("Authorization").toString(),
              QStringLiteral("Bearer ") + controller->accessToken());

    // All interfaces ask for it unless the user turns that off, warned.
    view->listenAllToggle()->click();
    // Clients elsewhere are given the address they reach, the one the screen shows.
    view->copyClientConfigurationButton()->click();
    EXPECT_EQ(QJsonDocument::fromJson(QApplication::clipboard()->text().toUtf8())["mcpServers"]["kelvara"]["url"].toString(),
              view->addressLabel()->text() + "/mcp");
    EXPECT_EQ(view->tokenHint()->text(), "Clients send it as the header \"Authorization: Bearer <token>\".");
    EXPECT_TRUE(view->requireTokenToggle()->isChecked());
    view->requireTokenToggle()->click();
    closeAlert(QStringLiteral("Without a token, anyone who can reach this computer on the network can call every tool."));
    EXPECT_FALSE(controller->tokenRequired());
    EXPECT_EQ(view->tokenHint()->text(), "Without a token, anyone who can reach this computer on the network can call every tool.");
    view->requireTokenToggle()->click();
    EXPECT_TRUE(controller->tokenRequired());
    view->revertButton()->click();

    // Origins: a list is stored cleaned up; an entry that is no origin is refused by name.
    view->allowedOriginsField()->setText(QStringLiteral("https://app.example:3000/ , http://tool.local"));
    emit view->allowedOriginsField()->editingFinished();
    EXPECT_EQ(controller->allowedOrigins(), (QStringList{"https://app.example:3000", "http://tool.local"}));
    view->allowedOriginsField()->setText(QStringLiteral("https://ok.example, app.example/path"));
    emit view->allowedOriginsField()->editingFinished();
    closeAlert(QStringLiteral("app.example/path is not an origin: write it as a browser does, like https://app.example:3000"));
    EXPECT_EQ(controller->allowedOrigins(), (QStringList{"https://app.example:3000", "http://tool.local"}));
    EXPECT_EQ(view->allowedOriginsField()->text(), "https://app.example:3000, http://tool.local");
}

// At the size a first start opens with, the commands are in sight without scrolling, and
// the log fills what the form leaves.
TEST_F(ServerScreenTest, TheCommandsStayInSightAtTheDefaultSize)
{
    UserDefaults::standard()->remove(QStringLiteral("serverView.VSplitViewPos"));
    closeAllWindows();
    window = launchedWindow(MenuDestination::menuServerConfig);
    window->resize(1024, 720);
    view = qobject_cast<ServerConfigView *>(window->currentScreen());
    ASSERT_NE(view, nullptr);
    controller = view->controller();
    ASSERT_TRUE(TestSupport::waitUntil([&] { return view->logPane()->height() > 0; }));
    for (QPushButton *button : {view->startButton(), view->stopButton(), view->saveButton(), view->revertButton()}) {
        ASSERT_TRUE(button->isVisible()) << button->objectName().toStdString();
        const QRect onWindow(button->mapTo(window, QPoint(0, 0)), button->size());
        EXPECT_TRUE(window->rect().contains(onWindow)) << button->objectName().toStdString();
        // No scroll area between the button and the screen: it is never scrolled away.
        for (QWidget *w = button->parentWidget(); w && w != view; w = w->parentWidget())
            EXPECT_EQ(qobject_cast<QScrollArea *>(w), nullptr) << button->objectName().toStdString();
        // Nothing covers it: the widget at its centre is the button itself.
        EXPECT_EQ(window->childAt(button->mapTo(window, button->rect().center())), button)
            << button->objectName().toStdString();
    }
}

namespace {

// What the MCP SDK's own client gets from the server for these steps.
QJsonArray askWithTheSdkClient(int port, const QString &token, const QString &steps)
{
    const QString node = QStandardPaths::findExecutable(QStringLiteral("node"));
    const QString client = QStringLiteral(KELVARA_SOURCE_DIR "/tests/interop/mcp-client.mjs");
    EXPECT_FALSE(node.isEmpty()) << "node is needed (scripts/setup installs it)";
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("MCP_BEARER_TOKEN"), token);
    process.setProcessEnvironment(environment);
    process.start(node, {client, QStringLiteral("http://127.0.0.1:%1/mcp").arg(port), steps});
    EXPECT_TRUE(process.waitForStarted());
    // The server answers from this thread's event loop: wait without blocking it.
    EXPECT_TRUE(TestSupport::waitUntil([&] { return process.state() == QProcess::NotRunning; }, 60000));
    const QByteArray output = process.readAllStandardOutput();
    return QJsonDocument::fromJson(output).object().value(QStringLiteral("results")).toArray();
}

}  // namespace

// The running server is compared with what is saved: a saved new tool and an import show
// the notice on the screen and in the status bar, Start says why it is disabled, and
// "Apply and restart" serves the new tool, with the row's name in serverInfo.
TEST_F(ServerScreenTest, ASavedChangeShowsTheOutdatedServerUntilApplyAndRestart)
{
    StoreContext *context = controller->context();
    const int port = TestSupport::freeLowPort();
    ASSERT_GT(port, 0);
    typePort(QString::number(port));
    controller->serverConfig()->setServerName(QStringLiteral("Notes Server"));
    controller->serverConfig()->setServerVersion(QStringLiteral("2.4.0"));
    ASSERT_TRUE(controller->save());
    EXPECT_TRUE(controller->startDisabledReason().isEmpty());
    controller->start();
    ASSERT_TRUE(TestSupport::waitUntil([&] { return controller->isServerRunning(); }, 15000));
    EXPECT_FALSE(view->outdatedBanner()->isVisible());
    EXPECT_FALSE(window->outdatedServerNotice()->isVisible());
    EXPECT_FALSE(view->startButton()->toolTip().isEmpty());

    // A script tool saved while the server runs.
    const QString scripts = TestSupport::makeTempDir(QStringLiteral("scripts"));
    QFile script(scripts + QStringLiteral("/late.js"));
    ASSERT_TRUE(script.open(QIODevice::WriteOnly));
    script.write("function toolEntry(sid, handlerName, jsonParams) {\n"
                 "  return Tool.dispatch({ late: function () { return { text: 'here now' }; } }, sid, handlerName, jsonParams);\n"
                 "}\n");
    script.close();
    ToolsConfig *tool = ToolsQueryService::createTool(context, 0);
    tool->setName(QStringLiteral("late_tool"));
    tool->setToolType(QStringLiteral("ScriptTool"));
    tool->setMethodName(QStringLiteral("toolEntry"));
    tool->setScriptFileName(script.fileName());
    tool->setHandlerName(QStringLiteral("late"));
    ASSERT_TRUE(context->save());
    ASSERT_TRUE(TestSupport::waitUntil([&] { return view->outdatedBanner()->isVisible(); }));
    EXPECT_TRUE(window->outdatedServerNotice()->isVisible());
    EXPECT_EQ(view->applyAndRestartButton()->text(), "Apply and restart");
    EXPECT_EQ(view->startButton()->toolTip(), controller->startDisabledReason());
    EXPECT_TRUE(view->startButton()->toolTip().contains("Apply and restart"));

    const QString call = QStringLiteral(R"([{"op":"initialize"},{"op":"callTool","name":"late_tool","arguments":{}}])");
    QJsonArray results = askWithTheSdkClient(port, controller->accessToken(), call);
    ASSERT_EQ(results.size(), 2);
    EXPECT_EQ(results.at(0).toObject().value("result").toObject().value("serverInfo").toObject().value("name"), "Notes Server");
    EXPECT_EQ(results.at(0).toObject().value("result").toObject().value("serverInfo").toObject().value("version"), "2.4.0");
    EXPECT_FALSE(QJsonDocument(results.at(1).toObject()).toJson().contains("here now"));

    view->applyAndRestartButton()->click();
    ASSERT_TRUE(TestSupport::waitUntil(
        [&] { return controller->isServerRunning() && !view->outdatedBanner()->isVisible(); }, 15000));
    EXPECT_FALSE(window->outdatedServerNotice()->isVisible());
    results = askWithTheSdkClient(port, controller->accessToken(), call);
    ASSERT_EQ(results.size(), 2);
    EXPECT_TRUE(QJsonDocument(results.at(1).toObject()).toJson().contains("here now"))
        << QJsonDocument(results).toJson().toStdString();

    // An import is a save too; undoing a change by hand brings the notice back down.
    const QString bundle = TestSupport::makeTempDir(QStringLiteral("bundle"));
    QDir().mkpath(bundle + QStringLiteral("/Prompts"));
    QFile prompt(bundle + QStringLiteral("/Prompts/later.json"));
    ASSERT_TRUE(prompt.open(QIODevice::WriteOnly));
    prompt.write(R"({"arguments":[],"description":"Imported later","name":"later","template":"Later"})");
    prompt.close();
    ASSERT_TRUE(TestServices::application().configuration()->importConfiguration(bundle));
    ASSERT_TRUE(TestSupport::waitUntil([&] { return view->outdatedBanner()->isVisible(); }));
    EXPECT_TRUE(controller->importHint().contains("Apply and restart"));
    for (PromptConfig *imported : PromptQueryService::fetchPrompts(context).valueOr({}))
        if (imported->name() == QStringLiteral("later"))
            context->deleteObject(imported);
    ASSERT_TRUE(context->save());
    EXPECT_TRUE(TestSupport::waitUntil([&] { return !view->outdatedBanner()->isVisible(); }));

    context->deleteObject(tool);
    controller->serverConfig()->setServerName(QString());
    controller->serverConfig()->setServerVersion(QString());
    ASSERT_TRUE(context->save());
    EXPECT_TRUE(TestSupport::waitUntil([&] { return view->outdatedBanner()->isVisible(); }));
    // Stopped, nothing is outdated, and Start says nothing against itself.
    view->stopButton()->click();
    ASSERT_TRUE(TestSupport::waitUntil([&] { return !controller->isServerRunning(); }));
    EXPECT_FALSE(view->outdatedBanner()->isVisible());
    EXPECT_TRUE(TestSupport::waitUntil([&] { return view->startButton()->isEnabled(); }));
    EXPECT_TRUE(controller->importHint().contains("started"));
}

// The AI Chat's integration switches on one tool of the store: the screen says so under the
// status, live, and "Serve All Tools" serves all again and takes the notice away.
TEST_F(ServerScreenTest, AnIntegrationsLimitIsShownUntilServeAllTools)
{
    StoreContext *context = controller->context();
    for (const QString &name : {QStringLiteral("limit_one"), QStringLiteral("limit_two")})
        ToolsQueryService::createTool(context, 0)->setName(name);
    ASSERT_TRUE(context->save());
    EXPECT_TRUE(view->toolLimitNotice()->isHidden());

    MCPIntegrationManager *integrations = TestServices::application().integrations();
    MCPIntegration chat;
    chat.label = QStringLiteral("kelvara");
    chat.kind = MCPIntegration::Kind::plugin;
    chat.isEnabled = true;
    integrations->add(chat);
    MCPIntegration edited = integrations->servers().last();
    edited.setToolEnabled(QStringLiteral("limit_two"), true);
    integrations->update(edited);
    EXPECT_FALSE(view->toolLimitNotice()->isHidden());
    EXPECT_TRUE(view->toolLimitLabel()->text().startsWith("Serving 1 of ")) << view->toolLimitLabel()->text().toStdString();
    EXPECT_TRUE(view->toolLimitLabel()->text().endsWith("tools: limited by the AI Chat integration 'kelvara'"));

    view->serveAllToolsButton()->click();
    EXPECT_TRUE(view->toolLimitNotice()->isHidden());
    EXPECT_EQ(controller->toolLimitNotice(), QString());

    integrations->remove(edited.id);
    const auto tools = ToolsQueryService::fetchTools(context);
    ASSERT_TRUE(tools.ok());
    for (ToolsConfig *tool : *tools)
        if (tool->name().value_or(QString()).startsWith(QStringLiteral("limit_")))
            context->deleteObject(tool);
    ASSERT_TRUE(context->save());
}
