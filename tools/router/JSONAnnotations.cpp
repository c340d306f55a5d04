#include "tools/router/JSONAnnotations.h"

#include "tools/router/JSONFieldReader.h"

#include <QDateTime>
#include <QJsonArray>

JSONAnnotations JSONAnnotations::exportDefaults()
{
    return JSONAnnotations{{QStringLiteral("user"), QStringLiteral("assistant")}, 0.9, currentTimestamp()};
}

QString JSONAnnotations::currentTimestamp()
{
    return QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs);
}

namespace {

const std::pair<QString, std::optional<bool> JSONAnnotations::*> hintMembers[] = {
    {QStringLiteral("readOnlyHint"), &JSONAnnotations::readOnlyHint},
    {QStringLiteral("destructiveHint"), &JSONAnnotations::destructiveHint},
    {QStringLiteral("idempotentHint"), &JSONAnnotations::idempotentHint},
    {QStringLiteral("openWorldHint"), &JSONAnnotations::openWorldHint}};

}  // namespace

QJsonObject JSONAnnotations::hintsJson() const
{
    QJsonObject hints;
    if (title)
        hints.insert(QStringLiteral("title"), *title);
    for (const auto &[key, member] : hintMembers)
        if (this->*member)
            hints.insert(key, *(this->*member));
    return hints;
}

void JSONAnnotations::setHints(const QJsonObject &hints)
{
    const QJsonValue titleValue = hints.value(QStringLiteral("title"));
    title = titleValue.isString() ? std::optional<QString>(titleValue.toString()) : std::nullopt;
    for (const auto &[key, member] : hintMembers) {
        const QJsonValue value = hints.value(key);
        this->*member = value.isBool() ? std::optional<bool>(value.toBool()) : std::nullopt;
    }
}

QJsonObject JSONAnnotations::toJson() const
{
    QJsonObject object{{QStringLiteral("audience"), QJsonArray::fromStringList(audience)},
                       {QStringLiteral("priority"), priority},
                       {QStringLiteral("lastModified"), lastModified}};
    const QJsonObject hints = hintsJson();
    for (auto it = hints.begin(); it != hints.end(); ++it)
        object.insert(it.key(), it.value());
    return object;
}

QVariantMap JSONAnnotations::toVariant() const
{
    QVariantMap map{{QStringLiteral("audience"), audience},
                    {QStringLiteral("priority"), priority},
                    {QStringLiteral("lastModified"), lastModified}};
    const QJsonObject hints = hintsJson();
    for (auto it = hints.begin(); it != hints.end(); ++it)
        map.insert(it.key(), it.value().toVariant());
    return map;
}

std::optional<JSONAnnotations> JSONAnnotations::fromJson(const QJsonObject &object, JSONFieldReader &parent,
                                                         const QString &key)
{
    JSONFieldReader reader(object, parent.pathOf(key));
    JSONAnnotations annotations;
    annotations.audience = reader.stringArray(QStringLiteral("audience"), true).value_or(QStringList());
    annotations.priority = reader.number(QStringLiteral("priority"), true).value_or(0.0);
    annotations.lastModified = reader.string(QStringLiteral("lastModified"), true).value_or(QString());
    annotations.title = reader.string(QStringLiteral("title"), false);
    for (const auto &[key, member] : hintMembers)
        annotations.*member = reader.boolean(key, false);
    parent.adopt(reader);
    if (!reader.ok())
        return std::nullopt;
    return annotations;
}
