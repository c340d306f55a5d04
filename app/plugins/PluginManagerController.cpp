#include "app/plugins/PluginManagerController.h"

#include "app/security/AccessPanel.h"
#include "base/SystemLog.h"
#include "tools/plugins/PluginController.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QPointer>
#include <QThread>
#include <QThreadPool>
#include <mutex>

namespace {

QVariant optionalValue(const std::optional<Plugin> &plugin)
{
    return plugin ? QVariant::fromValue(*plugin) : QVariant();
}

}  // namespace

PluginManagerController::PluginManagerController(PluginController *registry, QObject *parent)
    : AbstractController(parent), m_registry(registry)
{
    connect(m_registry, &PluginController::pluginsChanged, this, [this] {
        emit pluginsChanged();
        notifyChange();
    });
    connect(m_registry, &PluginController::isLoadingChanged, this, [this] {
        emit isLoadingChanged();
        notifyChange();
    });
}

PluginManagerController::~PluginManagerController() = default;

QList<Plugin> PluginManagerController::plugins() const { return m_registry->plugins(); }

std::optional<Plugin> PluginManagerController::plugin(const QUuid &id) const { return m_registry->plugin(id); }

bool PluginManagerController::isLoading() const { return m_registry->isLoading(); }

QVariant PluginManagerController::pendingPluginValue() const { return optionalValue(m_pendingPlugin); }
QVariant PluginManagerController::pluginToDeleteValue() const { return optionalValue(m_pluginToDelete); }
QVariant PluginManagerController::securityInfoPluginValue() const { return optionalValue(m_securityInfoPlugin); }
QVariant PluginManagerController::enableWizardPluginValue() const { return optionalValue(m_enableWizardPlugin); }

void PluginManagerController::onOwnThread(std::function<void()> fn)
{
    if (QThread::currentThread() == thread()) {
        fn();
        return;
    }
    QPointer<PluginManagerController> weak(this);
    QMetaObject::invokeMethod(
        this, [weak, fn = std::move(fn)] { if (weak) fn(); }, Qt::QueuedConnection);
}

void PluginManagerController::alert(const PluginRefusal &refusal)
{
    showAlert(refusal.title(), refusal.message);
}

void PluginManagerController::setPending(std::optional<Plugin> plugin, bool showDialog)
{
    m_pendingPlugin = std::move(plugin);
    emit pendingPluginChanged();
    if (m_showApprovalDialog != showDialog) {
        m_showApprovalDialog = showDialog;
        emit showApprovalDialogChanged();
    }
    notifyChange();
}

// ---- Registration ----

void PluginManagerController::addPlugin(const QUrl &url)
{
    PluginRefusal refusal;
    const std::optional<Plugin> plugin = m_registry->prepareRegistration(url, &refusal);
    if (!plugin) {
        alert(refusal);
        return;
    }
    onOwnThread([this, plugin = *plugin] { setPending(plugin, true); });
}

void PluginManagerController::approve()
{
    if (!m_pendingPlugin)
        return;
    if (const std::optional<PluginRefusal> refusal = m_registry->registerPlugin(*m_pendingPlugin)) {
        alert(*refusal);
        // A name registered meanwhile leaves the question open; any other refusal ends it.
        if (!refusal->alreadyRegistered)
            setPending(std::nullopt, false);
        return;
    }
    setPending(std::nullopt, false);
}

void PluginManagerController::deny()
{
    setPending(std::nullopt, false);
}

// ---- Enabling ----

void PluginManagerController::showEnableWizard(const Plugin &plugin)
{
    m_enableWizardPlugin = plugin;
    emit enableWizardPluginChanged();
    if (!m_showingEnableWizard) {
        m_showingEnableWizard = true;
        emit showingEnableWizardChanged();
    }
    notifyChange();
}

void PluginManagerController::dismissEnableWizard()
{
    if (m_showingEnableWizard) {
        m_showingEnableWizard = false;
        emit showingEnableWizardChanged();
    }
    notifyChange();
}

void PluginManagerController::enablePlugin(const Plugin &plugin, const QUrl &url)
{
    if (const std::optional<PluginRefusal> refusal = m_registry->enablePlugin(plugin, url))
        alert(*refusal);
}

void PluginManagerController::disablePlugin(const Plugin &plugin)
{
    m_registry->disablePlugin(plugin);
}

void PluginManagerController::togglePlugin(const Plugin &plugin)
{
    const std::optional<Plugin> current = m_registry->plugin(plugin.id);
    if (current.value_or(plugin).isEnabled)
        m_registry->disablePlugin(current.value_or(plugin));
    else
        SystemLog::write(QStringLiteral("[PluginController] Enabling requires user file selection"));
}

// ---- Uninstalling ----

void PluginManagerController::requestUninstall(const Plugin &plugin)
{
    m_pluginToDelete = plugin;
    emit pluginToDeleteChanged();
    if (!m_showDeleteConfirmDialog) {
        m_showDeleteConfirmDialog = true;
        emit showDeleteConfirmDialogChanged();
    }
    notifyChange();
}

void PluginManagerController::cancelUninstall()
{
    m_pluginToDelete.reset();
    emit pluginToDeleteChanged();
    if (m_showDeleteConfirmDialog) {
        m_showDeleteConfirmDialog = false;
        emit showDeleteConfirmDialogChanged();
    }
    notifyChange();
}

void PluginManagerController::confirmUninstall()
{
    const std::optional<Plugin> plugin = m_pluginToDelete;
    cancelUninstall();
    if (!plugin)
        return;
    QPointer<PluginManagerController> weak(this);
    QThreadPool::globalInstance()->start([weak, plugin = *plugin] {
        if (weak)
            weak->uninstallPlugin(plugin);
    });
}

void PluginManagerController::uninstallPlugin(const Plugin &plugin)
{
    if (const std::optional<PluginRefusal> refusal = m_registry->uninstallPlugin(plugin))
        alert(*refusal);
}

// ---- The security sheet ----

void PluginManagerController::showSecurityInfo(const Plugin &plugin)
{
    m_securityInfoPlugin = plugin;
    emit securityInfoPluginChanged();
    if (!m_showingSecurityInfo) {
        m_showingSecurityInfo = true;
        emit showingSecurityInfoChanged();
    }
    notifyChange();
}

void PluginManagerController::dismissSecurityInfo()
{
    if (m_showingSecurityInfo) {
        m_showingSecurityInfo = false;
        emit showingSecurityInfoChanged();
    }
    notifyChange();
}

// ---- The open panel ----

void PluginManagerController::chooseAndAddPlugin(const QString &startDirectory)
{
    QPointer<PluginManagerController> weak(this);
    AccessPanel(m_registry->security()).requestPluginAccess(
        [weak](const QUrl &url, const std::optional<AppError> &error) {
            if (!weak)
                return;
            if (error) {
                weak->showAlert(QStringLiteral("Error"), error->description);
                return;
            }
            if (url.isEmpty())
                return;  // the user cancelled
            // Loading a library may take a moment; the window stays responsive meanwhile.
            QThreadPool::globalInstance()->start([weak, url] {
                if (weak)
                    weak->addPlugin(url);
            });
        },
        startDirectory.isEmpty() ? QDir::homePath() : startDirectory);
}

void PluginManagerController::chooseFileAndEnable()
{
    if (!m_enableWizardPlugin)
        return;
    const Plugin plugin = *m_enableWizardPlugin;
    dismissEnableWizard();
    const QString start = PluginController::folderOf(plugin.path);
    QPointer<PluginManagerController> weak(this);
    AccessPanel(m_registry->security()).requestPluginAccess(
        [weak, plugin](const QUrl &url, const std::optional<AppError> &error) {
            if (!weak)
                return;
            if (error) {
                weak->showAlert(QStringLiteral("Error"), error->description);
                return;
            }
            if (!url.isEmpty())
                weak->enablePlugin(plugin, url);
        },
        QFileInfo(start).isDir() ? start : QDir::homePath());
}
