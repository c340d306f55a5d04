#pragma once

#include "base/AbstractController.h"
#include "tools/plugins/Plugin.h"
#include "tools/plugins/PluginRefusal.h"

#include <QList>
#include <QString>
#include <QUrl>
#include <QVariant>
#include <functional>
#include <optional>

class PluginController;

// What the Plugin Manager screen (and `kelvara plugin`) asks of the user around the plug-in
// registry: the approval of a picked file, the enable wizard, the uninstall confirmation
// and the security sheet, each a published flag with the plug-in it concerns, and the
// alerts of what the registry refused. The screens are thin over these fields: a view opens
// a sheet when its flag turns true and closes it when it turns false.
//
// The list itself and every change to it are the registry's (PluginController); this
// controller republishes the list and its loading mark so a view binds to one object.
// Published fields change on the main thread only.
class PluginManagerController : public AbstractController {
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
    // Over the given registry. The application has one (ApplicationServices), so that every
    // window's Plugin Manager shows the same sheets.
    explicit PluginManagerController(PluginController *registry, QObject *parent = nullptr);
    ~PluginManagerController() override;

    PluginController *registry() const { return m_registry; }

    // The plug-in screen may always register one more.
    bool canAdd() const override { return true; }

    QList<Plugin> plugins() const;
    std::optional<Plugin> plugin(const QUuid &id) const;
    bool isLoading() const;
    std::optional<Plugin> pendingPlugin() const { return m_pendingPlugin; }
    std::optional<Plugin> pluginToDelete() const { return m_pluginToDelete; }
    bool showApprovalDialog() const { return m_showApprovalDialog; }
    bool showingSecurityInfo() const { return m_showingSecurityInfo; }
    bool showingEnableWizard() const { return m_showingEnableWizard; }
    bool showDeleteConfirmDialog() const { return m_showDeleteConfirmDialog; }
    std::optional<Plugin> securityInfoPlugin() const { return m_securityInfoPlugin; }
    std::optional<Plugin> enableWizardPlugin() const { return m_enableWizardPlugin; }

    // The user picked a plug-in file: the registry reads it, and on success it is set
    // pending for the approval dialog. Failures end in an alert. Any thread; the published
    // fields change on the main thread.
    void addPlugin(const QUrl &url);
    // "Approve & Register" and "Deny registration" of the approval dialog. Main thread.
    void approve();
    void deny();

    // The enable wizard for one plug-in, and its dismissal.
    void showEnableWizard(const Plugin &plugin);
    void dismissEnableWizard();
    // The user picked the plug-in's file in the wizard; a refusal ends in an alert.
    void enablePlugin(const Plugin &plugin, const QUrl &url);
    void disablePlugin(const Plugin &plugin);
    // A switch in the list: disables an enabled plug-in; enabling goes through the wizard.
    void togglePlugin(const Plugin &plugin);

    // The uninstall confirmation: asking, cancelling, confirming (which uninstalls in the
    // background).
    void requestUninstall(const Plugin &plugin);
    void cancelUninstall();
    void confirmUninstall();
    // Uninstalls at once; a refusal ends in an alert. Any thread.
    void uninstallPlugin(const Plugin &plugin);

    void showSecurityInfo(const Plugin &plugin);
    void dismissSecurityInfo();

    // What the screens start: the open panel for a plug-in file (AccessPanel, starting
    // in the home folder), then addPlugin on a background thread, or enablePlugin for the
    // wizard's plug-in.
    void chooseAndAddPlugin(const QString &startDirectory = QString());
    void chooseFileAndEnable();

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
    void setPending(std::optional<Plugin> plugin, bool showDialog);
    void alert(const PluginRefusal &refusal);

    PluginController *m_registry;
    std::optional<Plugin> m_pendingPlugin;
    std::optional<Plugin> m_pluginToDelete;
    bool m_showApprovalDialog = false;
    bool m_showingSecurityInfo = false;
    bool m_showingEnableWizard = false;
    bool m_showDeleteConfirmDialog = false;
    std::optional<Plugin> m_securityInfoPlugin;
    std::optional<Plugin> m_enableWizardPlugin;
};
