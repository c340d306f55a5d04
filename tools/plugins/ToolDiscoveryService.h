#pragma once

#include "base/AppError.h"
#include "tools/plugins/CustomToolHandler.h"

#include <QList>
#include <QMutex>
#include <QString>
#include <QVariantList>
#include <memory>
#include <optional>

// The list of loaded plug-in handlers that the bridge keeps for registered plug-ins. It can
// also fill itself by scanning a folder or from a list of stored plug-ins; either refill
// first unloads and drops every handler it held.
//
// Keys of a plug-in info dictionary (the element of the stored list): "path", the
// registered path used in messages; "pluginType", the form (1 ".so", 2 ".bundle",
// 3 ".plugin"); "bookmarkPath", the path actually loaded.
//
// Any thread. The list is guarded, but a handler taken out of it is shared, not copied:
// unloading it through the list affects every holder.
class ToolDiscoveryService
{
public:
    using Handler = std::shared_ptr<CustomToolHandler>;

    static inline const QString pathKey = QStringLiteral("path");
    static inline const QString pluginTypeKey = QStringLiteral("pluginType");
    static inline const QString bookmarkPathKey = QStringLiteral("bookmarkPath");

    ToolDiscoveryService() = default;
    ToolDiscoveryService(const ToolDiscoveryService &) = delete;
    ToolDiscoveryService &operator=(const ToolDiscoveryService &) = delete;

    QList<Handler> availableTools() const;

    // Loads every ".so", ".bundle" and ".plugin" entry of the folder, in name order, without
    // going into sub-folders. A plug-in that fails to load is logged and passed over.
    void startDiscoveryAtPath(const QString &path);
    // Loads each described plug-in from its "bookmarkPath"; incomplete dictionaries are
    // logged and passed over.
    void startDiscoveryWithBookmarkedPlugins(const QVariantList &plugins);

    void addHandler(Handler handler);
    void removeHandler(const Handler &handler);
    // The first handler, from the front, whose descriptor has this name; or none.
    Handler findHandler(const QString &name) const;

    // The form a directory entry's name tells (1, 2 or 3), or 0 for a name to pass over:
    // the ending must close the name.
    static int pluginTypeForEntry(const QString &entryName);
    // The description of a load failure; a library with another interface version fails
    // without a cause, and this says so.
    static QString failureDescription(const AppError &error);

    // One plug-in info dictionary; nothing when a key is missing or of the wrong kind.
    struct PluginInfo {
        QString path;
        int pluginType = 0;
        QString bookmarkPath;
    };
    static std::optional<PluginInfo> readPluginInfo(const QVariant &info);

private:
    void unloadAll();

    mutable QMutex m_mutex;
    QList<Handler> m_availableTools;
};
