#include "base/DesktopNotifier.h"
#include "store/ServerConfig.h"
#include "app/config/ServerConfigController.h"
#include "chat/integrations/MCPIntegrationManager.h"
#include "chat/integrations/StoreIntegrationHost.h"
#include "tests/config/ConfigTestFixture.h"

#include <QSettings>
#include <QThreadPool>

using namespace Qt::StringLiterals;

using Param = ConfigTestParam;

namespace {

class RecordingNotifier : public DesktopNotifier {
public:
    void notify(const QString &title, const QString &body, const QString &) override { shown.append({title, body}); }
    QList<QPair<QString, QString>> shown;
};

}  // namespace

class ServerConfigControllerTest : public ConfigTestFixture {
protected:
    void SetUp() override
    {
        ConfigTestFixture::SetUp();
        server = std::make_unique<ServerConfigController>(context, controller.get(), router.get());
        server->setNotifier(&notifier);
        ASSERT_TRUE(TestSupport::waitUntil([&] { return server->serverConfig() != nullptr; }));
        // A fresh store has its row pending: save it, as the screen's user would.
        ASSERT_TRUE(server->save());
        statuses.clear();
        QObject::connect(server.get(), &ServerConfigController::serverStatusMessageChanged, server.get(),
                         [this] { statuses.append(server->serverStatusMessage()); });
    }

    void TearDown() override
    {
        if (bridge.isRunning())
            bridge.stop();
        QThreadPool::globalInstance()->waitForDone();
        server.reset();
        ConfigTestFixture::TearDown();
    }

    void usePort(int port)
    {
        server->setPort(QString::number(port));
        ASSERT_EQ(server->serverConfig()->port(), port);
    }

    // Starts and waits until the pipeline has ended one way or the other.
    void startAndWait()
    {
        server->start();
        ASSERT_TRUE(TestSupport::waitUntil([&] {
            const bool failed = server->serverStatusMessage().startsWith(ServerConfigController::statusFailedPrefix);
            return !server->isStarting() && (server->isServerRunning() || failed);
        }));
        TestSupport::spin(20);
    }

    RecordingNotifier notifier;
    std::unique_ptr<ServerConfigController> server;
    QStringList statuses;
};

TEST_F(ServerConfigControllerTest, PortTextsOutsideASigned16BitIntegerAreRefused)
{
    const qint16 stored = server->serverConfig()->port();
    EXPECT_EQ(stored, 8888);
    for (const char *text : {"32768", "70000", "", "80a", " 80", "-32769", "0x50"}) {
        server->setShouldShowAlert(false);
        server->setPort(QString::fromLatin1(text));
        ASSERT_TRUE(TestSupport::waitUntil([&] { return server->shouldShowAlert(); })) << text;
        EXPECT_EQ(server->alertTitle(), u"Error"_s);
        EXPECT_EQ(server->alertMessage(), u"Invalid port number."_s) << text;
        EXPECT_EQ(server->serverConfig()->port(), stored) << text;
    }
    server->setShouldShowAlert(false);

    // The same value marks nothing unsaved.
    server->setPort(u"8888"_s);
    TestSupport::spin(20);
    EXPECT_FALSE(server->hasUnsavedChanges());

    server->setPort(u"32767"_s);
    EXPECT_EQ(server->serverConfig()->port(), 32767);
    EXPECT_TRUE(server->hasUnsavedChanges());
    EXPECT_FALSE(server->canStart());
    EXPECT_TRUE(server->canSave());
    server->setPort(u"-5"_s);
    EXPECT_EQ(server->serverConfig()->port(), -5);
    server->setPort(u"+80"_s);
    EXPECT_EQ(server->serverConfig()->port(), 80);
    TestSupport::spin(20);
    EXPECT_FALSE(server->shouldShowAlert());
}

TEST_F(ServerConfigControllerTest, StartExportsServesAndStopStops)
{
    addTool(u"reader"_s);
    save();
    const int port = TestSupport::freeLowPort();
    ASSERT_NE(port, 0);
    usePort(port);
    // Unsaved changes are saved first.
    startAndWait();
    EXPECT_TRUE(server->isServerRunning());
    EXPECT_TRUE(bridge.isRunning());
    EXPECT_FALSE(context->hasChanges());
    EXPECT_EQ(statuses, (QStringList{ServerConfigController::statusStarting, ServerConfigController::statusExporting,
                                     ServerConfigController::statusCreating, ServerConfigController::statusStartingServer,
                                     ServerConfigController::statusRunning}));
    EXPECT_EQ(bridge.listTools(), QStringList{u"reader"_s});
    EXPECT_TRUE(QFileInfo::exists(bundleFile(u"Tools"_s, u"reader.json"_s)));
    ASSERT_EQ(notifier.shown.size(), 1);
    EXPECT_EQ(notifier.shown.first(), qMakePair(u"Kelvara"_s, ServerConfigController::statusRunning));

    // A second start while running does nothing.
    statuses.clear();
    server->start();
    TestSupport::spin(30);
    EXPECT_TRUE(statuses.isEmpty());

    server->stop();
    EXPECT_EQ(server->serverStatusMessage(), ServerConfigController::statusStopping);
    ASSERT_TRUE(TestSupport::waitUntil([&] { return !server->isServerRunning(); }));
    EXPECT_EQ(server->serverStatusMessage(), ServerConfigController::statusStopped);
    QThreadPool::globalInstance()->waitForDone();
    EXPECT_FALSE(bridge.isRunning());
    ASSERT_EQ(notifier.shown.size(), 2);
    EXPECT_EQ(notifier.shown.last().second, ServerConfigController::statusStopped);
}

TEST_F(ServerConfigControllerTest, OneFailingToolExportKeepsTheServerFromStarting)
{
    addTool(u"broken"_s, {{Param{QString()}}});
    addTool(u"fine"_s);
    addPrompt(u"hello"_s);
    save();
    usePort(TestSupport::freeLowPort());
    ASSERT_TRUE(server->save());

    startAndWait();
    const QString expected = QStringLiteral(
        "Failed to start MCP Server: The operation couldn\u2019t be completed. (MCPError -32605: Unable to save server "
        "configuration)");
    EXPECT_EQ(server->serverStatusMessage(), expected);
    EXPECT_FALSE(server->isServerRunning());
    EXPECT_FALSE(bridge.isRunning());
    EXPECT_FALSE(server->isStarting());
    ASSERT_TRUE(TestSupport::waitUntil([&] { return server->shouldShowAlert(); }));
    EXPECT_EQ(server->alertMessage(), expected);
    // The other records were written and registered all the same.
    EXPECT_EQ(bridge.listTools(), QStringList{u"fine"_s});
    EXPECT_EQ(bridge.listPrompts(), QStringList{u"hello"_s});
    EXPECT_TRUE(notifier.shown.isEmpty());

    // The failure survives a sync; a later start replaces it.
    server->sync();
    EXPECT_EQ(server->serverStatusMessage(), expected);
    server->start();
    EXPECT_EQ(server->serverStatusMessage(), ServerConfigController::statusStarting);
    startAndWait();
}

// A separate fixture: these cases look at the very first sync, before any save.
class ServerConfigFirstSyncTest : public ConfigTestFixture {
protected:
    void TearDown() override
    {
        server.reset();
        ConfigTestFixture::TearDown();
    }
    std::unique_ptr<ServerConfigController> server;
};

TEST_F(ServerConfigFirstSyncTest, AFreshStoresDefaultRowIsWrittenSoStartIsOffered)
{
    server = std::make_unique<ServerConfigController>(context, controller.get(), router.get());
    ASSERT_TRUE(TestSupport::waitUntil([&] { return server->serverConfig() != nullptr; }));
    TestSupport::spin(20);
    EXPECT_FALSE(context->hasChanges());
    EXPECT_FALSE(server->hasUnsavedChanges());
    EXPECT_TRUE(server->canStart());
    EXPECT_EQ(server->serverConfig()->port(), 8888);
    EXPECT_FALSE(server->serverConfig()->isInserted());
}

TEST_F(ServerConfigFirstSyncTest, SomebodyElsesPendingEditsAreNotSavedByTheFirstSync)
{
    auto *resource = context->insert<ResourceConfig>();
    resource->setName(u"pending"_s);
    server = std::make_unique<ServerConfigController>(context, controller.get(), router.get());
    ASSERT_TRUE(TestSupport::waitUntil([&] { return server->serverConfig() != nullptr; }));
    TestSupport::spin(20);
    EXPECT_TRUE(resource->isInserted());
    EXPECT_TRUE(server->serverConfig()->isInserted());
    EXPECT_TRUE(server->hasUnsavedChanges());
    EXPECT_FALSE(server->canStart());
}

// The AI Chat's integrations over the same store and router as the server.
class ServerToolLimitTest : public ConfigTestFixture {
protected:
    void SetUp() override
    {
        ConfigTestFixture::SetUp();
        for (const QString &name : {u"alpha"_s, u"beta"_s, u"gamma"_s})
            addTool(name);
        save();
        defaults = std::make_unique<QSettings>(root + u"/defaults.conf"_s, QSettings::IniFormat);
        host = std::make_unique<StoreIntegrationHost>(context, router.get());
        integrations = std::make_unique<MCPIntegrationManager>(*defaults, *host);
        server = std::make_unique<ServerConfigController>(context, controller.get(), router.get(), integrations.get());
        ASSERT_TRUE(TestSupport::waitUntil([&] { return server->serverConfig() != nullptr; }));
        ASSERT_TRUE(server->save());
    }

    void TearDown() override
    {
        if (bridge.isRunning())
            bridge.stop();
        QThreadPool::globalInstance()->waitForDone();
        server.reset();
        integrations.reset();
        ConfigTestFixture::TearDown();
    }

    static QStringList sorted(QStringList names)
    {
        names.sort();
        return names;
    }

    std::unique_ptr<QSettings> defaults;
    std::unique_ptr<StoreIntegrationHost> host;
    std::unique_ptr<MCPIntegrationManager> integrations;
    std::unique_ptr<ServerConfigController> server;
};

// An integration that switches on one tool of three: the server screen says so as soon as it
// is saved, and again when the store gains a tool; a start serves only that tool; "Serve All
// Tools" serves all again and the notice goes.
TEST_F(ServerToolLimitTest, ALimitingIntegrationIsToldAppliedToTheStartAndLiftedByServeAll)
{
    EXPECT_EQ(server->toolLimitNotice(), u""_s);
    int told = 0;
    QObject::connect(server.get(), &ServerConfigController::toolLimitChanged, server.get(), [&] { ++told; });

    MCPIntegration chat;
    chat.label = u"kelvara"_s;
    chat.kind = MCPIntegration::Kind::plugin;
    chat.isEnabled = true;
    integrations->add(chat);
    MCPIntegration edited = integrations->servers().first();
    edited.setToolEnabled(u"beta"_s, true);
    integrations->update(edited);
    EXPECT_EQ(server->toolLimitNotice(), u"Serving 1 of 3 tools: limited by the AI Chat integration 'kelvara'"_s);
    EXPECT_GE(told, 1);

    const int port = TestSupport::freeLowPort();
    ASSERT_NE(port, 0);
    server->setPort(QString::number(port));
    server->start();
    ASSERT_TRUE(TestSupport::waitUntil([&] { return server->isServerRunning() && !server->isStarting(); }));
    EXPECT_EQ(bridge.listTools(), QStringList{u"beta"_s});

    addTool(u"delta"_s);
    save();
    EXPECT_EQ(server->toolLimitNotice(), u"Serving 1 of 4 tools: limited by the AI Chat integration 'kelvara'"_s);

    told = 0;
    server->serveAllTools();
    EXPECT_EQ(server->toolLimitNotice(), u""_s);
    EXPECT_EQ(told, 1);
    EXPECT_EQ(sorted(bridge.listTools()), (QStringList{u"alpha"_s, u"beta"_s, u"delta"_s, u"gamma"_s}));
}
