#pragma once

#include "base/AppError.h"
#include "base/AbstractController.h"
#include "tools/plugins/ExternToolBridge.h"
#include "tools/plugins/Plugin.h"
#include "tools/plugins/PluginRefusal.h"
#include "tools/results/JSONToolResult.h"

#include <QList>
#include <QMutex>
#include <QString>
#include <QUrl>
#include <QVariant>
#include <functional>
#include <optional>

class BookmarkController;
class LogController;

// The gate between a tool call and the code that carries it out: native plug-ins and
// script tools. Process-wide, living on the main thread; the call operations run on the
// caller's thread.
//
// The registry of native plug-ins: a plug-in gets in only by the user's approval, and runs
// only while enabled. Enabling needs the user to pick the plug-in's file again, every time,
// and after every start of the application each plug-in is disabled. The list is stored
// under "RegisteredPlugins" as one JSON array; a boolean under each plug-in's path mirrors
// its flag. What the user is asked, and when, is the plug-in screen's controller's
// (PluginManagerController); an operation that cannot be done says why as a PluginRefusal.
//
// Published fields change on the main thread only. callPlugin reads a copy of the list
// taken under a lock, so tool calls on engine workers never see a list half changed.
class PluginController : public AbstractController {
    Q_OBJECT
    Q_PROPERTY(QList<Plugin> plugins READ plugins NOTIFY pluginsChanged)
    Q_PROPERTY(bool isLoading READ isLoading NOTIFY isLoadingChanged)

public:
    static inline const QString registeredPluginsKey = QStringLiteral("RegisteredPlugins");

    // The stored list is read here.
    PluginController(BookmarkController *security, LogController *logger, QObject *parent = nullptr);
    ~PluginController() override;

    // Runs one call of a native plug-in tool: finds the enabled plug-in of that descriptor
    // name, loads a handler of its own for this call, calls the entry and checks the shape
    // of its answer. Never fails otherwise than through the result (code -1, level info).
    // Any thread; several calls of one plug-in may run at once.
    JSONToolResult callPlugin(const QString &sid, const QString &pluginName, const QString &json);

    BookmarkController *security() const { return m_security; }
    LogController *logger() const { return m_logger; }
    ExternToolBridge &bridge() { return m_bridge; }

    QList<Plugin> plugins() const;
    std::optional<Plugin> plugin(const QUuid &id) const;
    // The first listed plug-in whose descriptor has this name.
    std::optional<Plugin> pluginNamed(const QString &name) const;
    bool isLoading() const { return m_isLoading; }

    // Reads the stored list; every plug-in comes back disabled. Runs at creation.
    void loadPlugins();

    // The user picked a plug-in file: reads its descriptor (in a process of its own where
    // an inspector is installed, else by loading it into the bridge, where it waits for the
    // decision) and gives the record approval would register: a fresh id, disabled, with
    // the file's bookmark. Any thread.
    std::optional<Plugin> prepareRegistration(const QUrl &url, PluginRefusal *refusal);
    // Registers an approved record: the file must still be there; it joins the user's
    // locations, the stored list and the published one, disabled. Main thread.
    std::optional<PluginRefusal> registerPlugin(const Plugin &plugin);

    // The user picked the plug-in's file to enable it. Its descriptor must carry the
    // registered name; the stored path stays as it is. Any thread; the flag changes on
    // the main thread.
    std::optional<PluginRefusal> enablePlugin(const Plugin &plugin, const QUrl &url);
    void disablePlugin(const Plugin &plugin);
    // Forgets the plug-in: list, flag and bookmark. The file itself stays. Any thread.
    std::optional<PluginRefusal> uninstallPlugin(const Plugin &plugin);

    // The form a picked file's lower-cased extension tells: "so" 1, "bundle" 2, "plugin" 3;
    // 0 for any other.
    static int pluginTypeForExtension(const QString &path);
    // The extension as the "Unknown plugin type: " alert names it.
    static QString extensionOf(const QString &path);
    // The folder a plug-in's file lies in, for an open panel that starts there.
    static QString folderOf(const QString &path);

signals:
    void pluginsChanged();
    void isLoadingChanged();

private:
    // Runs fn on the controller's thread: at once when already there, else queued.
    void onOwnThread(std::function<void()> fn);
    void setPlugins(QList<Plugin> list);
    void setLoading(bool loading);
    void setEnabledFlag(const Plugin &plugin, bool enabled);
    // Writes the list (with the change already made) and says what changed.
    void saveList(const QList<Plugin> &list, const QString &changeLine);

    BookmarkController *m_security;
    LogController *m_logger;
    ExternToolBridge m_bridge;

    mutable QMutex m_listMutex;  // guards m_plugins
    QList<Plugin> m_plugins;
    bool m_isLoading = false;
};
