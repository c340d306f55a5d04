#include "tools/plugins/PluginController.h"

#include "tools/security/FileAccessPolicy.h"

#include "base/SystemLog.h"
#include "base/UserDefaults.h"
#include "diagnostics/LogController.h"
#include "tools/plugins/PluginInspector.h"
#include "tools/plugins/ToolDiscoveryService.h"
#include "tools/security/BookmarkController.h"
#include "tools/security/ScopedSecurityAccess.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMutexLocker>
#include <QPointer>
#include <QThread>
#include <QThreadPool>
#include <mutex>

namespace {

const QString kError = QStringLiteral("Error");

void print(const QString &line)
{
    SystemLog::write(line);
}

QString withoutTrailingSlashes(QString path)
{
    while (path.size() > 1 && path.endsWith(QLatin1Char('/')))
        path.chop(1);
    return path;
}

// One writer of the stored list at a time: approvals run on the main thread, uninstalls
// on the thread pool.
QMutex &storeMutex()
{
    static QMutex mutex;
    return mutex;
}

void storeFlag(const QString &path, bool enabled)
{
    QMutexLocker locker(&storeMutex());
    auto defaults = UserDefaults::standard();
    defaults->setValue(path, enabled);
    defaults->sync();
}

}  // namespace

PluginController *PluginController::shared()
{
    static PluginController *instance = nullptr;
    static std::once_flag once;
    std::call_once(once, [] {
        auto *controller = new PluginController;
        // Made wherever it was first asked for; like every controller it lives on the
        // main thread.
        if (auto *app = QCoreApplication::instance(); app && controller->thread() != app->thread())
            controller->moveToThread(app->thread());
        instance = controller;
    });
    return instance;
}

PluginController::PluginController(QObject *parent)
    : PluginController(BookmarkController::shared(), LogController::shared(), parent)
{
}

PluginController::PluginController(BookmarkController *security, LogController *logger, QObject *parent)
    : AbstractController(parent), m_security(security), m_logger(logger)
{
    loadPlugins();
}

PluginController::~PluginController() = default;

// ---- Published state ----

namespace {
QVariant optionalValue(const std::optional<Plugin> &plugin)
{
    return plugin ? QVariant::fromValue(*plugin) : QVariant();
}
}  // namespace

QVariant PluginController::pendingPluginValue() const { return optionalValue(m_pendingPlugin); }
QVariant PluginController::pluginToDeleteValue() const { return optionalValue(m_pluginToDelete); }
QVariant PluginController::securityInfoPluginValue() const { return optionalValue(m_securityInfoPlugin); }
QVariant PluginController::enableWizardPluginValue() const { return optionalValue(m_enableWizardPlugin); }

QList<Plugin> PluginController::plugins() const
{
    QMutexLocker locker(&m_listMutex);
    return m_plugins;
}

std::optional<Plugin> PluginController::plugin(const QUuid &id) const
{
    QMutexLocker locker(&m_listMutex);
    for (const Plugin &plugin : m_plugins) {
        if (plugin.id == id)
            return plugin;
    }
    return std::nullopt;
}

std::optional<Plugin> PluginController::pluginNamed(const QString &name) const
{
    QMutexLocker locker(&m_listMutex);
    for (const Plugin &plugin : m_plugins) {
        if (plugin.toolDescriptor && plugin.toolDescriptor->name == name)
            return plugin;
    }
    return std::nullopt;
}

void PluginController::onOwnThread(std::function<void()> fn)
{
    if (QThread::currentThread() == thread()) {
        fn();
        return;
    }
    QPointer<PluginController> weak(this);
    QMetaObject::invokeMethod(
        this, [weak, fn = std::move(fn)] { if (weak) fn(); }, Qt::QueuedConnection);
}

void PluginController::setPlugins(QList<Plugin> list)
{
    // A registered library is code Kelvara loads: the tools must never rewrite it.
    for (const Plugin &plugin : std::as_const(list))
        FileAccessPolicy::addProtectedCode(plugin.path);
    {
        QMutexLocker locker(&m_listMutex);
        m_plugins = std::move(list);
    }
    emit pluginsChanged();
    notifyChange();
}

void PluginController::setLoading(bool loading)
{
    if (m_isLoading == loading)
        return;
    m_isLoading = loading;
    emit isLoadingChanged();
    notifyChange();
}

void PluginController::setPending(std::optional<Plugin> plugin, bool showDialog)
{
    m_pendingPlugin = std::move(plugin);
    emit pendingPluginChanged();
    if (m_showApprovalDialog != showDialog) {
        m_showApprovalDialog = showDialog;
        emit showApprovalDialogChanged();
    }
    notifyChange();
}

void PluginController::setEnabledFlag(const Plugin &plugin, bool enabled)
{
    storeFlag(plugin.path, enabled);
    {
        QMutexLocker locker(&m_listMutex);
        for (Plugin &entry : m_plugins) {
            if (entry.id == plugin.id)
                entry.isEnabled = enabled;
        }
    }
    emit pluginsChanged();
    notifyChange();
}

void PluginController::saveList(const QList<Plugin> &list, const QString &changeLine)
{
    QMutexLocker locker(&storeMutex());
    auto defaults = UserDefaults::standard();
    defaults->setValue(registeredPluginsKey, Plugin::encodeList(list));
    defaults->sync();
    print(changeLine);
}

// ---- The stored list ----

void PluginController::loadPlugins()
{
    onOwnThread([this] { setLoading(true); });
    const QByteArray data = UserDefaults::standard()->value(registeredPluginsKey).toByteArray();
    std::optional<QList<Plugin>> list = data.isEmpty() ? std::nullopt : Plugin::decodeList(data);
    if (!list) {
        print(QStringLiteral("[PluginController] No registered plugins found"));
        onOwnThread([this] { setLoading(false); });
        return;
    }
    print(QStringLiteral("[PluginController] Loading ") + QString::number(list->size()) +
          QStringLiteral(" registered plugins"));
    // Loading a plug-in needs the user's confirmation in this run, whatever was stored.
    for (Plugin &plugin : *list)
        plugin.isEnabled = false;
    onOwnThread([this, loaded = *list] {
        setPlugins(loaded);
        setLoading(false);
    });
}

// ---- Types ----

int PluginController::pluginTypeForExtension(const QString &path)
{
    const QString extension = extensionOf(path).toLower();
    if (extension == QLatin1String("so"))
        return CustomToolHandler::DynamicLibrary;
    if (extension == QLatin1String("bundle"))
        return CustomToolHandler::LoadableBundle;
    if (extension == QLatin1String("plugin"))
        return CustomToolHandler::LoadablePlugin;
    return CustomToolHandler::Framework;
}

QString PluginController::extensionOf(const QString &path)
{
    return QFileInfo(withoutTrailingSlashes(path)).suffix();
}

// ---- Registration ----

void PluginController::addPlugin(const QUrl &url)
{
    const QString path = BookmarkController::pathOf(url);
    ScopedSecurityAccess access(m_security, url);

    AppError error;
    const std::optional<QByteArray> bookmark = BookmarkController::makeBookmarkData(url, &error);
    if (!bookmark) {
        showAlert(kError, error.description);
        return;
    }
    const int type = pluginTypeForExtension(path);
    if (type == CustomToolHandler::Framework) {
        showAlert(kError, QStringLiteral("Unknown plugin type: ") + extensionOf(path));
        return;
    }
    std::optional<ToolDescriptor> descriptor;
    bool loadedHere = false;
    if (PluginInspector *inspector = PluginInspector::shared()) {
        // Read in a process of its own: nothing of the library runs here before approval.
        descriptor = inspector->inspect(path, type, &error);
        if (!descriptor) {
            showAlert(kError, ToolDiscoveryService::failureDescription(error));
            return;
        }
    } else {
        const ToolDiscoveryService::Handler handler = m_bridge.registerPlugin(path, type, &error);
        if (!handler || !error.domain.isEmpty()) {
            showAlert(kError, ToolDiscoveryService::failureDescription(error));
            return;
        }
        descriptor = handler->getToolDescriptor();
        loadedHere = true;
    }
    if (!descriptor) {
        showAlert(kError, QStringLiteral("Invalid plugin descriptor. Installation failed."));
        return;
    }
    if (pluginNamed(descriptor->name)) {
        showAlert(QStringLiteral("Information"),
                  QStringLiteral("The custom tool plugin ") + descriptor->name + QStringLiteral(" already exist."));
        if (loadedHere)
            m_bridge.unloadPlugin(descriptor->name);
        return;
    }

    Plugin plugin;
    plugin.id = QUuid::createUuid();
    plugin.path = descriptor->fullPathName;
    plugin.isEnabled = false;
    plugin.bookmarkData = *bookmark;
    plugin.toolDescriptor = PluginDescriptor::fromToolDescriptor(*descriptor);
    onOwnThread([this, plugin] { setPending(plugin, true); });
}

void PluginController::approve()
{
    if (!m_pendingPlugin)
        return;
    Plugin plugin = *m_pendingPlugin;
    const QString name = plugin.displayName();
    auto fail = [this](const QString &message) {
        showAlert(kError, message);
        setPending(std::nullopt, false);
    };

    if (plugin.toolDescriptor && pluginNamed(plugin.toolDescriptor->name)) {
        showAlert(QStringLiteral("Information"),
                  QStringLiteral("The custom tool plugin ") + name + QStringLiteral(" already exist."));
        return;
    }
    if (!plugin.bookmarkData) {
        fail(AppError{QStringLiteral("PluginController"), 1, QStringLiteral("No bookmark data available")}.description);
        return;
    }
    AppError error;
    const std::optional<BookmarkController::Resolved> resolved =
        BookmarkController::resolveBookmarkData(*plugin.bookmarkData, &error);
    if (!resolved) {
        fail(error.description);
        return;
    }
    const QString path = BookmarkController::pathOf(resolved->url);
    const QFileInfo file(path);
    if (!file.exists() || !file.isReadable()) {
        fail(AppError{QStringLiteral("InvalidPluginURL"), 1,
                      QStringLiteral("Plugin file not found or not readable: ") + path}
                 .description);
        return;
    }
    print(QStringLiteral("[PluginController] Registering plugin with bookmark: %1").arg(path));
    if (!m_security->addBookmark(resolved->url, BookmarkController::lastPathComponent(resolved->url), &error)) {
        fail(error.description);
        return;
    }

    plugin.isEnabled = false;
    QList<Plugin> list = plugins();
    list.append(plugin);
    saveList(list, QStringLiteral("[PluginController] Registered plugin: %1").arg(name));
    setPlugins(list);
    storeFlag(plugin.path, false);
    setPending(std::nullopt, false);
    print(QStringLiteral("[PluginController] Successfully registered plugin: %1").arg(name));
}

void PluginController::deny()
{
    setPending(std::nullopt, false);
}

// ---- Enabling ----

void PluginController::showEnableWizard(const Plugin &plugin)
{
    m_enableWizardPlugin = plugin;
    emit enableWizardPluginChanged();
    if (!m_showingEnableWizard) {
        m_showingEnableWizard = true;
        emit showingEnableWizardChanged();
    }
    notifyChange();
}

void PluginController::dismissEnableWizard()
{
    if (m_showingEnableWizard) {
        m_showingEnableWizard = false;
        emit showingEnableWizardChanged();
    }
    notifyChange();
}

void PluginController::enablePlugin(const Plugin &plugin, const QUrl &url)
{
    ScopedSecurityAccess access(m_security, url);
    enableLoaded(plugin, url);
}

bool PluginController::enableLoaded(const Plugin &plugin, const QUrl &url)
{
    const QString path = BookmarkController::pathOf(url);
    if (path.isEmpty() || !QFileInfo::exists(path)) {
        showAlert(kError, QStringLiteral("Plugin file not found: ") + path);
        return false;
    }
    const int type = pluginTypeForExtension(path);
    if (type == CustomToolHandler::Framework) {
        showAlert(kError, QStringLiteral("Unknown plugin type: ") + extensionOf(path));
        return false;
    }
    AppError error;
    const ToolDiscoveryService::Handler handler = m_bridge.registerPlugin(path, type, &error);
    if (!handler || !error.domain.isEmpty()) {
        showAlert(kError, QStringLiteral("Failed to load plugin: ") + ToolDiscoveryService::failureDescription(error));
        return false;
    }
    const std::optional<ToolDescriptor> descriptor = handler->getToolDescriptor();
    if (!descriptor || !plugin.toolDescriptor || descriptor->name != plugin.toolDescriptor->name) {
        showAlert(kError, QStringLiteral("Plugin descriptor mismatch. Selected file does not match registered plugin."));
        return false;
    }
    onOwnThread([this, plugin] {
        setEnabledFlag(plugin, true);
        print(QStringLiteral("[PluginController] Enabled plugin: %1").arg(plugin.displayName()));
    });
    return true;
}

void PluginController::disablePlugin(const Plugin &plugin)
{
    setEnabledFlag(plugin, false);
    if (!plugin.toolDescriptor)
        return;
    m_bridge.unloadPlugin(plugin.toolDescriptor->name);
    print(QStringLiteral("[PluginController] Disabled plugin: %1").arg(plugin.toolDescriptor->name));
}

void PluginController::togglePlugin(const Plugin &plugin)
{
    const std::optional<Plugin> current = this->plugin(plugin.id);
    if (current.value_or(plugin).isEnabled)
        disablePlugin(current.value_or(plugin));
    else
        print(QStringLiteral("[PluginController] Enabling requires user file selection"));
}

// ---- Uninstalling ----

void PluginController::requestUninstall(const Plugin &plugin)
{
    m_pluginToDelete = plugin;
    emit pluginToDeleteChanged();
    if (!m_showDeleteConfirmDialog) {
        m_showDeleteConfirmDialog = true;
        emit showDeleteConfirmDialogChanged();
    }
    notifyChange();
}

void PluginController::cancelUninstall()
{
    m_pluginToDelete.reset();
    emit pluginToDeleteChanged();
    if (m_showDeleteConfirmDialog) {
        m_showDeleteConfirmDialog = false;
        emit showDeleteConfirmDialogChanged();
    }
    notifyChange();
}

void PluginController::confirmUninstall()
{
    const std::optional<Plugin> plugin = m_pluginToDelete;
    cancelUninstall();
    if (!plugin)
        return;
    QPointer<PluginController> weak(this);
    QThreadPool::globalInstance()->start([weak, plugin = *plugin] {
        if (weak)
            weak->uninstallPlugin(plugin);
    });
}

void PluginController::uninstallPlugin(const Plugin &plugin)
{
    if (!plugin.toolDescriptor) {
        showAlert(kError, QStringLiteral("Uninstall plugin: Invalid plugin descriptor"));
        return;
    }
    const QString name = plugin.toolDescriptor->name;
    m_bridge.unloadPlugin(name);
    m_security->removeBookmark(QUrl::fromLocalFile(plugin.path));
    {
        QMutexLocker locker(&storeMutex());
        auto defaults = UserDefaults::standard();
        defaults->remove(plugin.path);
        defaults->sync();
    }
    QList<Plugin> list = plugins();
    list.removeIf([&](const Plugin &entry) { return entry.id == plugin.id; });
    saveList(list, QStringLiteral("[PluginController] Unregistered plugin: %1").arg(name));
    onOwnThread([this, id = plugin.id] {
        {
            QMutexLocker locker(&m_listMutex);
            m_plugins.removeIf([&](const Plugin &entry) { return entry.id == id; });
        }
        emit pluginsChanged();
        notifyChange();
    });
    print(QStringLiteral("[PluginController] Uninstalled and unregistered plugin: %1").arg(name));
}

// ---- The security sheet ----

void PluginController::showSecurityInfo(const Plugin &plugin)
{
    m_securityInfoPlugin = plugin;
    emit securityInfoPluginChanged();
    if (!m_showingSecurityInfo) {
        m_showingSecurityInfo = true;
        emit showingSecurityInfoChanged();
    }
    notifyChange();
}

void PluginController::dismissSecurityInfo()
{
    if (m_showingSecurityInfo) {
        m_showingSecurityInfo = false;
        emit showingSecurityInfoChanged();
    }
    notifyChange();
}

// ---- The open panel ----

void PluginController::chooseAndAddPlugin(const QString &startDirectory)
{
    QPointer<PluginController> weak(this);
    m_security->requestPluginAccess(
        [weak](const QUrl &url, const std::optional<AppError> &error) {
            if (!weak)
                return;
            if (error) {
                weak->showAlert(kError, error->description);
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

void PluginController::chooseFileAndEnable()
{
    if (!m_enableWizardPlugin)
        return;
    const Plugin plugin = *m_enableWizardPlugin;
    dismissEnableWizard();
    const QString start = QFileInfo(withoutTrailingSlashes(plugin.path)).absolutePath();
    QPointer<PluginController> weak(this);
    m_security->requestPluginAccess(
        [weak, plugin](const QUrl &url, const std::optional<AppError> &error) {
            if (!weak)
                return;
            if (error) {
                weak->showAlert(kError, error->description);
                return;
            }
            if (!url.isEmpty())
                weak->enablePlugin(plugin, url);
        },
        QFileInfo(start).isDir() ? start : QDir::homePath());
}

// ---- One tool call ----

JSONToolResult PluginController::callPlugin(const QString &sid, const QString &pluginName, const QString &json)
{
    m_logger->log(QStringLiteral("[PlugIn] Calling: ") + pluginName + QStringLiteral(", sid:") + sid +
                      QStringLiteral(" json: ") + json,
                  -1, MCPLogMessageType::Info);
    auto fail = [this](const QString &message) { return m_logger->toolError(message, -1, MCPLogMessageType::Info); };

    const QList<Plugin> list = plugins();
    for (const Plugin &plugin : list) {
        if (!plugin.toolDescriptor || plugin.toolDescriptor->name != pluginName)
            continue;
        const QString name = plugin.toolDescriptor->name;
        if (!plugin.isEnabled)
            return fail(QStringLiteral("Requested tool plugin '") + name + QStringLiteral("' is not enabled."));
        const int type = CustomToolHandler::pluginTypeForPath(plugin.path);
        if (type == CustomToolHandler::Framework)
            continue;

        // A handler of this call's own; a library is closed again when it goes.
        AppError error;
        const std::unique_ptr<CustomToolHandler> handler = m_bridge.loadPlugin(plugin.path, type, &error);
        if (!handler || !error.domain.isEmpty()) {
            m_logger->log(QStringLiteral("Custom tool '") + name + QStringLiteral("' is not discovered yet, skiped."), -1,
                          MCPLogMessageType::Info);
            continue;
        }
        if (!handler->getToolDescriptor())
            return fail(QStringLiteral("Custom tool plugin '") + name + QStringLiteral("' has an invalid descriptor."));

        const std::optional<QString> text = handler->callToolWithSID(sid, pluginName, json);
        if (!text)
            return fail(QStringLiteral("Failed to resolve JSON result object."));
        QJsonParseError parseError{};
        const QJsonDocument document = QJsonDocument::fromJson(text->toUtf8(), &parseError);
        if (parseError.error != QJsonParseError::NoError)
            return fail(QStringLiteral("Failed to resolve JSON object:\n") + parseError.errorString() +
                        QStringLiteral(" at offset ") + QString::number(parseError.offset));
        if (!document.isObject())
            return fail(QStringLiteral("Failed to convert JSON object."));
        const QJsonObject answer = document.object();

        const QJsonValue errorValue = answer.value(QLatin1String("error"));
        if (errorValue.isString())
            return fail(errorValue.toString());
        if (errorValue.isObject()) {
            const QJsonValue message = errorValue.toObject().value(QLatin1String("message"));
            if (message.isString())
                return fail(message.toString());
            return fail(QStringLiteral("Invalid error object in custom tool return."));
        }

        const QJsonValue structured = answer.value(QLatin1String("structuredContent"));
        if (!structured.isObject())
            return fail(QStringLiteral("Missing object 'structuredContent' in custom tool return."));
        JSONToolResult result;
        const QJsonObject structuredObject = structured.toObject();
        for (auto it = structuredObject.begin(); it != structuredObject.end(); ++it) {
            const std::optional<AnyCodable> value = AnyCodable::decode(it.value());
            if (!value)
                return fail(QStringLiteral("Missing object 'structuredContent' in custom tool return."));
            result.structuredContent.insert(it.key(), *value);
        }

        const QJsonValue content = answer.value(QLatin1String("content"));
        if (!content.isArray())
            return fail(QStringLiteral("Missing object 'content' in custom tool return."));
        for (const QJsonValue &element : content.toArray()) {
            if (!element.isObject())
                return fail(QStringLiteral("Invalid content object in custom tool return."));
            const QJsonObject item = element.toObject();
            const QJsonValue itemText = item.value(QLatin1String("text"));
            if (!itemText.isString())
                return fail(QStringLiteral("Missing 'text' in custom tool result object."));
            const QJsonValue itemType = item.value(QLatin1String("type"));
            if (!itemType.isString())
                return fail(QStringLiteral("Missing 'type' in custom tool result object."));
            result.content.append(JSONToolContent{itemType.toString(), itemText.toString()});
        }
        return result;
    }
    return fail(QStringLiteral("Could not find custom tool plugin: ") + pluginName);
}
