#include "tests/plugins/PluginTestSupport.h"
#include "tests/support/SystemLogCapture.h"

#include <gtest/gtest.h>

#include <QFileInfo>
#include <QSignalSpy>

using namespace PluginTestSupport;
using namespace Qt::StringLiterals;

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
    const QString path = fixture(u"reply_echo.so"_s);
    QSignalSpy dialog(w.screen.get(), &PluginManagerController::showApprovalDialogChanged);

    w.screen->addPlugin(QUrl::fromLocalFile(path));
    ASSERT_TRUE(w.screen->pendingPlugin().has_value()) << alertOf(w.screen.get());
    EXPECT_TRUE(w.screen->showApprovalDialog());
    EXPECT_EQ(dialog.count(), 1);
    const Plugin pending = *w.screen->pendingPlugin();
    EXPECT_EQ(pending.toJson(), R"({"id":")" + pending.id.toString(QUuid::WithoutBraces).toUpper().toUtf8() + R"(","path":")"
                                    + path.toUtf8() + R"(","isEnabled":false,"toolDescriptor":{"name":"reply_echo","version":"0.1",)"
                                    R"("author":"Test Suite","toolDescription":"Answers a fixed text","toolEntryPoint":"replyEntry",)"
                                    R"("toolIdentifier":"org.tamsel.kelvara.test.reply","abiVersion":3,"toolVersion":1,)"
                                    R"("capabilitiesJSON":""},"bookmarkData":")" + path.toUtf8().toBase64() + "\"}");
    EXPECT_TRUE(w->plugins().isEmpty());
    // The loaded handler waits in the bridge's list while the user decides.
    EXPECT_EQ(w->bridge().availableTools().size(), 1);

    SystemLogCapture log;
    w.screen->approve();
    EXPECT_FALSE(w.screen->pendingPlugin().has_value());
    EXPECT_FALSE(w.screen->showApprovalDialog());
    EXPECT_EQ(w->plugins(), QList<Plugin>{pending});
    EXPECT_TRUE(log.contains("[PluginController] Registering plugin with bookmark: " + path));
    EXPECT_TRUE(log.contains(u"[PluginController] Registered plugin: reply_echo"_s));
    EXPECT_TRUE(log.contains(u"[PluginController] Successfully registered plugin: reply_echo"_s));

    // Stored: the list, the flag under the path, and the file among the user's locations.
    EXPECT_EQ(Plugin::decodeList(storedList()), QList<Plugin>{pending});
    EXPECT_EQ(storedFlag(path), QVariant(false));
    EXPECT_TRUE(w.security->findBookmark(QUrl::fromLocalFile(path)).has_value());
    EXPECT_FALSE(w.screen->shouldShowAlert());
}

TEST_F(PluginRegistry, TheStoredRecordKeepsItsKeysInFieldOrder)
{
    Plugin plugin;
    plugin.id = QUuid(u"{6f1c2f4e-52a3-4d6c-9a4e-0c7b0b2f9b11}"_s);
    plugin.path = u"/opt/p/Echo.so"_s;
    plugin.bookmarkData = QByteArray("/opt/p/Echo.so");
    PluginDescriptor d;
    d.name = u"Echo"_s;
    d.abiVersion = 3;
    d.toolVersion = 12;
    d.capabilitiesJSON = u"{\"a\":1}"_s;
    plugin.toolDescriptor = d;

    EXPECT_EQ(plugin.toJson(),
              QByteArray(R"({"id":"6F1C2F4E-52A3-4D6C-9A4E-0C7B0B2F9B11","path":"/opt/p/Echo.so","isEnabled":false,)"
                         R"("toolDescriptor":{"name":"Echo","version":"","author":"","toolDescription":"",)"
                         R"("toolEntryPoint":"","toolIdentifier":"","abiVersion":3,"toolVersion":12,)"
                         R"("capabilitiesJSON":"{\"a\":1}"},"bookmarkData":"L29wdC9wL0VjaG8uc28="})"));
    EXPECT_EQ(Plugin::decodeList(Plugin::encodeList({plugin})), QList<Plugin>{plugin});

    // Absent keys stay absent; a descriptor missing one field spoils the list.
    Plugin bare;
    bare.id = plugin.id;
    bare.path = plugin.path;
    EXPECT_EQ(bare.toJson(), QByteArray(R"({"id":"6F1C2F4E-52A3-4D6C-9A4E-0C7B0B2F9B11","path":"/opt/p/Echo.so","isEnabled":false})"));
    QByteArray broken = Plugin::encodeList({plugin});
    broken.replace("\"toolVersion\":12,", "");
    EXPECT_FALSE(Plugin::decodeList(broken).has_value());
    EXPECT_FALSE(Plugin::decodeList(R"([{"id":"x","path":"/a","isEnabled":true}])").has_value());
}

TEST_F(PluginRegistry, FailuresOfAddingAndDenialEndWithNothingPendingOrRegistered)
{
    World w = world();
    const QString dir = TestSupport::makeTempDir();
    QFile text(dir + u"/notes.txt"_s);
    ASSERT_TRUE(text.open(QIODevice::WriteOnly));
    text.close();
    auto alertOfAdding = [&](const QString &path) {
        w.screen->addPlugin(QUrl::fromLocalFile(path));
        return alertOf(w.screen.get());
    };

    EXPECT_EQ(alertOfAdding(text.fileName()), "Unknown plugin type: txt");
    EXPECT_EQ(w.screen->alertTitle(), "Error");
    EXPECT_EQ(alertOfAdding(fixture(u"fixture_null_descriptor.so"_s)), "Invalid tool descriptor. NULL pointer.");
    // Another interface version fails without a cause; the alert still says what is wrong.
    EXPECT_EQ(alertOfAdding(fixture(u"fixture_abi4.so"_s)), "Unsupported plugin interface version (expected 3)");
    EXPECT_TRUE(alertOfAdding(dir + u"/missing.so"_s).contains(u"no such file"_s));
    // Denial forgets the pending plug-in.
    w.screen->addPlugin(fixtureUrl(u"reply_error_text.so"_s));
    ASSERT_TRUE(w.screen->pendingPlugin().has_value());
    w.screen->deny();
    EXPECT_FALSE(w.screen->showApprovalDialog());

    EXPECT_FALSE(w.screen->pendingPlugin().has_value());
    EXPECT_TRUE(w->plugins().isEmpty());
    EXPECT_TRUE(storedList().isEmpty());
}

TEST_F(PluginRegistry, ApprovalNeedsTheFileStillThere)
{
    World w = world();
    const QString path = copyOf(u"reply_echo.so"_s, u"Echo.so"_s);
    w.screen->addPlugin(QUrl::fromLocalFile(path));
    ASSERT_TRUE(w.screen->pendingPlugin().has_value());
    QFile::remove(path);
    w.screen->approve();
    EXPECT_EQ(alertOf(w.screen.get()), "Plugin file not found or not readable: " + path);
    EXPECT_FALSE(w.screen->pendingPlugin().has_value());
    EXPECT_TRUE(w->plugins().isEmpty());
}

TEST_F(PluginRegistry, EveryPluginStartsDisabledAndEnablingNeedsAFileOfTheSameName)
{
    const QString path = copyOf(u"reply_echo.so"_s, u"Echo.so"_s);
    {
        World first = world();
        const std::optional<Plugin> plugin = registerFile(first.screen.get(), path);
        ASSERT_TRUE(plugin);
        first.screen->enablePlugin(*plugin, QUrl::fromLocalFile(path));
        ASSERT_TRUE(first->plugin(plugin->id)->isEnabled) << alertOf(first.screen.get());
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
    auto call = [&] { return w->callPlugin(u"s1"_s, u"reply_echo"_s, u"{}"_s); };
    EXPECT_EQ(call().structuredContent.value(u"error_message"_s).toVariant().toString(),
              "Requested tool plugin 'reply_echo' is not enabled.");

    // Another plug-in's file: the mismatch, and the plug-in stays disabled.
    w.screen->enablePlugin(plugin, fixtureUrl(u"reply_error_text.so"_s));
    EXPECT_EQ(alertOf(w.screen.get()), "Plugin descriptor mismatch. Selected file does not match registered plugin.");
    EXPECT_FALSE(w->plugin(plugin.id)->isEnabled);
    // A file that has gone names the path that was picked.
    const QString gone = path + u".old.so"_s;
    w.screen->enablePlugin(plugin, QUrl::fromLocalFile(gone));
    EXPECT_EQ(alertOf(w.screen.get()), "Plugin file not found: " + gone);

    // The same plug-in from another place: only the name must match; the path stays.
    SystemLogCapture log;
    w.screen->enablePlugin(plugin, fixtureUrl(u"reply_echo.bundle"_s));
    EXPECT_TRUE(w->plugin(plugin.id)->isEnabled) << alertOf(w.screen.get());
    EXPECT_EQ(w->plugin(plugin.id)->path, path);
    EXPECT_TRUE(log.contains(u"[PluginController] Enabled plugin: reply_echo"_s));
    EXPECT_EQ(call().content.size(), 2);

    // Toggling an enabled plug-in disables it; toggling a disabled one asks for the wizard.
    w.screen->togglePlugin(plugin);
    EXPECT_FALSE(w->plugin(plugin.id)->isEnabled);
    EXPECT_EQ(storedFlag(path), QVariant(false));
    EXPECT_TRUE(log.contains(u"[PluginController] Disabled plugin: reply_echo"_s));
    w.screen->togglePlugin(plugin);
    EXPECT_FALSE(w->plugin(plugin.id)->isEnabled);
    EXPECT_TRUE(log.contains(u"[PluginController] Enabling requires user file selection"_s));
}

TEST_F(PluginRegistry, UninstallingForgetsTheListEntryTheFlagAndTheBookmarkButKeepsTheFile)
{
    World w = world();
    const QString path = copyOf(u"reply_echo.so"_s, u"Echo.so"_s);
    const std::optional<Plugin> echo = registerFile(w.screen.get(), path);
    const std::optional<Plugin> other = registerFile(w.screen.get(), fixture(u"reply_error_text.so"_s));
    ASSERT_TRUE(echo && other);

    w.screen->requestUninstall(*echo);
    EXPECT_TRUE(w.screen->showDeleteConfirmDialog());
    EXPECT_EQ(w.screen->pluginToDelete(), echo);
    SystemLogCapture log;
    w.screen->confirmUninstall();
    EXPECT_FALSE(w.screen->showDeleteConfirmDialog());
    ASSERT_TRUE(TestSupport::waitUntil([&] { return w->plugins().size() == 1; }));
    EXPECT_EQ(w->plugins().first().id, other->id);
    EXPECT_EQ(Plugin::decodeList(storedList())->size(), 1);
    EXPECT_FALSE(UserDefaults::standard()->contains(path));
    EXPECT_FALSE(w.security->findBookmark(QUrl::fromLocalFile(path)).has_value());
    EXPECT_TRUE(QFileInfo::exists(path));
    EXPECT_TRUE(TestSupport::waitUntil(
        [&] { return log.contains(u"[PluginController] Uninstalled and unregistered plugin: reply_echo"_s); }));
    EXPECT_TRUE(log.contains(u"[PluginController] Unregistered plugin: reply_echo"_s));

    Plugin nameless = *other;
    nameless.toolDescriptor.reset();
    w.screen->uninstallPlugin(nameless);
    EXPECT_EQ(alertOf(w.screen.get()), "Uninstall plugin: Invalid plugin descriptor");
    EXPECT_EQ(w->plugins().size(), 1);
}

TEST_F(PluginRegistry, StoredBytesThatDoNotDecodeCountAsEmptyAndAreOverwritten)
{
    UserDefaults::standard()->setValue(PluginController::registeredPluginsKey, QByteArray("[{\"id\":1}]"));
    SystemLogCapture log;
    World w = world();
    EXPECT_TRUE(log.contains(u"[PluginController] No registered plugins found"_s));
    EXPECT_TRUE(w->plugins().isEmpty());
    EXPECT_FALSE(w->isLoading());

    ASSERT_TRUE(registerFile(w.screen.get(), fixture(u"reply_echo.so"_s)));
    EXPECT_EQ(Plugin::decodeList(storedList())->size(), 1);
}

// A name that is registered already is information, not an error: adding it again leaves
// nothing pending, and a question that was open while another window registered the same
// plug-in stays open, so the user still decides on it.
TEST_F(PluginRegistry, ANameRegisteredAlreadyIsInformationAndAnOpenQuestionStaysOpen)
{
    World w = world();
    PluginManagerController otherWindow(w.controller.get());
    w.screen->addPlugin(fixtureUrl(u"reply_echo.so"_s));
    ASSERT_TRUE(w.screen->pendingPlugin().has_value()) << alertOf(w.screen.get());
    ASSERT_TRUE(registerFile(&otherWindow, copyOf(u"reply_echo.so"_s, u"Echo.so"_s))) << alertOf(&otherWindow);

    w.screen->approve();
    EXPECT_EQ(alertOf(w.screen.get()), "The custom tool plugin reply_echo already exist.");
    EXPECT_EQ(w.screen->alertTitle(), "Information");
    EXPECT_TRUE(w.screen->pendingPlugin().has_value());
    EXPECT_TRUE(w.screen->showApprovalDialog());
    EXPECT_EQ(w->plugins().size(), 1);
    EXPECT_EQ(Plugin::decodeList(storedList())->size(), 1);
    w.screen->deny();
    EXPECT_FALSE(w.screen->showApprovalDialog());

    // The registry says the same to whoever asks it directly, and registers nothing.
    PluginRefusal refusal;
    EXPECT_FALSE(w->prepareRegistration(fixtureUrl(u"reply_echo.bundle"_s), &refusal).has_value());
    EXPECT_TRUE(refusal.alreadyRegistered);
    EXPECT_EQ(refusal.message, "The custom tool plugin reply_echo already exist.");
    Plugin again = w->plugins().first();
    again.id = QUuid::createUuid();
    const std::optional<PluginRefusal> refused = w->registerPlugin(again);
    ASSERT_TRUE(refused.has_value());
    EXPECT_EQ(refused->title(), "Information");
    EXPECT_EQ(w->plugins().size(), 1);
}
