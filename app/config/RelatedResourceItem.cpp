#include "app/config/RelatedResourceItem.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

RelatedResourceItem RelatedResourceItem::makeNew()
{
    RelatedResourceItem item;
    item.resourceId = QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
    item.resourceType = QStringLiteral("text/plain");
    return item;
}

QList<RelatedResourceItem> RelatedResourceItem::decodeList(const QString &text)
{
    QList<RelatedResourceItem> items;
    const QJsonDocument document = QJsonDocument::fromJson(text.toUtf8());
    if (!document.isArray())
        return items;
    for (const QJsonValue &value : document.array()) {
        const QJsonObject object = value.toObject();
        // Every key must be a string, as the stored form has them.
        const QJsonValue id = object.value(QStringLiteral("resourceId"));
        const QJsonValue type = object.value(QStringLiteral("resourceType"));
        const QJsonValue url = object.value(QStringLiteral("url"));
        if (!value.isObject() || !id.isString() || !type.isString() || !url.isString())
            return {};
        RelatedResourceItem item;
        item.resourceId = id.toString();
        item.resourceType = type.toString();
        item.url = url.toString();
        items.append(item);
    }
    return items;
}

QString RelatedResourceItem::encodeList(const QList<RelatedResourceItem> &items)
{
    QJsonArray array;
    for (const RelatedResourceItem &item : items)
        array.append(QJsonObject{{QStringLiteral("resourceId"), item.resourceId},
                                 {QStringLiteral("resourceType"), item.resourceType},
                                 {QStringLiteral("url"), item.url}});
    return QString::fromUtf8(QJsonDocument(array).toJson(QJsonDocument::Compact));
}
