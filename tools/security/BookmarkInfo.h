#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QMetaType>
#include <QString>
#include <QUrl>
#include <QUuid>
#include <optional>

// One location of the user's list of security-scoped choices.
struct BookmarkInfo {
    QUuid id;
    QUrl url;
    QString displayName;
    QDateTime createdDate;
    QDateTime lastAccessedDate;  // updated at every look-up
    bool isStale = false;        // last answer of the resolve
    int accessCount = 0;         // number of look-ups

    // The path the entry stands for, as the stored dictionary keys it.
    QString path() const;

    // The list as a JSON array; each object has its keys in field order. Dates are UTC
    // ISO 8601 texts with milliseconds.
    static QByteArray encodeList(const QList<BookmarkInfo> &list);
    // Nothing when the text is not such an array or any element lacks a field or has one
    // of the wrong type: one bad entry spoils the whole list. Dates may also be numbers
    // (seconds since 2001-01-01 UTC), the reference's own encoding.
    static std::optional<QList<BookmarkInfo>> decodeList(const QByteArray &data);

    bool operator==(const BookmarkInfo &) const = default;
};

Q_DECLARE_METATYPE(BookmarkInfo)
