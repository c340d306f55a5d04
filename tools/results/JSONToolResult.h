#pragma once

#include "base/AnyCodable.h"
#include "tools/results/JSONToolContent.h"

#include <QList>
#include <QMap>
#include <QString>
#include <optional>

// What every executor gives back: content items for people, structured content for
// programs. A failure is a result too, with structuredContent.success false.
struct JSONToolResult {
    QList<JSONToolContent> content;
    QMap<QString, AnyCodable> structuredContent;

    // The record as pretty-printed JSON with sorted keys; "{}" if it cannot be encoded.
    QString json() const;
    QJsonObject toJsonObject() const;
    // Reads {"content": [{"type","text"}...], "structuredContent": {...}}; both keys required.
    static std::optional<JSONToolResult> fromJson(const QJsonObject &object);

    // One text item, and structuredContent {error: text, success: false}.
    static JSONToolResult errorResult(const QString &text);
};
