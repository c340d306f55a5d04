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
    // Offered by completion/complete; written only when set.
    std::optional<QStringList> values;
    // A script that offers them instead; written only when set.
    std::optional<QString> valuesScript;

    QJsonObject toJson() const;
    QVariantMap toVariant() const;
    // Name, description and required are required; values and valuesScript are not.
    static std::optional<JSONPromptArgument> fromJson(const QJsonObject &object, JSONFieldReader &parent,
                                                      const QString &key);

    bool operator==(const JSONPromptArgument &) const = default;
};
