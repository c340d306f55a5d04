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
    // A tool's standard hints for clients: each optional, written only when set.
    std::optional<QString> title;
    std::optional<bool> readOnlyHint;
    std::optional<bool> destructiveHint;
    std::optional<bool> idempotentHint;
    std::optional<bool> openWorldHint;

    // The audience, priority and time every export writes for a tool.
    static JSONAnnotations exportDefaults();
    // The present time as 2025-01-02T03:04:05.678Z (UTC, milliseconds).
    static QString currentTimestamp();

    QJsonObject toJson() const;
    QVariantMap toVariant() const;
    // The hints and title alone as an Object (empty when none is set), and back: how a
    // tool record keeps them.
    QJsonObject hintsJson() const;
    void setHints(const QJsonObject &hints);
    // Audience, priority and lastModified are required; the hints and title are not.
    static std::optional<JSONAnnotations> fromJson(const QJsonObject &object, JSONFieldReader &parent, const QString &key);

    bool operator==(const JSONAnnotations &) const = default;
};
