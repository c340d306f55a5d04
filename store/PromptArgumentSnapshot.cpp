#include "store/PromptArgumentSnapshot.h"

#include "store/SnapshotJson.h"
#include "store/PromptArguments.h"

#include <QJsonArray>

PromptArgumentSnapshot PromptArgumentSnapshot::fromRecord(const PromptArguments &record)
{
    PromptArgumentSnapshot snapshot;
    snapshot.id = record.id().value_or(QUuid::createUuid());
    snapshot.name = record.name().value_or(QString());
    snapshot.info = record.info().value_or(QString());
    snapshot.required = record.required();
    return snapshot;
}

QJsonObject PromptArgumentSnapshot::toJson() const
{
    QJsonObject object;
    object.insert(QStringLiteral("id"), id.toString(QUuid::WithoutBraces));
    object.insert(QStringLiteral("name"), name);
    object.insert(QStringLiteral("info"), info);
    object.insert(QStringLiteral("required"), required);
    return object;
}

std::optional<PromptArgumentSnapshot> PromptArgumentSnapshot::fromJson(const QJsonObject &object)
{
    PromptArgumentSnapshot snapshot;
    const bool complete = SnapshotJson::readUuid(object, QStringLiteral("id"), snapshot.id) &&
                          SnapshotJson::readString(object, QStringLiteral("name"), snapshot.name) &&
                          SnapshotJson::readString(object, QStringLiteral("info"), snapshot.info) &&
                          SnapshotJson::readBool(object, QStringLiteral("required"), snapshot.required);
    if (!complete)
        return std::nullopt;
    return snapshot;
}
