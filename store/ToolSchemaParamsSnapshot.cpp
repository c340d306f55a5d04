#include "store/ToolSchemaParamsSnapshot.h"

#include "store/SnapshotJson.h"
#include "store/ToolInSchemaParams.h"
#include "store/ToolOutSchemeParams.h"

template <class Record>
ToolSchemaParamsSnapshot<Record> ToolSchemaParamsSnapshot<Record>::fromRecord(const Record &record)
{
    ToolSchemaParamsSnapshot snapshot;
    snapshot.id = record.id().value_or(QUuid::createUuid());
    snapshot.parameterName = record.parameterName().value_or(QString());
    snapshot.parameterType = record.parameterType().value_or(QString());
    snapshot.parameterDescription = record.parameterDescription().value_or(QString());
    snapshot.defaultValue = record.defaultValue().value_or(QString());
    snapshot.itemType = record.itemType().value_or(QString());
    snapshot.items = record.items().value_or(QString());
    return snapshot;
}

template <class Record>
QJsonObject ToolSchemaParamsSnapshot<Record>::toJson() const
{
    QJsonObject object;
    object.insert(QStringLiteral("id"), id.toString(QUuid::WithoutBraces));
    object.insert(QStringLiteral("parameterName"), parameterName);
    object.insert(QStringLiteral("parameterType"), parameterType);
    object.insert(QStringLiteral("parameterDescription"), parameterDescription);
    object.insert(QStringLiteral("defaultValue"), defaultValue);
    object.insert(QStringLiteral("itemType"), itemType);
    object.insert(QStringLiteral("items"), items);
    return object;
}

template <class Record>
std::optional<ToolSchemaParamsSnapshot<Record>> ToolSchemaParamsSnapshot<Record>::fromJson(const QJsonObject &object)
{
    ToolSchemaParamsSnapshot snapshot;
    const bool complete =
        SnapshotJson::readUuid(object, QStringLiteral("id"), snapshot.id) &&
        SnapshotJson::readString(object, QStringLiteral("parameterName"), snapshot.parameterName) &&
        SnapshotJson::readString(object, QStringLiteral("parameterType"), snapshot.parameterType) &&
        SnapshotJson::readString(object, QStringLiteral("parameterDescription"), snapshot.parameterDescription) &&
        SnapshotJson::readString(object, QStringLiteral("defaultValue"), snapshot.defaultValue) &&
        SnapshotJson::readString(object, QStringLiteral("itemType"), snapshot.itemType) &&
        SnapshotJson::readString(object, QStringLiteral("items"), snapshot.items);
    if (!complete)
        return std::nullopt;
    return snapshot;
}

template struct ToolSchemaParamsSnapshot<ToolInSchemaParams>;
template struct ToolSchemaParamsSnapshot<ToolOutSchemeParams>;
