#pragma once

#include <QJsonObject>
#include <QString>
#include <QStringList>
#include <QVariantMap>
#include <optional>

class JSONFieldReader;

// The annotations of a tool or resource: who it is for, how much it matters, when it was
// last written out.
struct JSONAnnotations {
    QStringList audience;
    double priority = 0.0;
    QString lastModified;

    // The audience, priority and time every export writes for a tool.
    static JSONAnnotations exportDefaults();
    // The present time as 2025-01-02T03:04:05.678Z (UTC, milliseconds).
    static QString currentTimestamp();

    QJsonObject toJson() const;
    QVariantMap toVariant() const;
    // All three keys are required.
    static std::optional<JSONAnnotations> fromJson(const QJsonObject &object, JSONFieldReader &parent, const QString &key);

    bool operator==(const JSONAnnotations &) const = default;
};
