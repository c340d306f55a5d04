#include "store/PromptConfigSnapshot.h"

#include "store/SnapshotJson.h"
#include "store/PromptConfig.h"
#include "store/PromptQueryService.h"

#include <QJsonArray>

PromptConfigSnapshot PromptConfigSnapshot::fromRecord(const PromptConfig &record)
{
    PromptConfigSnapshot snapshot;
    snapshot.id = record.id().value_or(QUuid::createUuid());
    snapshot.name = record.name().value_or(QString());
    snapshot.promptDescription = record.promptDescription().value_or(QString());
    snapshot.templateText = record.templateText().value_or(QString());
    snapshot.messagesJson = record.messagesJson();
    for (const auto *child : PromptQueryService::sortedArguments(&record))
        snapshot.arguments.append(PromptArgumentSnapshot::fromRecord(*child));
    return snapshot;
}

QJsonObject PromptConfigSnapshot::toJson() const
{
    QJsonObject object;
    object.insert(QStringLiteral("id"), id.toString(QUuid::WithoutBraces));
    object.insert(QStringLiteral("name"), name);
    object.insert(QStringLiteral("promptDescription"), promptDescription);
    object.insert(QStringLiteral("template"), templateText);
    {
        QJsonArray items;
        for (const auto &item : arguments)
            items.append(item.toJson());
        object.insert(QStringLiteral("arguments"), items);
    }
    if (messagesJson)
        object.insert(QStringLiteral("messagesJson"), *messagesJson);
    return object;
}

std::optional<PromptConfigSnapshot> PromptConfigSnapshot::fromJson(const QJsonObject &object)
{
    PromptConfigSnapshot snapshot;
    const bool complete =
        SnapshotJson::readUuid(object, QStringLiteral("id"), snapshot.id) &&
        SnapshotJson::readString(object, QStringLiteral("name"), snapshot.name) &&
        SnapshotJson::readString(object, QStringLiteral("promptDescription"), snapshot.promptDescription) &&
        SnapshotJson::readString(object, QStringLiteral("template"), snapshot.templateText) &&
        SnapshotJson::readList(object, QStringLiteral("arguments"), snapshot.arguments);
    if (!complete)
        return std::nullopt;
    if (const QJsonValue messages = object.value(QStringLiteral("messagesJson")); messages.isString())
        snapshot.messagesJson = messages.toString();
    else if (!messages.isUndefined())
        return std::nullopt;
    return snapshot;
}
