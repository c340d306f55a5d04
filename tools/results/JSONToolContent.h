#pragma once

#include <QJsonObject>
#include <QString>
#include <optional>

// One content item of a tool result. A text item is its type and text; any other kind (an
// image or audio with base64 `data` and `mimeType`, an embedded `resource`, a
// `resource_link` with `uri` and `name`) keeps its other members as given in `members`, so
// that it reaches the client as the tool wrote it.
struct JSONToolContent {
    QString type = QStringLiteral("text");
    QString text;
    QJsonObject members;

    // `type`, `text` (for a text item, or when not empty) and the other members.
    QJsonObject toJson() const;
    // `type` must be a string, and `text` one for a text item (optional for other kinds).
    static std::optional<JSONToolContent> fromJson(const QJsonObject &object);

    bool operator==(const JSONToolContent &) const = default;
};
