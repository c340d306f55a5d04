#include "tools/plugins/ExternToolBridge.h"

#include "base/SystemLog.h"

#include <QFileInfo>
#include <new>

ExternToolBridge::ExternToolBridge() : m_httpClient(30.0)
{
    m_httpClient.verboseLogging = false;
}

QString ExternToolBridge::httpGet(const QString &url, const QString &queryJSON)
{
    SystemLog::write(QStringLiteral("[ExternToolBridge::httpGet] url=%1").arg(url));
    return m_httpClient.get(url, queryJSON).toJSONString();
}

QString ExternToolBridge::httpPost(const QString &url, const QString &body, const QString &headersJSON)
{
    SystemLog::write(QStringLiteral("[ExternToolBridge::httpPost] url=%1").arg(url));
    return m_httpClient.post(url, body, headersJSON).toJSONString();
}

QString ExternToolBridge::httpRequest(const QString &method, const QString &url, const QString &body,
                                      const QString &paramsJSON, const QString &headersJSON)
{
    SystemLog::write(QStringLiteral("[ExternToolBridge::httpRequest] method=%1 url=%2").arg(method, url));
    return m_httpClient.request(method, url, body, paramsJSON, headersJSON).toJSONString();
}

bool ExternToolBridge::downloadFile(const QString &url, const QString &destination)
{
    SystemLog::write(QStringLiteral("[ExternToolBridge::downloadFile] url=%1 dest=%2").arg(url, destination));
    if (const Result<void> downloaded = m_httpClient.downloadFile(url, destination); !downloaded) {
        SystemLog::write(QStringLiteral("[ExternToolBridge::downloadFile] Failed: %1").arg(downloaded.error().description));
        return false;
    }
    return true;
}

// ---- Native plug-ins ----

namespace {

AppError bridgeError(int code, const QString &description)
{
    return AppError{ExternToolBridge::errorDomain, code, description};
}

// Makes and loads one handler. The loader always gets a cell, so that it logs its failure in
// full; a library of another interface version leaves the cell, and so the error, empty.
Result<std::unique_ptr<CustomToolHandler>> makeAndLoad(const QString &path, int pluginType)
{
    std::unique_ptr<CustomToolHandler> handler(new (std::nothrow) CustomToolHandler);
    if (!handler)
        return bridgeError(16, QStringLiteral("Could not allocate CustomToolHandler"));
    AppError error;
    if (!handler->loadToolAtPath(path, pluginType, &error))
        return error;
    return handler;
}

}  // namespace

Result<std::unique_ptr<CustomToolHandler>> ExternToolBridge::loadPlugin(const QString &path, int pluginType)
{
    if (path.isEmpty())
        return bridgeError(116, QStringLiteral("Invalid path or bookmark path parameter"));
    Result<std::unique_ptr<CustomToolHandler>> handler = makeAndLoad(path, pluginType);
    if (!handler)
        SystemLog::write(QStringLiteral("[ExternToolBridge::loadPlugin] Failed to load custom plugin"));
    return handler;
}

Result<ToolDiscoveryService::Handler> ExternToolBridge::registerPlugin(const QString &path, int pluginType)
{
    if (path.isEmpty())
        return bridgeError(116, QStringLiteral("Invalid path or bookmark path parameter"));
    Result<std::unique_ptr<CustomToolHandler>> loaded = makeAndLoad(path, pluginType);
    if (!loaded) {
        SystemLog::write(QStringLiteral("[ExternToolBridge::registerPlugin] Failed to load custom plugin"));
        return loaded.error();
    }
    ToolDiscoveryService::Handler handler = std::move(loaded).value();
    m_discoveryService.addHandler(handler);
    return handler;
}

Result<void> ExternToolBridge::unloadPlugin(const QString &name)
{
    if (name.isEmpty())
        return bridgeError(116, QStringLiteral("Invalid 'name' parameter"));
    if (const ToolDiscoveryService::Handler handler = m_discoveryService.findHandler(name)) {
        SystemLog::write(QStringLiteral("[ExternToolBridge::unloadPlugin] Unloading plugin: %1").arg(name));
        handler->unloadPlugin();
    }
    return {};
}

Result<ToolDiscoveryService::Handler> ExternToolBridge::findPlugin(const QString &name) const
{
    if (name.isEmpty())
        return bridgeError(116, QStringLiteral("Invalid 'name' parameter"));
    return m_discoveryService.findHandler(name);
}

void ExternToolBridge::startPluginDiscoveryAtPath(const QString &path)
{
    m_discoveryService.startDiscoveryAtPath(path);
}

void ExternToolBridge::startPluginDiscoveryWithBookmarks(const QVariantList &plugins)
{
    SystemLog::write(QStringLiteral("[ExternToolBridge::startPluginDiscoveryWithBookmarks] Processing %1 plugins")
                         .arg(plugins.size()));
    for (const ToolDiscoveryService::Handler &handler : m_discoveryService.availableTools()) {
        handler->unloadPlugin();
        m_discoveryService.removeHandler(handler);
    }
    qsizetype loaded = 0;
    for (const QVariant &info : plugins) {
        const std::optional<ToolDiscoveryService::PluginInfo> read = ToolDiscoveryService::readPluginInfo(info);
        if (!read) {
            SystemLog::write(QStringLiteral("[ExternToolBridge] Invalid plugin info dictionary"));
            continue;
        }
        const auto &[path, type, bookmarkPath] = *read;
        const QString name = QFileInfo(path).fileName();
        SystemLog::write(QStringLiteral("[ExternToolBridge] Loading plugin: %1 (type: %2)").arg(name).arg(type));
        Result<std::unique_ptr<CustomToolHandler>> made = makeAndLoad(bookmarkPath, type);
        if (!made) {
            SystemLog::write(QStringLiteral("[ExternToolBridge] Failed to load plugin %1: %2")
                                 .arg(name, ToolDiscoveryService::failureDescription(made.error())));
            continue;
        }
        const ToolDiscoveryService::Handler handler = std::move(made).value();
        m_discoveryService.addHandler(handler);
        ++loaded;
        SystemLog::write(QStringLiteral("[ExternToolBridge] Successfully loaded plugin: %1").arg(handler->toolDescriptor()->name));
    }
    SystemLog::write(QStringLiteral("[ExternToolBridge::startPluginDiscoveryWithBookmarks] Discovery complete. Loaded %1 tools")
                         .arg(loaded));
}

Result<ToolDiscoveryService::Handler> ExternToolBridge::registerPluginWithBookmark(const QString &path,
                                                                                   const QString &bookmarkPath,
                                                                                   int pluginType)
{
    if (path.isEmpty() || bookmarkPath.isEmpty())
        return bridgeError(116, QStringLiteral("Invalid path or bookmark path parameter"));
    SystemLog::write(QStringLiteral("[ExternToolBridge::registerPluginWithBookmark] Loading: %1 via bookmark: %2")
                         .arg(path, bookmarkPath));
    Result<std::unique_ptr<CustomToolHandler>> loaded = makeAndLoad(bookmarkPath, pluginType);
    if (!loaded) {
        SystemLog::write(QStringLiteral("[ExternToolBridge::registerPluginWithBookmark] Failed to load plugin at %1")
                             .arg(bookmarkPath));
        return loaded.error();
    }
    const ToolDiscoveryService::Handler handler = std::move(loaded).value();
    m_discoveryService.addHandler(handler);
    SystemLog::write(QStringLiteral("[ExternToolBridge::registerPluginWithBookmark] Successfully registered: %1")
                         .arg(handler->toolDescriptor()->name));
    return handler;
}
