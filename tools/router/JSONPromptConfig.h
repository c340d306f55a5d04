#pragma once

#include "base/Result.h"
#include "tools/router/JSONPromptArgument.h"

#include <QByteArray>
#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QString>
#include <QVariant>
#include <QVariantMap>
#include <optional>

// One prompt as it travels inside the application. The file key of promptDescription is
// "description".
struct JSONPromptConfig {
    QString name;
    QString promptDescription;
    QList<JSONPromptArgument> arguments;
    QString templateText;  // the file key "template"
    // The prompt's messages (see PromptMessages); written only when set. A prompt with
    // messages renders the template, when it is not empty, as a first user message.
    std::optional<QJsonArray> messages;

    QJsonObject toJson() const;
    QVariantMap toVariant() const;
    QVariant value(const QString &key) const;

    // Every key is required but "messages"; "template" may be left out when it is there.
    static Result<JSONPromptConfig> fromJson(const QJsonObject &object);
    static Result<JSONPromptConfig> fromJsonData(const QByteArray &data);

    bool operator==(const JSONPromptConfig &) const = default;
};
