#include "tools/security/BookmarkInfo.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonValue>
#include <QTimeZone>

namespace {

// Seconds from the Unix epoch to 2001-01-01T00:00:00Z.
constexpr qint64 referenceDateOffset = 978307200;

QString isoDate(const QDateTime &date)
{
    return date.toUTC().toString(QStringLiteral("yyyy-MM-ddTHH:mm:ss.zzzZ"));
}

std::optional<QDateTime> readDate(const QJsonValue &value)
{
    if (value.isString()) {
        QDateTime date = QDateTime::fromString(value.toString(), Qt::ISODateWithMs);
        if (!date.isValid())
            return std::nullopt;
        return date.toUTC();
    }
    if (value.isDouble()) {
        const qint64 ms = qRound64((value.toDouble() + double(referenceDateOffset)) * 1000.0);
        return QDateTime::fromMSecsSinceEpoch(ms, Qt::UTC);
    }
    return std::nullopt;
}

QByteArray jsonScalar(const QJsonValue &value)
{
    // QJsonDocument writes only arrays and objects; a one-element array gives the exact
    // escaping of a scalar, which is then cut out of the brackets.
    QByteArray text = QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact);
    return text.mid(1, text.size() - 2);
}

}  // namespace

QString BookmarkInfo::path() const
{
    return url.isLocalFile() ? url.toLocalFile() : url.path();
}

QByteArray BookmarkInfo::encodeList(const QList<BookmarkInfo> &list)
{
    // Written by hand so that each object keeps its keys in field order, which
    // QJsonObject (always sorted) cannot do.
    QByteArray out("[");
    for (qsizetype i = 0; i < list.size(); ++i) {
        const BookmarkInfo &info = list.at(i);
        if (i > 0)
            out += ',';
        out += "{\"id\":" + jsonScalar(info.id.toString(QUuid::WithoutBraces).toUpper());
        out += ",\"url\":" + jsonScalar(info.url.toString(QUrl::FullyEncoded));
        out += ",\"displayName\":" + jsonScalar(info.displayName);
        out += ",\"createdDate\":" + jsonScalar(isoDate(info.createdDate));
        out += ",\"lastAccessedDate\":" + jsonScalar(isoDate(info.lastAccessedDate));
        out += ",\"isStale\":" + jsonScalar(info.isStale);
        out += ",\"accessCount\":" + jsonScalar(info.accessCount);
        out += '}';
    }
    out += ']';
    return out;
}

std::optional<QList<BookmarkInfo>> BookmarkInfo::decodeList(const QByteArray &data)
{
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(data, &error);
    if (error.error != QJsonParseError::NoError || !document.isArray())
        return std::nullopt;
    QList<BookmarkInfo> list;
    for (const QJsonValue &element : document.array()) {
        if (!element.isObject())
            return std::nullopt;
        const QJsonObject object = element.toObject();
        BookmarkInfo info;
        const QJsonValue id = object.value(QStringLiteral("id"));
        const QJsonValue url = object.value(QStringLiteral("url"));
        const QJsonValue name = object.value(QStringLiteral("displayName"));
        const QJsonValue stale = object.value(QStringLiteral("isStale"));
        const QJsonValue count = object.value(QStringLiteral("accessCount"));
        if (!id.isString() || !url.isString() || !name.isString() || !stale.isBool() || !count.isDouble())
            return std::nullopt;
        info.id = QUuid::fromString(id.toString());
        info.url = QUrl(url.toString(), QUrl::StrictMode);
        if (info.id.isNull() || !info.url.isValid())
            return std::nullopt;
        const auto created = readDate(object.value(QStringLiteral("createdDate")));
        const auto accessed = readDate(object.value(QStringLiteral("lastAccessedDate")));
        if (!created || !accessed)
            return std::nullopt;
        const double countValue = count.toDouble();
        if (countValue != double(qint64(countValue)))
            return std::nullopt;
        info.displayName = name.toString();
        info.createdDate = *created;
        info.lastAccessedDate = *accessed;
        info.isStale = stale.toBool();
        info.accessCount = int(countValue);
        list.append(info);
    }
    return list;
}
