#pragma once

#include "tools/router/JSONAnnotations.h"

#include <QByteArray>
#include <QJsonObject>
#include <QString>
#include <QVariant>
#include <QVariantMap>
#include <optional>

// One resource as it travels inside the application. The file key of resourceDescription
// is "description"; contextTags and relatedResources are the texts as stored.
struct JSONResourceConfig {
    QString uri;
    QString name;
    QString resourceDescription;
    QString mimeType;
    QString type;
    QString contextTags;
    QString relatedResources;
    JSONAnnotations annotations;

    QJsonObject toJson() const;
    QVariantMap toVariant() const;
    QVariant value(const QString &key) const;

    // Every key is required.
    static std::optional<JSONResourceConfig> fromJson(const QJsonObject &object, QString *error = nullptr);
    static std::optional<JSONResourceConfig> fromJsonData(const QByteArray &data, QString *error = nullptr);

    bool operator==(const JSONResourceConfig &) const = default;
};
