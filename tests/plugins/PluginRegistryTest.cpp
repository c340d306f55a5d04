#include "tests/plugins/PluginTestSupport.h"
#include "tests/plugins/SystemLogCapture.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSignalSpy>

using namespace PluginTestSupport;

namespace {

class PluginRegistry : public ::testing::Test {
protected:
    void SetUp() override { clearDefaults(); }

    static QByteArray storedList() { return UserDefaults::standard()->value(PluginController::registeredPluginsKey).toByteArray(); }
    static QVariant storedFlag(const QString &path) { return UserDefaults::standard()->value(path); }
};

}  // namespace

TEST_F(PluginRegistry, AddingSetsThePluginPendingAndApprovalRegistersItDisabled)
{
    World w = world();
    const QString path = fixture(QStringLiteral("reply_echo.so"));
    QSignalSpy dialog(w.controller.get(), &PluginController::showApprovalDialogChanged);

    w->addPlugin(QUrl::fromLocalFile(path));
    ASSERT_TRUE(w->pendingPlugin().has_value()) << alertOf(w.controller.get());
    EXPECT_TRUE(w->showApprovalDialog());
    EXPECT_EQ(dialog.count(), 1);
    const Plugin pending = *w->pendingPlugin();
    EXPECT_EQ(pending.path, path);
    EXPECT_FALSE(pending.isEnabled);
    EXPECT_EQ(pending.bookmarkData, path.toUtf8());
    ASSERT_TRUE(pending.toolDescriptor.has_value());
    EXPECT_EQ(pending.toolDescriptor->name, QStringLiteral("reply_echo"));
    EXPECT_EQ(pending.toolDescriptor->toolEntryPoint, QStringLiteral("replyEntry"));
    EXPECT_EQ(pending.toolDescriptor->abiVersion, 3);
    EXPECT_TRUE(w->plugins().isEmpty());
    // The loaded handler waits in the bridge's list while the user decides.
    EXPECT_EQ(w->bridge().availableTools().size(), 1);

    SystemLogCapture log;
    w->approve();
    EXPECT_FALSE(w->pendingPlugin().has_value());
    EXPECT_FALSE(w->showApprovalDialog());
    ASSERT_EQ(w->plugins().size(), 1);
    EXPECT_EQ(w->plugins().first(), pending);
    EXPECT_TRUE(log.contains(QStringLiteral("[PluginController] Registering plugin with bookmark: ") + path));
    EXPECT_TRUE(log.contains(QStringLiteral("[PluginController] Registered plugin: reply_echo")));
    EXPECT_TRUE(log.contains(QStringLiteral("[PluginController] Successfully registered plugin: reply_echo")));

    // Stored: the list, the flag under the path, and the file among the user's locations.
    EXPECT_EQ(Plugin::decodeList(storedList()), QList<Plugin>{pending});
    EXPECT_EQ(storedFlag(path), QVariant(false));
    EXPECT_TRUE(w.security->findBookmark(QUrl::fromLocalFile(path)).has_value());
    EXPECT_FALSE(w->shouldShowAlert());
}

TEST_F(PluginRegistry, TheStoredRecordKeepsItsKeysInFieldOrder)
{
    Plugin plugin;
    plugin.id = QUuid(QStringLiteral("{6f1c2f4e-52a3-4d6c-9a4e-0c7b0b2f9b11}"));
    plugin.path = QStringLiteral("/opt/p/Echo.so");
    plugin.bookmarkData = QByteArray("/opt/p/Echo.so");
    PluginDescriptor d;
    d.name = QStringLiteral("Echo");
    d.abiVersion = 3;
    d.toolVersion = 12;
    d.capabilitiesJSON = QStringLiteral("{\"a\":1}");
    plugin.toolDescriptor = d;

    EXPECT_EQ(plugin.toJson(),
              QByteArray("{\"id\":\"6F1C2F4E-52A3-4D6C-9A4E-0C7B0B2F9B11\",\"path\":\"/opt/p/Echo.so\",\"isEnabled\":false,"
                         "\"toolDescriptor\":{\"name\":\"Echo\",\"version\":\"\",\"author\":\"\",\"toolDescription\":\"\","
                         "\"toolEntryPoint\":\"\",\"toolIdentifier\":\"\",\"abiVersion\":3,\"toolVersion\":12,"
                         "\"capabilitiesJSON\":\"{\\\"a\\\":1}\"},\"bookmarkData\":\"L29wdC9wL0VjaG8uc28=\"}"));
    EXPECT_EQ(Plugin::decodeList(Plugin::encodeList({plugin})), QList<Plugin>{plugin});

    // Absent keys stay absent; a descriptor missing one field spoils the list.
    Plugin bare;
    bare.id = plugin.id;
    bare.path = plugin.path;
    EXPECT_EQ(bare.toJson(), QByteArray("{\"id\":\"6F1C2F4E-52A3-4D6C-9A4E-0C7B0B2F9B11\",\"path\":\"/opt/p/Echo.so\",\"isEnabled\":false}"));
    QByteArray broken = Plugin::encodeList({plugin});
    broken.replace("\"toolVersion\":12,", "");
    EXPECT_FALSE(Plugin::decodeList(broken).has_value());
    EXPECT_FALSE(Plugin::decodeList("[{\"id\":\"x\",\"path\":\"/a\",\"isEnabled\":true}]").has_value());
}

TEST_F(PluginRegistry, FailuresOfAddingEndInAnAlertAndLeaveNothingPending)
{
    World w = world();
    const QString dir = TestSupport::makeTempDir();
    QFile text(dir + QStringLiteral("/notes.txt"));
    ASSERT_TRUE(text.open(QIODevice::WriteOnly));
    text.close();

    w->addPlugin(QUrl::fromLocalFile(text.fileName()));
    EXPECT_EQ(alertOf(w.controller.get()), QStringLiteral("Unknown plugin type: txt"));
    EXPECT_EQ(w->alertTitle(), QStringLiteral("Error"));

    w->addPlugin(QUrl::fromLocalFile(fixture(QStringLiteral("fixture_null_descriptor.so"))));
    EXPECT_EQ(alertOf(w.controller.get()), QStringLiteral("Invalid tool descriptor. NULL pointer."));

    // Another interface version fails without a cause; the alert still says what is wrong.
    w->addPlugin(QUrl::fromLocalFile(fixture(QStringLiteral("fixture_abi4.so"))));
    EXPECT_EQ(alertOf(w.controller.get()), QStringLiteral("Unsupported plugin interface version (expected 3)"));

    w->addPlugin(QUrl::fromLocalFile(dir + QStringLiteral("/missing.so")));
    EXPECT_TRUE(alertOf(w.controller.get()).contains(QStringLiteral("no such file")));

    EXPECT_FALSE(w->pendingPlugin().has_value());
    EXPECT_TRUE(w->plugins().isEmpty());
    EXPECT_TRUE(storedList().isEmpty());
}

TEST_F(PluginRegistry, ANameCanBeRegisteredOnceAndDenialForgetsThePending)
{
    World w = world();
    ASSERT_TRUE(registerFile(w.controller.get(), fixture(QStringLiteral("reply_echo.so"))));

    // The same plug-in from elsewhere, or in its bundle form, is the same name.
    w->addPlugin(fixtureUrl(QStringLiteral("reply_echo.bundle")));
    EXPECT_EQ(alertOf(w.controller.get()), QStringLiteral("The custom tool plugin reply_echo already exist."));
    EXPECT_EQ(w->alertTitle(), QStringLiteral("Information"));
    EXPECT_FALSE(w->pendingPlugin().has_value());

    w->addPlugin(fixtureUrl(QStringLiteral("reply_error_text.so")));
    ASSERT_TRUE(w->pendingPlugin().has_value());
    w->deny();
    EXPECT_FALSE(w->pendingPlugin().has_value());
    EXPECT_FALSE(w->showApprovalDialog());
    EXPECT_EQ(w->plugins().size(), 1);
}

TEST_F(PluginRegistry, ApprovalNeedsTheFileStillThere)
{
    World w = world();
    const QString path = copyOf(QStringLiteral("reply_echo.so"), QStringLiteral("Echo.so"));
    w->addPlugin(QUrl::fromLocalFile(path));
    ASSERT_TRUE(w->pendingPlugin().has_value());
    QFile::remove(path);
    w->approve();
    EXPECT_EQ(alertOf(w.controller.get()), QStringLiteral("Plugin file not found or not readable: ") + path);
    EXPECT_FALSE(w->pendingPlugin().has_value());
    EXPECT_TRUE(w->plugins().isEmpty());
}

TEST_F(PluginRegistry, EveryPluginStartsDisabledAndEnablingNeedsAFileOfTheSameName)
{
    const QString path = copyOf(QStringLiteral("reply_echo.so"), QStringLiteral("Echo.so"));
    {
        World first = world();
        const std::optional<Plugin> plugin = registerFile(first.controller.get(), path);
        ASSERT_TRUE(plugin);
        first->enablePlugin(*plugin, QUrl::fromLocalFile(path));
        ASSERT_TRUE(first->plugin(plugin->id)->isEnabled) << alertOf(first.controller.get());
        EXPECT_EQ(storedFlag(path), QVariant(true));
    }

    // Whatever was stored, even a list that says enabled, the next start begins disabled.
    QList<Plugin> stored = *Plugin::decodeList(storedList());
    stored.first().isEnabled = true;
    UserDefaults::standard()->setValue(PluginController::registeredPluginsKey, Plugin::encodeList(stored));
    World w = world();
    ASSERT_EQ(w->plugins().size(), 1);
    const Plugin plugin = w->plugins().first();
    EXPECT_FALSE(plugin.isEnabled);
    const JSONToolResult call = w->callPlugin(QStringLiteral("s1"), QStringLiteral("reply_echo"), QStringLiteral("{}"));
    EXPECT_EQ(call.structuredContent.value(QStringLiteral("error_message")).toVariant().toString(),
              QStringLiteral("Requested tool plugin 'reply_echo' is not enabled."));

    // Another plug-in's file: the mismatch, and the plug-in stays disabled.
    w->enablePlugin(plugin, fixtureUrl(QStringLiteral("reply_error_text.so")));
    EXPECT_EQ(alertOf(w.controller.get()),
              QStringLiteral("Plugin descriptor mismatch. Selected file does not match registered plugin."));
    EXPECT_FALSE(w->plugin(plugin.id)->isEnabled);

    // A file that has gone names the path that was picked.
    const QString gone = path + QStringLiteral(".old.so");
    w->enablePlugin(plugin, QUrl::fromLocalFile(gone));
    EXPECT_EQ(alertOf(w.controller.get()), QStringLiteral("Plugin file not found: ") + gone);

    // The same plug-in from another place: only the name must match; the path stays.
    SystemLogCapture log;
    w->enablePlugin(plugin, fixtureUrl(QStringLiteral("reply_echo.bundle")));
    EXPECT_TRUE(w->plugin(plugin.id)->isEnabled) << alertOf(w.controller.get());
    EXPECT_EQ(w->plugin(plugin.id)->path, path);
    EXPECT_TRUE(log.contains(QStringLiteral("[PluginController] Enabled plugin: reply_echo")));
    EXPECT_EQ(w->callPlugin(QStringLiteral("s1"), QStringLiteral("reply_echo"), QStringLiteral("{}")).content.size(), 2);

    // Toggling an enabled plug-in disables it; toggling a disabled one asks for the wizard.
    w->togglePlugin(plugin);
    EXPECT_FALSE(w->plugin(plugin.id)->isEnabled);
    EXPECT_EQ(storedFlag(path), QVariant(false));
    EXPECT_TRUE(log.contains(QStringLiteral("[PluginController] Disabled plugin: reply_echo")));
    w->togglePlugin(plugin);
    EXPECT_FALSE(w->plugin(plugin.id)->isEnabled);
    EXPECT_TRUE(log.contains(QStringLiteral("[PluginController] Enabling requires user file selection")));
}

TEST_F(PluginRegistry, UninstallingForgetsTheListEntryTheFlagAndTheBookmarkButKeepsTheFile)
{
    World w = world();
    const QString path = copyOf(QStringLiteral("reply_echo.so"), QStringLiteral("Echo.so"));
    const std::optional<Plugin> echo = registerFile(w.controller.get(), path);
    const std::optional<Plugin> other = registerFile(w.controller.get(), fixture(QStringLiteral("reply_error_text.so")));
    ASSERT_TRUE(echo && other);

    w->requestUninstall(*echo);
    EXPECT_TRUE(w->showDeleteConfirmDialog());
    EXPECT_EQ(w->pluginToDelete(), echo);
    SystemLogCapture log;
    w->confirmUninstall();
    EXPECT_FALSE(w->showDeleteConfirmDialog());
    ASSERT_TRUE(TestSupport::waitUntil([&] { return w->plugins().size() == 1; }));
    EXPECT_EQ(w->plugins().first().id, other->id);
    EXPECT_EQ(Plugin::decodeList(storedList())->size(), 1);
    EXPECT_FALSE(UserDefaults::standard()->contains(path));
    EXPECT_FALSE(w.security->findBookmark(QUrl::fromLocalFile(path)).has_value());
    EXPECT_TRUE(QFileInfo::exists(path));
    EXPECT_TRUE(TestSupport::waitUntil(
        [&] { return log.contains(QStringLiteral("[PluginController] Uninstalled and unregistered plugin: reply_echo")); }));
    EXPECT_TRUE(log.contains(QStringLiteral("[PluginController] Unregistered plugin: reply_echo")));

    Plugin nameless = *other;
    nameless.toolDescriptor.reset();
    w->uninstallPlugin(nameless);
    EXPECT_EQ(alertOf(w.controller.get()), QStringLiteral("Uninstall plugin: Invalid plugin descriptor"));
    EXPECT_EQ(w->plugins().size(), 1);
}

TEST_F(PluginRegistry, StoredBytesThatDoNotDecodeCountAsEmptyAndAreOverwritten)
{
    UserDefaults::standard()->setValue(PluginController::registeredPluginsKey, QByteArray("[{\"id\":1}]"));
    SystemLogCapture log;
    World w = world();
    EXPECT_TRUE(log.contains(QStringLiteral("[PluginController] No registered plugins found")));
    EXPECT_TRUE(w->plugins().isEmpty());
    EXPECT_FALSE(w->isLoading());

    ASSERT_TRUE(registerFile(w.controller.get(), fixture(QStringLiteral("reply_echo.so"))));
    EXPECT_EQ(Plugin::decodeList(storedList())->size(), 1);
}
