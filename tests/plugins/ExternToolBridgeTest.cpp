#include "tests/plugins/PluginTestSupport.h"
#include "tests/support/SystemLogCapture.h"
#include "tools/plugins/ExternToolBridge.h"

#include <gtest/gtest.h>

#include <QFileInfo>
#include <QRegularExpression>

using PluginTestSupport::fixture;
using namespace Qt::StringLiterals;

namespace {

// The paths the loader was asked to load, in order, from its entry lines.
QStringList loadAttempts(const SystemLogCapture &log)
{
    static const QRegularExpression entry(u"^\\[CustomToolHandler::loadToolAtPath\\] type=(\\d) path=.*/([^/]+)$"_s);
    QStringList attempts;
    for (const QString &line : log.captured()) {
        if (const QRegularExpressionMatch match = entry.match(line); match.hasMatch())
            attempts.append(match.captured(2) + u':' + match.captured(1));
    }
    return attempts;
}

// Copies the echo plug-in to dir/name; a bundle name gets the bundle's folders around it.
void placeEcho(const QString &dir, const QString &name)
{
    const QString stem = QFileInfo(name).completeBaseName();
    const bool bundle = name.endsWith(u".bundle") || name.endsWith(u".plugin");
    const QString target = bundle ? dir + u'/' + name + u"/Contents/Linux/"_s + stem + u".so"_s : dir + u'/' + name;
    QDir().mkpath(QFileInfo(target).absolutePath());
    QFile::copy(fixture(u"reply_echo.so"_s), target);
}

QVariantMap info(const QString &path, int type, const QString &bookmarkPath)
{
    return {{"path", path}, {"pluginType", type}, {"bookmarkPath", bookmarkPath}};
}

}  // namespace

TEST(ToolDiscoveryService, ScansOneFolderLevelInNameOrderAndTellsTheFormByTheEnding)
{
    // Each form, a text file, a name with ".so" inside, and a plug-in in a sub-folder that
    // must not be reached.
    const QString dir = TestSupport::makeTempDir(u"discovery"_s);
    for (const QString &name : {u"c_library.so"_s, u"a_bundle.bundle"_s, u"b_plugin.plugin"_s, u"e_versioned.so.1"_s,
                                u"f_sub/g_deep.so"_s})
        placeEcho(dir, name);
    QFile text(dir + u"/d_notes.txt"_s);
    ASSERT_TRUE(text.open(QIODevice::WriteOnly));
    text.write("not a plug-in");
    text.close();

    ExternToolBridge bridge;
    SystemLogCapture log;
    bridge.startPluginDiscoveryAtPath(dir);
    EXPECT_EQ(loadAttempts(log), (QStringList{"a_bundle.bundle:2", "b_plugin.plugin:3", "c_library.so:1"}));
    EXPECT_EQ(bridge.availableTools().size(), 3);
    EXPECT_TRUE(log.contains("[ToolDiscoveryService::startDiscoveryAtPath] path: " + dir));
    EXPECT_TRUE(log.contains(u"[ToolDiscoveryService] Discovery complete. Found 3 tools"_s));
}

TEST(ToolDiscoveryService, AFailedEntryCostsOnlyItselfAndAMissingFolderStillEmptiesTheList)
{
    const QString dir = TestSupport::makeTempDir(u"discovery"_s);
    QFile::copy(fixture(u"fixture_null_descriptor.so"_s), dir + u"/a_broken.so"_s);
    QFile::copy(fixture(u"reply_echo.so"_s), dir + u"/b_good.so"_s);
    ToolDiscoveryService service;
    {
        SystemLogCapture log;
        service.startDiscoveryAtPath(dir);
        EXPECT_TRUE(log.contains(u"[ToolDiscoveryService] Failed to load tool a_broken.so: Invalid tool descriptor. NULL pointer."_s));
    }
    ASSERT_EQ(service.availableTools().size(), 1);
    const ToolDiscoveryService::Handler kept = service.availableTools().first();
    ASSERT_NE(kept->pluginHandle(), nullptr);

    SystemLogCapture log;
    service.startDiscoveryAtPath(dir + u"/gone"_s);
    EXPECT_TRUE(service.availableTools().isEmpty());
    // The refill unloaded what the list held.
    EXPECT_EQ(kept->pluginHandle(), nullptr);
    EXPECT_TRUE(log.contains("[ToolDiscoveryService] Plugin directory does not exist: " + dir + u"/gone"_s));
}

TEST(ToolDiscoveryService, StoredPluginListsSkipIncompleteEntriesAndLoadTheRest)
{
    const QString good = fixture(u"reply_echo.so"_s);
    const QVariantList plugins = {
        QVariantMap{{"path", good}, {"pluginType", 1}},  // no bookmarkPath
        info(u"/registered/at/Echo.so"_s, 1, good),
        info(u"/registered/at/Gone.so"_s, 1, good + u".missing"_s),
    };

    ToolDiscoveryService service;
    {
        SystemLogCapture log;
        service.startDiscoveryWithBookmarkedPlugins(plugins);
        for (const char *line : {"[ToolDiscoveryService::startDiscoveryWithBookmarkedPlugins] Processing 3 plugins",
                                 "[ToolDiscoveryService] Invalid plugin info: missing required keys",
                                 "[ToolDiscoveryService] Loading plugin: Echo.so (type: 1)",
                                 "[ToolDiscoveryService] Successfully loaded: reply_echo",
                                 "[ToolDiscoveryService] Discovery complete. Found 1 tools"})
            EXPECT_TRUE(log.contains(QString::fromUtf8(line))) << line;
        EXPECT_EQ(log.captured().filter(u"[ToolDiscoveryService] Failed to load tool Gone.so: "_s).size(), 1);
    }
    ASSERT_EQ(service.availableTools().size(), 1);
    EXPECT_EQ(service.availableTools().first()->toolDescriptor()->fullPathName, good);

    // The bridge's own entry point does the same work with its own lines.
    ExternToolBridge bridge;
    SystemLogCapture log;
    bridge.startPluginDiscoveryWithBookmarks(plugins);
    EXPECT_EQ(bridge.availableTools().size(), 1);
    for (const char *line : {"[ExternToolBridge] Invalid plugin info dictionary", "[ExternToolBridge] Loading plugin: Echo.so (type: 1)",
                             "[ExternToolBridge] Successfully loaded plugin: reply_echo",
                             "[ExternToolBridge::startPluginDiscoveryWithBookmarks] Discovery complete. Loaded 1 tools"})
        EXPECT_TRUE(log.contains(QString::fromUtf8(line))) << line;
}

TEST(ExternToolBridge, LoadPluginHandsOverAHandlerThatIsInNoList)
{
    ExternToolBridge bridge;
    const Result<std::unique_ptr<CustomToolHandler>> handler = bridge.loadPlugin(fixture(u"reply_echo.so"_s), 1);
    ASSERT_TRUE(handler.ok());
    ASSERT_TRUE(*handler);
    EXPECT_TRUE(bridge.availableTools().isEmpty());

    // A failure gives the loader's cause.
    SystemLogCapture log;
    const Result<std::unique_ptr<CustomToolHandler>> missing = bridge.loadPlugin(fixture(u"missing.so"_s), 1);
    ASSERT_FALSE(missing.ok());
    EXPECT_EQ(missing.error().domain, "CustomToolHandler");
    EXPECT_EQ(missing.error().code, 1);
    EXPECT_TRUE(log.contains(u"[ExternToolBridge::loadPlugin] Failed to load custom plugin"_s));

    // Another interface version fails without a cause.
    const Result<std::unique_ptr<CustomToolHandler>> other = bridge.loadPlugin(fixture(u"fixture_abi4.so"_s), 1);
    ASSERT_FALSE(other.ok());
    EXPECT_TRUE(other.error().domain.isEmpty());
}

TEST(ExternToolBridge, UnloadingLeavesADeadHandlerThatLookUpsKeepFinding)
{
    ExternToolBridge bridge;
    const QString path = fixture(u"reply_echo.so"_s);
    const auto first = bridge.registerPlugin(path, CustomToolHandler::DynamicLibrary).valueOr(nullptr);
    ASSERT_TRUE(first);
    EXPECT_EQ(bridge.findPlugin(u"reply_echo"_s).valueOr(nullptr), first);

    SystemLogCapture log;
    EXPECT_TRUE(bridge.unloadPlugin(u"reply_echo"_s).ok());
    EXPECT_TRUE(log.contains(u"[ExternToolBridge::unloadPlugin] Unloading plugin: reply_echo"_s));
    EXPECT_EQ(first->pluginHandle(), nullptr);
    EXPECT_EQ(bridge.availableTools().size(), 1);

    const auto second = bridge.registerPlugin(path, CustomToolHandler::DynamicLibrary).valueOr(nullptr);
    ASSERT_TRUE(second);
    EXPECT_EQ(bridge.availableTools().size(), 2);
    EXPECT_EQ(bridge.findPlugin(u"reply_echo"_s).valueOr(nullptr), first);

    // An unknown name is no error; an absent one is error 116.
    EXPECT_TRUE(bridge.unloadPlugin(u"nobody"_s).ok());
    const Result<ToolDiscoveryService::Handler> nobody = bridge.findPlugin(u"nobody"_s);
    ASSERT_TRUE(nobody.ok());
    EXPECT_FALSE(*nobody);
    const Result<void> unnamed = bridge.unloadPlugin(QString());
    ASSERT_FALSE(unnamed.ok());
    EXPECT_EQ(unnamed.error().toString(), R"(Error Domain=ExternToolBridge Code=116 "Invalid 'name' parameter")");
    const Result<ToolDiscoveryService::Handler> findUnnamed = bridge.findPlugin(QString());
    ASSERT_FALSE(findUnnamed.ok());
    EXPECT_EQ(findUnnamed.error().code, 116);
}

TEST(ExternToolBridge, RegisterWithBookmarkLoadsFromTheBookmarkPath)
{
    ExternToolBridge bridge;
    const Result<ToolDiscoveryService::Handler> unmarked = bridge.registerPluginWithBookmark(u"/a/Echo.so"_s, QString(), 1);
    ASSERT_FALSE(unmarked.ok());
    EXPECT_EQ(unmarked.error().code, 116);
    EXPECT_EQ(unmarked.error().description, "Invalid path or bookmark path parameter");

    const QString loaded = fixture(u"reply_echo.bundle"_s);
    SystemLogCapture log;
    const auto handler = bridge.registerPluginWithBookmark(u"/a/Echo.bundle"_s, loaded, 2).valueOr(nullptr);
    ASSERT_TRUE(handler);
    EXPECT_EQ(handler->toolDescriptor()->fullPathName, loaded);
    EXPECT_EQ(bridge.availableTools().size(), 1);
    EXPECT_TRUE(log.contains("[ExternToolBridge::registerPluginWithBookmark] Loading: /a/Echo.bundle via bookmark: " + loaded));
    EXPECT_TRUE(log.contains(u"[ExternToolBridge::registerPluginWithBookmark] Successfully registered: reply_echo"_s));

    EXPECT_FALSE(bridge.registerPluginWithBookmark(u"/a/Gone.so"_s, loaded + u"x"_s, 2).ok());
    EXPECT_TRUE(log.contains("[ExternToolBridge::registerPluginWithBookmark] Failed to load plugin at " + loaded + u"x"_s));
    EXPECT_EQ(bridge.availableTools().size(), 1);
}
