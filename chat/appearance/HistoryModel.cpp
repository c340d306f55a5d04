#include "chat/appearance/HistoryModel.h"

#include "base/AtomicFile.h"
#include "base/UserDefaults.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QUuid>

namespace {
const QString kKey = QStringLiteral("chat.input.history");
}

HistoryModel::HistoryModel(QObject *parent) : QObject(parent)
{
    const QByteArray stored = UserDefaults::standard()->value(kKey).toByteArray();
    if (auto items = decode(stored))
        m_items = *items;
}

void HistoryModel::add(const QString &text)
{
    const QString prompt = text.trimmed();
    if (prompt.isEmpty())
        return;
    m_items.append({QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper(), prompt,
                    QDateTime::currentDateTimeUtc()});
    if (m_items.size() > Limit)
        m_items.remove(0, m_items.size() - Limit);
    store();
}

void HistoryModel::remove(const QString &id)
{
    m_items.removeIf([&](const HistoryItem &item) { return item.id == id; });
    store();
}

void HistoryModel::clear()
{
    m_items.clear();
    store();
}

QList<HistoryItem> HistoryModel::search(const QString &query) const
{
    if (query.isEmpty())
        return m_items;
    QList<HistoryItem> out;
    for (const HistoryItem &item : m_items)
        if (item.prompt.contains(query, Qt::CaseInsensitive))
            out.append(item);
    return out;
}

QString HistoryModel::suggestedFileName(const QDateTime &now)
{
    return QStringLiteral("history-%1.json").arg(now.toUTC().toString(Qt::ISODate));
}

QByteArray HistoryModel::encode(const QList<HistoryItem> &items)
{
    QJsonArray array;
    for (const HistoryItem &item : items)
        array.append(item.toJson()); // QJsonObject keeps its keys sorted
    return QJsonDocument(array).toJson(QJsonDocument::Indented);
}

std::optional<QList<HistoryItem>> HistoryModel::decode(const QByteArray &bytes)
{
    QJsonParseError error{};
    const QJsonDocument doc = QJsonDocument::fromJson(bytes, &error);
    if (error.error != QJsonParseError::NoError || !doc.isArray())
        return std::nullopt;
    QList<HistoryItem> items;
    for (const QJsonValue &value : doc.array()) {
        auto item = value.isObject() ? HistoryItem::fromJson(value.toObject()) : std::nullopt;
        if (!item)
            return std::nullopt;
        items.append(*item);
    }
    return items;
}

std::optional<QString> HistoryModel::saveToFile(const QString &path) const
{
    if (auto failure = AtomicFile::write(path, encode(m_items)))
        return QStringLiteral("Failed to save history.");
    return std::nullopt;
}

std::optional<QString> HistoryModel::loadFromFile(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QStringLiteral("Failed to load history.");
    auto items = decode(file.readAll());
    if (!items)
        return QStringLiteral("The file \"%1\" isn't a history list.").arg(path);
    m_items = *items;
    store();
    return std::nullopt;
}

void HistoryModel::store()
{
    auto defaults = UserDefaults::standard();
    defaults->setValue(kKey, encode(m_items));
    defaults->sync(); // a failed store is silent: the list in memory stays
    emit changed();
}
