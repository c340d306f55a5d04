#include "store/ToolInputSchemaSnapshot.h"

#include "store/SnapshotJson.h"
#include "store/ToolInputSchema.h"
#include "store/ToolsQueryService.h"

#include <QJsonArray>

ToolInputSchemaSnapshot ToolInputSchemaSnapshot::fromRecord(const ToolInputSchema &record)
{
    ToolInputSchemaSnapshot snapshot;
    snapshot.id = record.id().value_or(QUuid::createUuid());
    snapshot.type = record.type().value_or(QString());
    snapshot.requiredParams = record.requiredParams().value_or(QString());
    for (const auto *child : ToolsQueryService::sortedProperties(&record))
        snapshot.properties.append(ToolInSchemaParamsSnapshot::fromRecord(*child));
    return snapshot;
}

QJsonObject ToolInputSchemaSnapshot::toJson() const
{
    QJsonObject object;
    object.insert(QStringLiteral("id"), id.toString(QUuid::WithoutBraces));
    object.insert(QStringLiteral("type"), type);
    object.insert(QStringLiteral("requiredParams"), requiredParams);
    {
        QJsonArray items;
        for (const auto &item : properties)
            items.append(item.toJson());
        object.insert(QStringLiteral("properties"), items);
    }
    return object;
}

std::optional<ToolInputSchemaSnapshot> ToolInputSchemaSnapshot::fromJson(const QJsonObject &object)
{
    ToolInputSchemaSnapshot snapshot;
    const bool complete = SnapshotJson::readUuid(object, QStringLiteral("id"), snapshot.id) &&
                          SnapshotJson::readString(object, QStringLiteral("type"), snapshot.type) &&
                          SnapshotJson::readString(object, QStringLiteral("requiredParams"), snapshot.requiredParams) &&
                          SnapshotJson::readList(object, QStringLiteral("properties"), snapshot.properties);
    if (!complete)
        return std::nullopt;
    return snapshot;
}
