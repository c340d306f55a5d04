#pragma once

#include "base/Result.h"
#include "tools/router/JSONAnnotations.h"
#include "tools/router/JSONToolSchema.h"

#include <QByteArray>
#include <QJsonObject>
#include <QString>
#include <QVariant>
#include <QVariantMap>
#include <optional>

// One tool as it travels inside the application: in a configuration file, to the engine's
// registry, and into every call of its handler. The file key of toolDescription is
// "description"; all other keys are the field names.
struct JSONToolConfig {
    QString name;
    std::optional<QString> title;
    QString toolDescription;
    QString execHandler;
    QString execMethod;
    QString pluginName;
    QString toolType;
    QString scriptName;
    JSONAnnotations annotations;
    JSONToolSchema inputSchema;
    JSONToolSchema outputSchema;

    // The file form; `title` is left out when absent.
    QJsonObject toJson() const;
    // The form the bridge reads, under the file's key names.
    QVariantMap toVariant() const;
    // One key as the bridge looks it up: "description" gives toolDescription, an absent
    // title gives nothing, an unknown key gives nothing.
    QVariant value(const QString &key) const;

    // Every key but `title` is required, and every value must have its JSON type.
    static Result<JSONToolConfig> fromJson(const QJsonObject &object);
    static Result<JSONToolConfig> fromJsonData(const QByteArray &data);

    bool operator==(const JSONToolConfig &) const = default;
};
