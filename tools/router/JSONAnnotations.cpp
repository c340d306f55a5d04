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

QJsonObject JSONAnnotations::toJson() const
{
    return QJsonObject{{QStringLiteral("audience"), QJsonArray::fromStringList(audience)},
                       {QStringLiteral("priority"), priority},
                       {QStringLiteral("lastModified"), lastModified}};
}

QVariantMap JSONAnnotations::toVariant() const
{
    return QVariantMap{{QStringLiteral("audience"), audience},
                       {QStringLiteral("priority"), priority},
                       {QStringLiteral("lastModified"), lastModified}};
}

std::optional<JSONAnnotations> JSONAnnotations::fromJson(const QJsonObject &object, JSONFieldReader &parent,
                                                         const QString &key)
{
    JSONFieldReader reader(object, parent.pathOf(key));
    JSONAnnotations annotations;
    annotations.audience = reader.stringArray(QStringLiteral("audience"), true).value_or(QStringList());
    annotations.priority = reader.number(QStringLiteral("priority"), true).value_or(0.0);
    annotations.lastModified = reader.string(QStringLiteral("lastModified"), true).value_or(QString());
    parent.adopt(reader);
    if (!reader.ok())
        return std::nullopt;
    return annotations;
}
