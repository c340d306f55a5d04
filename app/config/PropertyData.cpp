#include "app/config/PropertyData.h"

#include <QJsonDocument>
#include <QJsonObject>

const QStringList PropertyData::jsonTypes = {QStringLiteral("string"), QStringLiteral("number"), QStringLiteral("boolean"),
                                             QStringLiteral("array"),  QStringLiteral("object"), QStringLiteral("null")};
const QStringList PropertyData::propTypes = {QStringLiteral("string"), QStringLiteral("number"), QStringLiteral("boolean"),
                                             QStringLiteral("null")};

QList<ObjectProperty> PropertyData::parseObjectProperties(const QString &items)
{
    QList<ObjectProperty> members;
    const QJsonDocument document = QJsonDocument::fromJson(items.toUtf8());
    if (!document.isObject())
        return members;
    const QJsonObject object = document.object();
    for (auto it = object.begin(); it != object.end(); ++it) {
        if (!it.value().isObject())
            continue;
        const QJsonObject member = it.value().toObject();
        ObjectProperty property;
        property.name = it.key();
        property.type = member.value(QStringLiteral("type")).toString(QStringLiteral("string"));
        property.description = member.value(QStringLiteral("description")).toString();
        members.append(property);
    }
    return members;
}

QString PropertyData::objectItemsText(const QList<ObjectProperty> &members)
{
    QJsonObject object;
    for (const ObjectProperty &member : members)
        object.insert(member.name, QJsonObject{{QStringLiteral("type"), member.type},
                                               {QStringLiteral("description"), member.description}});
    return QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Indented));
}
