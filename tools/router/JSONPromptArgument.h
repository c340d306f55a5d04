#pragma once

#include <QJsonObject>
#include <QString>
#include <QVariantMap>
#include <optional>

class JSONFieldReader;

// One argument of a prompt. The file key of argumentDescription is "description".
struct JSONPromptArgument {
    QString name;
    QString argumentDescription;
    bool required = false;

    QJsonObject toJson() const;
    QVariantMap toVariant() const;
    // All three keys are required.
    static std::optional<JSONPromptArgument> fromJson(const QJsonObject &object, JSONFieldReader &parent,
                                                      const QString &key);

    bool operator==(const JSONPromptArgument &) const = default;
};
