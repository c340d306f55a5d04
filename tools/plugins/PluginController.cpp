#include "tools/plugins/PluginController.h"

#include "tools/security/FileAccessPolicy.h"

#include "base/SystemLog.h"
#include "base/UserDefaults.h"
#include "diagnostics/LogController.h"
#include "tools/plugins/PluginInspector.h"
#include "tools/plugins/ToolDiscoveryService.h"
#include "tools/results/ToolError.h"
#include "tools/security/BookmarkController.h"
#include "tools/security/ScopedSecurityAccess.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMutexLocker>
#include <QPointer>
#include <QThread>
#include <mutex>

namespace {

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

QString PluginController::folderOf(const QString &path)
{
    return QFileInfo(withoutTrailingSlashes(path)).absolutePath();
}

// ---- Registration ----

std::optional<Plugin> PluginController::prepareRegistration(const QUrl &url, PluginRefusal *refusal)
{
    auto refuse = [refusal](PluginRefusal why) -> std::optional<Plugin> {
        if (refusal)
            *refusal = std::move(why);
        return std::nullopt;
    };
    const QString path = BookmarkController::pathOf(url);
    ScopedSecurityAccess access(m_security, url);

    AppError error;
    const std::optional<QByteArray> bookmark = BookmarkController::makeBookmarkData(url, &error);
    if (!bookmark)
        return refuse(PluginRefusal::failure(error.description));
    const int type = pluginTypeForExtension(path);
    if (type == CustomToolHandler::Framework)
        return refuse(PluginRefusal::failure(QStringLiteral("Unknown plugin type: ") + extensionOf(path)));
    std::optional<ToolDescriptor> descriptor;
    bool loadedHere = false;
    if (PluginInspector *inspector = PluginInspector::shared()) {
        // Read in a process of its own: nothing of the library runs here before approval.
        const Result<ToolDescriptor> inspected = inspector->inspect(path, type);
        if (!inspected)
            return refuse(PluginRefusal::failure(ToolDiscoveryService::failureDescription(inspected.error())));
        descriptor = *inspected;
    } else {
        const Result<ToolDiscoveryService::Handler> handler = m_bridge.registerPlugin(path, type);
        if (!handler)
            return refuse(PluginRefusal::failure(ToolDiscoveryService::failureDescription(handler.error())));
        descriptor = (*handler)->getToolDescriptor();
        loadedHere = true;
    }
    if (!descriptor)
        return refuse(PluginRefusal::failure(QStringLiteral("Invalid plugin descriptor. Installation failed.")));
    if (pluginNamed(descriptor->name)) {
        if (loadedHere)
            (void)m_bridge.unloadPlugin(descriptor->name);  // only an empty name fails, and nothing is loaded under it
        return refuse(PluginRefusal::duplicate(descriptor->name));
    }

    Plugin plugin;
    plugin.id = QUuid::createUuid();
    plugin.path = descriptor->fullPathName;
    plugin.isEnabled = false;
    plugin.bookmarkData = *bookmark;
    plugin.toolDescriptor = PluginDescriptor::fromToolDescriptor(*descriptor);
    return plugin;
}

std::optional<PluginRefusal> PluginController::registerPlugin(const Plugin &approved)
{
    Plugin plugin = approved;
    const QString name = plugin.displayName();
    if (plugin.toolDescriptor && pluginNamed(plugin.toolDescriptor->name))
        return PluginRefusal::duplicate(name);
    if (!plugin.bookmarkData)
        return PluginRefusal::failure(
            AppError{QStringLiteral("PluginController"), 1, QStringLiteral("No bookmark data available")}.description);
    AppError error;
    const std::optional<BookmarkController::Resolved> resolved =
        BookmarkController::resolveBookmarkData(*plugin.bookmarkData, &error);
    if (!resolved)
        return PluginRefusal::failure(error.description);
    const QString path = BookmarkController::pathOf(resolved->url);
    const QFileInfo file(path);
    if (!file.exists() || !file.isReadable())
        return PluginRefusal::failure(AppError{QStringLiteral("InvalidPluginURL"), 1,
                                               QStringLiteral("Plugin file not found or not readable: ") + path}
                                          .description);
    print(QStringLiteral("[PluginController] Registering plugin with bookmark: %1").arg(path));
    if (!m_security->addBookmark(resolved->url, BookmarkController::lastPathComponent(resolved->url), &error))
        return PluginRefusal::failure(error.description);

    plugin.isEnabled = false;
    QList<Plugin> list = plugins();
    list.append(plugin);
    saveList(list, QStringLiteral("[PluginController] Registered plugin: %1").arg(name));
    setPlugins(list);
    storeFlag(plugin.path, false);
    print(QStringLiteral("[PluginController] Successfully registered plugin: %1").arg(name));
    return std::nullopt;
}

// ---- Enabling ----

std::optional<PluginRefusal> PluginController::enablePlugin(const Plugin &plugin, const QUrl &url)
{
    ScopedSecurityAccess access(m_security, url);
    const QString path = BookmarkController::pathOf(url);
    if (path.isEmpty() || !QFileInfo::exists(path))
        return PluginRefusal::failure(QStringLiteral("Plugin file not found: ") + path);
    const int type = pluginTypeForExtension(path);
    if (type == CustomToolHandler::Framework)
        return PluginRefusal::failure(QStringLiteral("Unknown plugin type: ") + extensionOf(path));
    const Result<ToolDiscoveryService::Handler> handler = m_bridge.registerPlugin(path, type);
    if (!handler)
        return PluginRefusal::failure(QStringLiteral("Failed to load plugin: ") +
                                      ToolDiscoveryService::failureDescription(handler.error()));
    const std::optional<ToolDescriptor> descriptor = (*handler)->getToolDescriptor();
    if (!descriptor || !plugin.toolDescriptor || descriptor->name != plugin.toolDescriptor->name)
        return PluginRefusal::failure(
            QStringLiteral("Plugin descriptor mismatch. Selected file does not match registered plugin."));
    onOwnThread([this, plugin] {
        setEnabledFlag(plugin, true);
        print(QStringLiteral("[PluginController] Enabled plugin: %1").arg(plugin.displayName()));
    });
    return std::nullopt;
}

void PluginController::disablePlugin(const Plugin &plugin)
{
    setEnabledFlag(plugin, false);
    if (!plugin.toolDescriptor)
        return;
    (void)m_bridge.unloadPlugin(plugin.toolDescriptor->name);  // only an empty name fails, and nothing is loaded under it
    print(QStringLiteral("[PluginController] Disabled plugin: %1").arg(plugin.toolDescriptor->name));
}

// ---- Uninstalling ----

std::optional<PluginRefusal> PluginController::uninstallPlugin(const Plugin &plugin)
{
    if (!plugin.toolDescriptor)
        return PluginRefusal::failure(QStringLiteral("Uninstall plugin: Invalid plugin descriptor"));
    const QString name = plugin.toolDescriptor->name;
    (void)m_bridge.unloadPlugin(name);  // only an empty name fails, and nothing is loaded under it
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
    return std::nullopt;
}

// ---- One tool call ----

JSONToolResult PluginController::callPlugin(const QString &sid, const QString &pluginName, const QString &json)
{
    m_logger->log(QStringLiteral("[PlugIn] Calling: ") + pluginName + QStringLiteral(", sid:") + sid +
                      QStringLiteral(" json: ") + json,
                  -1, MCPLogMessageType::Info);
    auto fail = [this](const QString &message) { return ToolError::report(m_logger, message, -1, MCPLogMessageType::Info); };

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
        const Result<std::unique_ptr<CustomToolHandler>> loaded = m_bridge.loadPlugin(plugin.path, type);
        if (!loaded) {
            m_logger->log(QStringLiteral("Custom tool '") + name + QStringLiteral("' is not discovered yet, skiped."), -1,
                          MCPLogMessageType::Info);
            continue;
        }
        const std::unique_ptr<CustomToolHandler> &handler = *loaded;
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
            const QJsonValue itemType = item.value(QLatin1String("type"));
            // Items of other kinds (image, audio, resource, resource_link) pass through as
            // they are; a text item needs its text.
            const QJsonValue itemText = item.value(QLatin1String("text"));
            if (!itemText.isString() && (!itemType.isString() || itemType.toString() == QLatin1String("text")))
                return fail(QStringLiteral("Missing 'text' in custom tool result object."));
            if (!itemType.isString())
                return fail(QStringLiteral("Missing 'type' in custom tool result object."));
            const std::optional<JSONToolContent> parsed = JSONToolContent::fromJson(item);
            if (!parsed)
                return fail(QStringLiteral("Invalid content object in custom tool return."));
            result.content.append(*parsed);
        }
        return result;
    }
    return fail(QStringLiteral("Could not find custom tool plugin: ") + pluginName);
}
