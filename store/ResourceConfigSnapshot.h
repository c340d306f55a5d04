#pragma once

#include <QJsonObject>
#include <QList>
#include <QString>
#include <QUuid>
#include <optional>

class ResourceConfig;

// Value copy of a resource. A missing priority reads as 0.9, a missing audience as "".
// Its JSON form uses the field names as keys; decoding requires every key.
struct ResourceConfigSnapshot {
    QUuid id;
    QString name;
    QString contextTags;
    QString type;
    QString mimeType;
    QString uriString;
    QString annAudience;
    double annPriority = 0;
    QString resourceDescription;
    QString relatedResources;

    // Made by the reading rules: missing texts read as "", a missing id as a fresh one.
    static ResourceConfigSnapshot fromRecord(const ResourceConfig &record);
    QJsonObject toJson() const;
    static std::optional<ResourceConfigSnapshot> fromJson(const QJsonObject &object);

    bool operator==(const ResourceConfigSnapshot &other) const = default;
};
