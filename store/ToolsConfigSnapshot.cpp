#include "store/ToolsConfigSnapshot.h"

#include "store/SnapshotJson.h"
#include "store/ToolsConfig.h"
#include "store/ToolsQueryService.h"

#include <QJsonArray>

ToolsConfigSnapshot ToolsConfigSnapshot::fromRecord(const ToolsConfig &record)
{
    ToolsConfigSnapshot snapshot;
    snapshot.id = record.id().value_or(QUuid::createUuid());
    snapshot.name = record.name().value_or(QString());
    snapshot.toolDescription = record.toolDescription().value_or(QString());
    snapshot.toolType = record.toolType().value_or(QString());
    snapshot.methodName = record.methodName().value_or(QString());
    snapshot.handlerName = record.handlerName().value_or(QString());
    snapshot.pluginName = record.pluginName().value_or(QString());
    snapshot.scriptFileName = record.scriptFileName().value_or(QString());
    for (const auto *child : ToolsQueryService::sortedInputSchemas(&record))
        snapshot.inputSchemas.append(ToolInputSchemaSnapshot::fromRecord(*child));
    for (const auto *child : ToolsQueryService::sortedOutputSchemas(&record))
        snapshot.outputSchemas.append(ToolOutputSchemaSnapshot::fromRecord(*child));
    return snapshot;
}

QJsonObject ToolsConfigSnapshot::toJson() const
{
    QJsonObject object;
    object.insert(QStringLiteral("id"), id.toString(QUuid::WithoutBraces));
    object.insert(QStringLiteral("name"), name);
    object.insert(QStringLiteral("toolDescription"), toolDescription);
    object.insert(QStringLiteral("toolType"), toolType);
    object.insert(QStringLiteral("methodName"), methodName);
    object.insert(QStringLiteral("handlerName"), handlerName);
    object.insert(QStringLiteral("pluginName"), pluginName);
    object.insert(QStringLiteral("scriptFileName"), scriptFileName);
    {
        QJsonArray items;
        for (const auto &item : inputSchemas)
            items.append(item.toJson());
        object.insert(QStringLiteral("inputSchemas"), items);
    }
    {
        QJsonArray items;
        for (const auto &item : outputSchemas)
            items.append(item.toJson());
        object.insert(QStringLiteral("outputSchemas"), items);
    }
    return object;
}

std::optional<ToolsConfigSnapshot> ToolsConfigSnapshot::fromJson(const QJsonObject &object)
{
    ToolsConfigSnapshot snapshot;
    const bool complete =
        SnapshotJson::readUuid(object, QStringLiteral("id"), snapshot.id) &&
        SnapshotJson::readString(object, QStringLiteral("name"), snapshot.name) &&
        SnapshotJson::readString(object, QStringLiteral("toolDescription"), snapshot.toolDescription) &&
        SnapshotJson::readString(object, QStringLiteral("toolType"), snapshot.toolType) &&
        SnapshotJson::readString(object, QStringLiteral("methodName"), snapshot.methodName) &&
        SnapshotJson::readString(object, QStringLiteral("handlerName"), snapshot.handlerName) &&
        SnapshotJson::readString(object, QStringLiteral("pluginName"), snapshot.pluginName) &&
        SnapshotJson::readString(object, QStringLiteral("scriptFileName"), snapshot.scriptFileName) &&
        SnapshotJson::readList(object, QStringLiteral("inputSchemas"), snapshot.inputSchemas) &&
        SnapshotJson::readList(object, QStringLiteral("outputSchemas"), snapshot.outputSchemas);
    if (!complete)
        return std::nullopt;
    return snapshot;
}
