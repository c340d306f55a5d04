#pragma once

#include "tools/plugins/PluginDescriptor.h"

#include <QByteArray>
#include <QList>
#include <QMetaType>
#include <QString>
#include <QUuid>
#include <optional>

// One native plug-in of the user's list. The record is identified by its id: two copies
// with the same id stand for the same plug-in, whatever else differs.
struct Plugin {
    QUuid id;
    QString path;  // where the plug-in was registered from
    bool isEnabled = false;
    std::optional<PluginDescriptor> toolDescriptor;
    // The security-scoped bookmark of the file (here: its absolute path in UTF-8).
    std::optional<QByteArray> bookmarkData;

    // The descriptor's name, or "Unknown" without a descriptor.
    QString displayName() const;

    // {"id","path","isEnabled"[,"toolDescriptor"][,"bookmarkData" as base64]}, in this order;
    // absent optionals stay absent.
    QByteArray toJson() const;
    static std::optional<Plugin> fromJson(const QJsonValue &value);

    // The stored list: one JSON array.
    static QByteArray encodeList(const QList<Plugin> &list);
    // Nothing when the bytes are no such array or any element is not a valid record: one
    // bad entry spoils the whole list.
    static std::optional<QList<Plugin>> decodeList(const QByteArray &data);

    bool operator==(const Plugin &) const = default;
};

Q_DECLARE_METATYPE(Plugin)
