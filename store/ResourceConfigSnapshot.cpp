#include "store/ResourceConfigSnapshot.h"

#include "store/SnapshotJson.h"
#include "store/ResourceConfig.h"

#include <QJsonArray>

ResourceConfigSnapshot ResourceConfigSnapshot::fromRecord(const ResourceConfig &record)
{
    ResourceConfigSnapshot snapshot;
    snapshot.id = record.id().value_or(QUuid::createUuid());
    snapshot.name = record.name().value_or(QString());
    snapshot.contextTags = record.contextTags().value_or(QString());
    snapshot.type = record.type().value_or(QString());
    snapshot.mimeType = record.mimeType().value_or(QString());
    snapshot.uriString = record.uri() ? record.uri()->toString(QUrl::FullyEncoded) : QString();
    snapshot.annAudience = record.annAudience().value_or(QString());
    snapshot.annPriority = record.annPriority().value_or(0.9);
    snapshot.resourceDescription = record.resourceDescription().value_or(QString());
    snapshot.relatedResources = record.relatedResources().value_or(QString());
    return snapshot;
}

QJsonObject ResourceConfigSnapshot::toJson() const
{
    QJsonObject object;
    object.insert(QStringLiteral("id"), id.toString(QUuid::WithoutBraces));
    object.insert(QStringLiteral("name"), name);
    object.insert(QStringLiteral("contextTags"), contextTags);
    object.insert(QStringLiteral("type"), type);
    object.insert(QStringLiteral("mimeType"), mimeType);
    object.insert(QStringLiteral("uriString"), uriString);
    object.insert(QStringLiteral("annAudience"), annAudience);
    object.insert(QStringLiteral("annPriority"), annPriority);
    object.insert(QStringLiteral("resourceDescription"), resourceDescription);
    object.insert(QStringLiteral("relatedResources"), relatedResources);
    return object;
}

std::optional<ResourceConfigSnapshot> ResourceConfigSnapshot::fromJson(const QJsonObject &object)
{
    ResourceConfigSnapshot snapshot;
    const bool complete =
        SnapshotJson::readUuid(object, QStringLiteral("id"), snapshot.id) &&
        SnapshotJson::readString(object, QStringLiteral("name"), snapshot.name) &&
        SnapshotJson::readString(object, QStringLiteral("contextTags"), snapshot.contextTags) &&
        SnapshotJson::readString(object, QStringLiteral("type"), snapshot.type) &&
        SnapshotJson::readString(object, QStringLiteral("mimeType"), snapshot.mimeType) &&
        SnapshotJson::readString(object, QStringLiteral("uriString"), snapshot.uriString) &&
        SnapshotJson::readString(object, QStringLiteral("annAudience"), snapshot.annAudience) &&
        SnapshotJson::readDouble(object, QStringLiteral("annPriority"), snapshot.annPriority) &&
        SnapshotJson::readString(object, QStringLiteral("resourceDescription"), snapshot.resourceDescription) &&
        SnapshotJson::readString(object, QStringLiteral("relatedResources"), snapshot.relatedResources);
    if (!complete)
        return std::nullopt;
    return snapshot;
}
