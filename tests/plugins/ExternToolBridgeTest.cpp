#include "tests/plugins/PluginTestSupport.h"
#include "tests/plugins/SystemLogCapture.h"
#include "tools/plugins/ExternToolBridge.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QRegularExpression>

using PluginTestSupport::fixture;

namespace {

// The paths the loader was asked to load, in order, from its entry lines.
QStringList loadAttempts(const SystemLogCapture &log)
{
    static const QRegularExpression entry(QStringLiteral("^\\[CustomToolHandler::loadToolAtPath\\] type=(\\d) path=.*/([^/]+)$"));
    QStringList attempts;
    for (const QString &line : log.captured()) {
        const QRegularExpressionMatch match = entry.match(line);
        if (match.hasMatch())
            attempts.append(match.captured(2) + QLatin1Char(':') + match.captured(1));
    }
    return attempts;
}

void copyTree(const QString &from, const QString &to)
{
    const QFileInfo source(from);
    if (!source.isDir()) {
        QFile::copy(from, to);
        return;
    }
    QDir().mkpath(to);
    for (const QString &entry : QDir(from).entryList(QDir::AllEntries | QDir::NoDotAndDotDot))
        copyTree(from + QLatin1Char('/') + entry, to + QLatin1Char('/') + entry);
}

// A folder holding each form of the good fixture, a text file, a name with ".so" inside,
// and a sub-folder with a plug-in that must not be reached.
QString mixedFolder()
{
    const QString dir = TestSupport::makeTempDir(QStringLiteral("discovery"));
    copyTree(fixture(QStringLiteral("reply_echo.so")), dir + QStringLiteral("/c_library.so"));
    copyTree(fixture(QStringLiteral("reply_echo.bundle")), dir + QStringLiteral("/a_bundle.bundle"));
    QDir().rename(dir + QStringLiteral("/a_bundle.bundle/Contents/Linux/reply_echo.so"),
                  dir + QStringLiteral("/a_bundle.bundle/Contents/Linux/a_bundle.so"));
    copyTree(dir + QStringLiteral("/a_bundle.bundle"), dir + QStringLiteral("/b_plugin.plugin"));
    QDir().rename(dir + QStringLiteral("/b_plugin.plugin/Contents/Linux/a_bundle.so"),
                  dir + QStringLiteral("/b_plugin.plugin/Contents/Linux/b_plugin.so"));
    QFile text(dir + QStringLiteral("/d_notes.txt"));
    text.open(QIODevice::WriteOnly);
    text.write("not a plug-in");
    text.close();
    QFile::copy(fixture(QStringLiteral("reply_echo.so")), dir + QStringLiteral("/e_versioned.so.1"));
    QDir().mkpath(dir + QStringLiteral("/f_sub"));
    QFile::copy(fixture(QStringLiteral("reply_echo.so")), dir + QStringLiteral("/f_sub/g_deep.so"));
    return dir;
}

QVariantMap info(const QString &path, int type, const QString &bookmarkPath)
{
    return {{QStringLiteral("path"), path}, {QStringLiteral("pluginType"), type}, {QStringLiteral("bookmarkPath"), bookmarkPath}};
}

}  // namespace

TEST(ToolDiscoveryService, ScansOneFolderLevelInNameOrderAndTellsTheFormByTheEnding)
{
    const QString dir = mixedFolder();
    ExternToolBridge bridge;
    SystemLogCapture log;
    bridge.startPluginDiscoveryAtPath(dir);

    EXPECT_EQ(loadAttempts(log), (QStringList{QStringLiteral("a_bundle.bundle:2"), QStringLiteral("b_plugin.plugin:3"),
                                              QStringLiteral("c_library.so:1")}));
    EXPECT_EQ(bridge.availableTools().size(), 3);
    EXPECT_TRUE(log.contains(QStringLiteral("[ToolDiscoveryService::startDiscoveryAtPath] path: ") + dir));
    EXPECT_TRUE(log.contains(QStringLiteral("[ToolDiscoveryService] Discovery complete. Found 3 tools")));
}

TEST(ToolDiscoveryService, AFailedEntryCostsOnlyItselfAndAMissingFolderStillEmptiesTheList)
{
    const QString dir = TestSupport::makeTempDir(QStringLiteral("discovery"));
    QFile::copy(fixture(QStringLiteral("fixture_null_descriptor.so")), dir + QStringLiteral("/a_broken.so"));
    QFile::copy(fixture(QStringLiteral("reply_echo.so")), dir + QStringLiteral("/b_good.so"));
    ToolDiscoveryService service;
    {
        SystemLogCapture log;
        service.startDiscoveryAtPath(dir);
        EXPECT_TRUE(log.contains(
            QStringLiteral("[ToolDiscoveryService] Failed to load tool a_broken.so: Invalid tool descriptor. NULL pointer.")));
    }
    ASSERT_EQ(service.availableTools().size(), 1);
    const ToolDiscoveryService::Handler kept = service.availableTools().first();
    ASSERT_NE(kept->pluginHandle(), nullptr);

    SystemLogCapture log;
    service.startDiscoveryAtPath(dir + QStringLiteral("/gone"));
    EXPECT_TRUE(service.availableTools().isEmpty());
    // The refill unloaded what the list held.
    EXPECT_EQ(kept->pluginHandle(), nullptr);
    EXPECT_TRUE(log.contains(QStringLiteral("[ToolDiscoveryService] Plugin directory does not exist: ") + dir +
                             QStringLiteral("/gone")));
}

TEST(ToolDiscoveryService, StoredPluginListsSkipIncompleteEntriesAndLoadTheRest)
{
    const QString good = fixture(QStringLiteral("reply_echo.so"));
    const QVariantList plugins = {
        QVariantMap{{QStringLiteral("path"), good}, {QStringLiteral("pluginType"), 1}},  // no bookmarkPath
        info(QStringLiteral("/registered/at/Echo.so"), 1, good),
        info(QStringLiteral("/registered/at/Gone.so"), 1, good + QStringLiteral(".missing")),
    };

    ToolDiscoveryService service;
    {
        SystemLogCapture log;
        service.startDiscoveryWithBookmarkedPlugins(plugins);
        const QStringList lines = log.captured();
        EXPECT_TRUE(lines.contains(QStringLiteral("[ToolDiscoveryService::startDiscoveryWithBookmarkedPlugins] Processing 3 plugins")));
        EXPECT_TRUE(lines.contains(QStringLiteral("[ToolDiscoveryService] Invalid plugin info: missing required keys")));
        EXPECT_TRUE(lines.contains(QStringLiteral("[ToolDiscoveryService] Loading plugin: Echo.so (type: 1)")));
        EXPECT_TRUE(lines.contains(QStringLiteral("[ToolDiscoveryService] Successfully loaded: reply_echo")));
        EXPECT_TRUE(lines.filter(QStringLiteral("[ToolDiscoveryService] Failed to load tool Gone.so: ")).size() == 1);
        EXPECT_TRUE(lines.contains(QStringLiteral("[ToolDiscoveryService] Discovery complete. Found 1 tools")));
    }
    ASSERT_EQ(service.availableTools().size(), 1);
    EXPECT_EQ(service.availableTools().first()->toolDescriptor()->fullPathName, good);

    // The bridge's own entry point does the same work with its own lines.
    ExternToolBridge bridge;
    SystemLogCapture log;
    bridge.startPluginDiscoveryWithBookmarks(plugins);
    EXPECT_EQ(bridge.availableTools().size(), 1);
    EXPECT_TRUE(log.contains(QStringLiteral("[ExternToolBridge] Invalid plugin info dictionary")));
    EXPECT_TRUE(log.contains(QStringLiteral("[ExternToolBridge] Loading plugin: Echo.so (type: 1)")));
    EXPECT_TRUE(log.contains(QStringLiteral("[ExternToolBridge] Successfully loaded plugin: reply_echo")));
    EXPECT_TRUE(log.contains(
        QStringLiteral("[ExternToolBridge::startPluginDiscoveryWithBookmarks] Discovery complete. Loaded 1 tools")));
}

TEST(ExternToolBridge, LoadPluginHandsOverAHandlerThatIsInNoList)
{
    ExternToolBridge bridge;
    AppError error;
    std::unique_ptr<CustomToolHandler> handler =
        bridge.loadPlugin(fixture(QStringLiteral("reply_echo.so")), CustomToolHandler::DynamicLibrary, &error);
    ASSERT_TRUE(handler);
    EXPECT_TRUE(error.domain.isEmpty());
    EXPECT_TRUE(bridge.availableTools().isEmpty());

    // A failure keeps the loader's cause in the caller's cell.
    SystemLogCapture log;
    EXPECT_FALSE(bridge.loadPlugin(fixture(QStringLiteral("missing.so")), CustomToolHandler::DynamicLibrary, &error));
    EXPECT_EQ(error.domain, QStringLiteral("CustomToolHandler"));
    EXPECT_EQ(error.code, 1);
    EXPECT_TRUE(log.contains(QStringLiteral("[ExternToolBridge::loadPlugin] Failed to load custom plugin")));

    // Another interface version fails without a cause.
    AppError none;
    EXPECT_FALSE(bridge.loadPlugin(fixture(QStringLiteral("fixture_abi4.so")), CustomToolHandler::DynamicLibrary, &none));
    EXPECT_TRUE(none.domain.isEmpty());
}

TEST(ExternToolBridge, UnloadingLeavesADeadHandlerThatLookUpsKeepFinding)
{
    ExternToolBridge bridge;
    const QString path = fixture(QStringLiteral("reply_echo.so"));
    const auto first = bridge.registerPlugin(path, CustomToolHandler::DynamicLibrary);
    ASSERT_TRUE(first);
    EXPECT_EQ(bridge.findPlugin(QStringLiteral("reply_echo")), first);

    SystemLogCapture log;
    AppError error;
    bridge.unloadPlugin(QStringLiteral("reply_echo"), &error);
    EXPECT_TRUE(error.domain.isEmpty());
    EXPECT_TRUE(log.contains(QStringLiteral("[ExternToolBridge::unloadPlugin] Unloading plugin: reply_echo")));
    EXPECT_EQ(first->pluginHandle(), nullptr);
    EXPECT_EQ(bridge.availableTools().size(), 1);

    const auto second = bridge.registerPlugin(path, CustomToolHandler::DynamicLibrary);
    ASSERT_TRUE(second);
    EXPECT_EQ(bridge.availableTools().size(), 2);
    EXPECT_EQ(bridge.findPlugin(QStringLiteral("reply_echo")), first);

    // An unknown name is no error; an absent one is error 116.
    bridge.unloadPlugin(QStringLiteral("nobody"), &error);
    EXPECT_TRUE(error.domain.isEmpty());
    EXPECT_FALSE(bridge.findPlugin(QStringLiteral("nobody"), &error));
    EXPECT_TRUE(error.domain.isEmpty());
    bridge.unloadPlugin(QString(), &error);
    EXPECT_EQ(error.domain, QStringLiteral("ExternToolBridge"));
    EXPECT_EQ(error.code, 116);
    EXPECT_EQ(error.description, QStringLiteral("Invalid 'name' parameter"));
    AppError findError;
    EXPECT_FALSE(bridge.findPlugin(QString(), &findError));
    EXPECT_EQ(findError.code, 116);
}

TEST(ExternToolBridge, RegisterWithBookmarkLoadsFromTheBookmarkPath)
{
    ExternToolBridge bridge;
    AppError error;
    EXPECT_FALSE(bridge.registerPluginWithBookmark(QStringLiteral("/a/Echo.so"), QString(), 1, &error));
    EXPECT_EQ(error.code, 116);
    EXPECT_EQ(error.description, QStringLiteral("Invalid path or bookmark path parameter"));

    const QString loaded = fixture(QStringLiteral("reply_echo.bundle"));
    SystemLogCapture log;
    const auto handler = bridge.registerPluginWithBookmark(QStringLiteral("/a/Echo.bundle"), loaded, 2);
    ASSERT_TRUE(handler);
    EXPECT_EQ(handler->toolDescriptor()->fullPathName, loaded);
    EXPECT_EQ(bridge.availableTools().size(), 1);
    EXPECT_TRUE(log.contains(QStringLiteral("[ExternToolBridge::registerPluginWithBookmark] Loading: /a/Echo.bundle via bookmark: ") +
                             loaded));
    EXPECT_TRUE(log.contains(QStringLiteral("[ExternToolBridge::registerPluginWithBookmark] Successfully registered: reply_echo")));

    EXPECT_FALSE(bridge.registerPluginWithBookmark(QStringLiteral("/a/Gone.so"), loaded + QStringLiteral("x"), 2));
    EXPECT_TRUE(log.contains(QStringLiteral("[ExternToolBridge::registerPluginWithBookmark] Failed to load plugin at ") +
                             loaded + QStringLiteral("x")));
    EXPECT_EQ(bridge.availableTools().size(), 1);
}
