#include "store/ToolSchemaSnapshot.h"

#include "store/SnapshotJson.h"
#include "store/ToolInSchemaParams.h"
#include "store/ToolInputSchema.h"
#include "store/ToolOutSchemeParams.h"
#include "store/ToolOutputSchema.h"
#include "store/ToolsQueryService.h"

#include <QJsonArray>

template <class Record, class Params>
ToolSchemaSnapshot<Record, Params> ToolSchemaSnapshot<Record, Params>::fromRecord(const Record &record)
{
    ToolSchemaSnapshot snapshot;
    snapshot.id = record.id().value_or(QUuid::createUuid());
    snapshot.type = record.type().value_or(QString());
    snapshot.requiredParams = record.requiredParams().value_or(QString());
    for (const Params *child : ToolsQueryService::sortedProperties(&record))
        snapshot.properties.append(ToolSchemaParamsSnapshot<Params>::fromRecord(*child));
    return snapshot;
}

template <class Record, class Params>
QJsonObject ToolSchemaSnapshot<Record, Params>::toJson() const
{
    QJsonArray items;
    for (const auto &item : properties)
        items.append(item.toJson());
    QJsonObject object;
    object.insert(QStringLiteral("id"), id.toString(QUuid::WithoutBraces));
    object.insert(QStringLiteral("type"), type);
    object.insert(QStringLiteral("requiredParams"), requiredParams);
    object.insert(QStringLiteral("properties"), items);
    return object;
}

template <class Record, class Params>
std::optional<ToolSchemaSnapshot<Record, Params>> ToolSchemaSnapshot<Record, Params>::fromJson(
    const QJsonObject &object)
{
    ToolSchemaSnapshot snapshot;
    const bool complete = SnapshotJson::readUuid(object, QStringLiteral("id"), snapshot.id) &&
                          SnapshotJson::readString(object, QStringLiteral("type"), snapshot.type) &&
                          SnapshotJson::readString(object, QStringLiteral("requiredParams"), snapshot.requiredParams) &&
                          SnapshotJson::readList(object, QStringLiteral("properties"), snapshot.properties);
    if (!complete)
        return std::nullopt;
    return snapshot;
}

template struct ToolSchemaSnapshot<ToolInputSchema, ToolInSchemaParams>;
template struct ToolSchemaSnapshot<ToolOutputSchema, ToolOutSchemeParams>;
