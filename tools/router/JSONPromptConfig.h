#pragma once

#include "base/Result.h"
#include "tools/router/JSONPromptArgument.h"

#include <QByteArray>
#include <QJsonObject>
#include <QList>
#include <QString>
#include <QVariant>
#include <QVariantMap>
#include <optional>

// One prompt as it travels inside the application. The file key of promptDescription is
// "description". The template is stored and listed, not rendered.
struct JSONPromptConfig {
    QString name;
    QString promptDescription;
    QList<JSONPromptArgument> arguments;
    QString templateText;  // the file key "template"

    QJsonObject toJson() const;
    QVariantMap toVariant() const;
    QVariant value(const QString &key) const;

    // Every key is required.
    static Result<JSONPromptConfig> fromJson(const QJsonObject &object);
    static Result<JSONPromptConfig> fromJsonData(const QByteArray &data);

    bool operator==(const JSONPromptConfig &) const = default;
};
