#include "tools/plugins/ToolDiscoveryService.h"

#include "base/SystemLog.h"

#include <QDir>
#include <QFileInfo>
#include <QMutexLocker>
#include <new>

namespace {

void log(const QString &line)
{
    SystemLog::write(line);
}

}  // namespace

QList<ToolDiscoveryService::Handler> ToolDiscoveryService::availableTools() const
{
    QMutexLocker locker(&m_mutex);
    return m_availableTools;
}

int ToolDiscoveryService::pluginTypeForEntry(const QString &entryName)
{
    if (entryName.endsWith(QLatin1String(".so")))
        return CustomToolHandler::DynamicLibrary;
    if (entryName.endsWith(QLatin1String(".bundle")))
        return CustomToolHandler::LoadableBundle;
    if (entryName.endsWith(QLatin1String(".plugin")))
        return CustomToolHandler::LoadablePlugin;
    return CustomToolHandler::Framework;
}

QString ToolDiscoveryService::failureDescription(const AppError &error)
{
    if (!error.description.isEmpty())
        return error.description;
    return QStringLiteral("Unsupported plugin interface version (expected %1)").arg(KELVARA_TOOL_ABI_VERSION);
}

std::optional<ToolDiscoveryService::PluginInfo> ToolDiscoveryService::readPluginInfo(const QVariant &info)
{
    const QVariantMap map = info.toMap();
    const QVariant pathValue = map.value(pathKey);
    const QVariant typeValue = map.value(pluginTypeKey);
    const QVariant bookmarkValue = map.value(bookmarkPathKey);
    if (pathValue.typeId() != QMetaType::QString || bookmarkValue.typeId() != QMetaType::QString || !typeValue.isValid())
        return std::nullopt;
    bool numeric = false;
    const int type = typeValue.toInt(&numeric);
    if (!numeric || typeValue.typeId() == QMetaType::QString)
        return std::nullopt;
    return PluginInfo{pathValue.toString(), type, bookmarkValue.toString()};
}

void ToolDiscoveryService::unloadAll()
{
    QList<Handler> old;
    {
        QMutexLocker locker(&m_mutex);
        old.swap(m_availableTools);
    }
    for (const Handler &handler : std::as_const(old))
        handler->unloadPlugin();
}

void ToolDiscoveryService::startDiscoveryAtPath(const QString &path)
{
    log(QStringLiteral("[ToolDiscoveryService::startDiscoveryAtPath] path: %1").arg(path));
    unloadAll();

    const QFileInfo folder(path);
    if (path.isEmpty() || !folder.exists()) {
        log(QStringLiteral("[ToolDiscoveryService] Plugin directory does not exist: %1").arg(path));
        return;
    }
    QDir dir(path);
    if (!folder.isDir() || !dir.isReadable()) {
        log(QStringLiteral("[ToolDiscoveryService] Error reading directory: %1")
                .arg(folder.isDir() ? QStringLiteral("The folder \"%1\" can't be read.").arg(path)
                                    : QStringLiteral("\"%1\" is not a folder.").arg(path)));
        return;
    }
    const QStringList entries =
        dir.entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System, QDir::Name);

    QList<Handler> found;
    for (const QString &entry : entries) {
        const int type = pluginTypeForEntry(entry);
        if (type == CustomToolHandler::Framework)
            continue;
        Handler handler(new (std::nothrow) CustomToolHandler);
        AppError error;
        if (!handler) {
            log(QStringLiteral("[ToolDiscoveryService] Failed to load tool %1: %2")
                    .arg(entry, QStringLiteral("Could not allocate CustomToolHandler")));
            continue;
        }
        if (handler->loadToolAtPath(dir.filePath(entry), type, &error))
            found.append(handler);
        else
            log(QStringLiteral("[ToolDiscoveryService] Failed to load tool %1: %2").arg(entry, failureDescription(error)));
    }
    qsizetype count = 0;
    {
        QMutexLocker locker(&m_mutex);
        m_availableTools.append(found);
        count = m_availableTools.size();
    }
    log(QStringLiteral("[ToolDiscoveryService] Discovery complete. Found %1 tools").arg(count));
}

void ToolDiscoveryService::startDiscoveryWithBookmarkedPlugins(const QVariantList &plugins)
{
    log(QStringLiteral("[ToolDiscoveryService::startDiscoveryWithBookmarkedPlugins] Processing %1 plugins")
            .arg(plugins.size()));
    unloadAll();

    for (const QVariant &info : plugins) {
        const std::optional<PluginInfo> read = readPluginInfo(info);
        if (!read) {
            log(QStringLiteral("[ToolDiscoveryService] Invalid plugin info: missing required keys"));
            continue;
        }
        const auto &[path, type, bookmarkPath] = *read;
        const QString name = QFileInfo(path).fileName();
        log(QStringLiteral("[ToolDiscoveryService] Loading plugin: %1 (type: %2)").arg(name).arg(type));
        Handler handler(new (std::nothrow) CustomToolHandler);
        AppError error;
        if (!handler)
            error = AppError{QStringLiteral("ExternToolBridge"), 16, QStringLiteral("Could not allocate CustomToolHandler")};
        if (handler && handler->loadToolAtPath(bookmarkPath, type, &error)) {
            addHandler(handler);
            log(QStringLiteral("[ToolDiscoveryService] Successfully loaded: %1").arg(handler->toolDescriptor()->name));
        } else {
            log(QStringLiteral("[ToolDiscoveryService] Failed to load tool %1: %2").arg(name, failureDescription(error)));
        }
    }
    log(QStringLiteral("[ToolDiscoveryService] Discovery complete. Found %1 tools").arg(availableTools().size()));
}

void ToolDiscoveryService::addHandler(Handler handler)
{
    if (!handler)
        return;
    QMutexLocker locker(&m_mutex);
    m_availableTools.append(std::move(handler));
}

void ToolDiscoveryService::removeHandler(const Handler &handler)
{
    QMutexLocker locker(&m_mutex);
    m_availableTools.removeAll(handler);
}

ToolDiscoveryService::Handler ToolDiscoveryService::findHandler(const QString &name) const
{
    QMutexLocker locker(&m_mutex);
    for (const Handler &handler : m_availableTools) {
        if (handler->toolDescriptor() && handler->toolDescriptor()->name == name)
            return handler;
    }
    return nullptr;
}
