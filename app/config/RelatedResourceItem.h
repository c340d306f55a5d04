#pragma once

#include <QList>
#include <QString>
#include <QUuid>

// One row of the "Related Resources" sheet. Its stored form, inside a resource's
// `relatedResources` text, is a JSON object of the three strings, without the id.
struct RelatedResourceItem {
    QUuid id = QUuid::createUuid();
    QString resourceId;
    QString resourceType;
    QString url;

    // A new row: a new id, resourceId the text of a new UUID, "text/plain", no URL.
    static RelatedResourceItem makeNew();
    // The stored JSON array; each item gets a fresh id. Text that does not decode: empty.
    static QList<RelatedResourceItem> decodeList(const QString &text);
    static QString encodeList(const QList<RelatedResourceItem> &items);
};
