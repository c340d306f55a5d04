#pragma once

#include "base/AppError.h"
#include "base/AbstractController.h"
#include "tools/plugins/ExternToolBridge.h"
#include "tools/plugins/Plugin.h"
#include "base/JSONToolResult.h"

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
// its flag. The screens are thin over the published fields below: a view opens a sheet
// when its flag turns true and closes it when it turns false.
//
// Published fields change on the main thread only. callPlugin reads a copy of the list
// taken under a lock, so tool calls on engine workers never see a list half changed.
class PluginController : public AbstractController {
    Q_OBJECT
    Q_PROPERTY(QList<Plugin> plugins READ plugins NOTIFY pluginsChanged)
    Q_PROPERTY(bool isLoading READ isLoading NOTIFY isLoadingChanged)
    Q_PROPERTY(QVariant pendingPlugin READ pendingPluginValue NOTIFY pendingPluginChanged)
    Q_PROPERTY(QVariant pluginToDelete READ pluginToDeleteValue NOTIFY pluginToDeleteChanged)
    Q_PROPERTY(bool showApprovalDialog READ showApprovalDialog NOTIFY showApprovalDialogChanged)
    Q_PROPERTY(bool showingSecurityInfo READ showingSecurityInfo NOTIFY showingSecurityInfoChanged)
    Q_PROPERTY(bool showingEnableWizard READ showingEnableWizard NOTIFY showingEnableWizardChanged)
    Q_PROPERTY(bool showDeleteConfirmDialog READ showDeleteConfirmDialog NOTIFY showDeleteConfirmDialogChanged)
    Q_PROPERTY(QVariant securityInfoPlugin READ securityInfoPluginValue NOTIFY securityInfoPluginChanged)
    Q_PROPERTY(QVariant enableWizardPlugin READ enableWizardPluginValue NOTIFY enableWizardPluginChanged)

public:
    static inline const QString registeredPluginsKey = QStringLiteral("RegisteredPlugins");

    static PluginController *shared();

    // Over the shared security scopes and log. The stored list is read here.
    explicit PluginController(QObject *parent = nullptr);
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

    // The plug-in screen may always register one more.
    bool canAdd() const override { return true; }

    QList<Plugin> plugins() const;
    std::optional<Plugin> plugin(const QUuid &id) const;
    // The first listed plug-in whose descriptor has this name.
    std::optional<Plugin> pluginNamed(const QString &name) const;
    bool isLoading() const { return m_isLoading; }
    std::optional<Plugin> pendingPlugin() const { return m_pendingPlugin; }
    std::optional<Plugin> pluginToDelete() const { return m_pluginToDelete; }
    bool showApprovalDialog() const { return m_showApprovalDialog; }
    bool showingSecurityInfo() const { return m_showingSecurityInfo; }
    bool showingEnableWizard() const { return m_showingEnableWizard; }
    bool showDeleteConfirmDialog() const { return m_showDeleteConfirmDialog; }
    std::optional<Plugin> securityInfoPlugin() const { return m_securityInfoPlugin; }
    std::optional<Plugin> enableWizardPlugin() const { return m_enableWizardPlugin; }

    // Reads the stored list; every plug-in comes back disabled. Runs at creation.
    void loadPlugins();

    // The user picked a plug-in file: loads it, and on success sets it pending for the
    // approval dialog. Failures end in the "Error" alert. Any thread; the published fields
    // change on the main thread.
    void addPlugin(const QUrl &url);
    // "Approve & Register" and "Deny registration" of the approval dialog. Main thread.
    void approve();
    void deny();

    // The enable wizard for one plug-in, and its dismissal.
    void showEnableWizard(const Plugin &plugin);
    void dismissEnableWizard();
    // The user picked the plug-in's file in the wizard. Its descriptor must carry the
    // registered name; the stored path stays as it is. Main thread.
    void enablePlugin(const Plugin &plugin, const QUrl &url);
    void disablePlugin(const Plugin &plugin);
    // A switch in the list: disables an enabled plug-in; enabling goes through the wizard.
    void togglePlugin(const Plugin &plugin);

    // The uninstall confirmation: asking, cancelling, confirming (which uninstalls in the
    // background).
    void requestUninstall(const Plugin &plugin);
    void cancelUninstall();
    void confirmUninstall();
    // Forgets the plug-in: list, flag and bookmark. The file itself stays. Any thread.
    void uninstallPlugin(const Plugin &plugin);

    void showSecurityInfo(const Plugin &plugin);
    void dismissSecurityInfo();

    // What the screens start: the open panel for a plug-in file (through the security
    // scopes' panel presenter, starting in the home folder), then addPlugin on a
    // background thread, or enablePlugin for the wizard's plug-in.
    void chooseAndAddPlugin(const QString &startDirectory = QString());
    void chooseFileAndEnable();

    // The form a picked file's lower-cased extension tells: "so" 1, "bundle" 2, "plugin" 3;
    // 0 for any other.
    static int pluginTypeForExtension(const QString &path);
    // The extension as the "Unknown plugin type: " alert names it.
    static QString extensionOf(const QString &path);

signals:
    void pluginsChanged();
    void isLoadingChanged();
    void pendingPluginChanged();
    void pluginToDeleteChanged();
    void showApprovalDialogChanged();
    void showingSecurityInfoChanged();
    void showingEnableWizardChanged();
    void showDeleteConfirmDialogChanged();
    void securityInfoPluginChanged();
    void enableWizardPluginChanged();

private:
    QVariant pendingPluginValue() const;
    QVariant pluginToDeleteValue() const;
    QVariant securityInfoPluginValue() const;
    QVariant enableWizardPluginValue() const;

    // Runs fn on the controller's thread: at once when already there, else queued.
    void onOwnThread(std::function<void()> fn);
    void setPlugins(QList<Plugin> list);
    void setLoading(bool loading);
    void setPending(std::optional<Plugin> plugin, bool showDialog);
    void setEnabledFlag(const Plugin &plugin, bool enabled);
    // Writes the list (with the change already made) and says what changed.
    void saveList(const QList<Plugin> &list, const QString &changeLine);
    bool enableLoaded(const Plugin &plugin, const QUrl &url);

    BookmarkController *m_security;
    LogController *m_logger;
    ExternToolBridge m_bridge;

    mutable QMutex m_listMutex;  // guards m_plugins
    QList<Plugin> m_plugins;
    bool m_isLoading = false;
    std::optional<Plugin> m_pendingPlugin;
    std::optional<Plugin> m_pluginToDelete;
    bool m_showApprovalDialog = false;
    bool m_showingSecurityInfo = false;
    bool m_showingEnableWizard = false;
    bool m_showDeleteConfirmDialog = false;
    std::optional<Plugin> m_securityInfoPlugin;
    std::optional<Plugin> m_enableWizardPlugin;
};
