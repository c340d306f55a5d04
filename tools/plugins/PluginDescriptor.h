#pragma once

#include "tools/plugins/ToolDescriptor.h"

#include <QByteArray>
#include <QJsonValue>
#include <QString>
#include <optional>

// The stored copy of what a registered plug-in said about itself: the descriptor without
// the two fields the loader adds (where it was loaded from, in which form).
struct PluginDescriptor {
    QString name;
    QString version;
    QString author;
    QString toolDescription;
    QString toolEntryPoint;
    QString toolIdentifier;
    qint64 abiVersion = 0;
    qint64 toolVersion = 0;
    QString capabilitiesJSON;

    static PluginDescriptor fromToolDescriptor(const ToolDescriptor &descriptor);

    // A JSON object with the keys in field order.
    QByteArray toJson() const;
    // Every field is required, texts as strings and the two versions as whole numbers.
    static std::optional<PluginDescriptor> fromJson(const QJsonValue &value);

    bool operator==(const PluginDescriptor &) const = default;
};
