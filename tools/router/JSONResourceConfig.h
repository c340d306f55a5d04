#pragma once

#include "base/Result.h"
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
    // A template's values offered for completion: variable name to a list of strings.
    // Written only when set.
    std::optional<QJsonObject> values;
    // A script that gives the content ("script"; a template's gets its variables) and one
    // that offers the completion values ("valuesScript"). Written only when set.
    std::optional<QString> script;
    std::optional<QString> valuesScript;

    QJsonObject toJson() const;
    QVariantMap toVariant() const;
    QVariant value(const QString &key) const;

    // Every key but values, script and valuesScript is required.
    static Result<JSONResourceConfig> fromJson(const QJsonObject &object);
    static Result<JSONResourceConfig> fromJsonData(const QByteArray &data);

    bool operator==(const JSONResourceConfig &) const = default;
};
