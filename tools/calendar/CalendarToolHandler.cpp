#include "tools/calendar/CalendarToolHandler.h"

#include "base/MainThread.h"
#include "base/UserDefaults.h"
#include "tools/calendar/CalendarStore.h"
#include "tools/security/PrivacyAccess.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QTimeZone>
#include <QUrl>

#include <variant>

namespace {

using Kind = CalendarCollection::Kind;

const QString kSuccess = QStringLiteral("success");

// A text parameter, trimmed; empty when it is missing or no text.
QString text(const QVariantMap &params, const QString &key)
{
    const QVariant value = params.value(key);
    return value.typeId() == QMetaType::QString ? value.toString().trimmed() : QString();
}

bool isString(const QVariantMap &params, const QString &key)
{
    return params.value(key).typeId() == QMetaType::QString;
}

bool hasAccess(Kind kind)
{
    const int status = PrivacyAccess::status(kind == Kind::Events ? PrivacyAccess::Kind::Calendars
                                                                  : PrivacyAccess::Kind::Reminders);
    return status == PrivacyAccess::FullAccess || status == PrivacyAccess::WriteOnly;
}

// A text that is a URL with a scheme; anything else is no URL.
std::optional<QString> urlText(const QString &text)
{
    const QUrl url(text, QUrl::StrictMode);
    if (text.isEmpty() || !url.isValid() || url.scheme().isEmpty())
        return std::nullopt;
    return url.toString();
}

QJsonObject collectionRecord(const CalendarCollection &collection, const QString &idKey)
{
    return QJsonObject{{idKey, collection.identifier},
                       {QStringLiteral("title"), collection.title},
                       {QStringLiteral("source"), CalendarCollection::sourceTitle()},
                       {QStringLiteral("type"), collection.typeName()}};
}

QString titleOf(const QList<CalendarCollection> &collections, const QString &identifier)
{
    for (const CalendarCollection &collection : collections) {
        if (collection.identifier == identifier)
            return collection.title;
    }
    return {};
}

QJsonObject eventRecord(const CalendarItem &event, const QString &calendarTitle)
{
    return QJsonObject{{QStringLiteral("event_id"), event.recordId()},
                       {QStringLiteral("title"), event.title},
                       {QStringLiteral("start_date"), CalendarToolHandler::formatDate(event.start)},
                       {QStringLiteral("end_date"), CalendarToolHandler::formatDate(event.end)},
                       {QStringLiteral("all_day"), event.allDay},
                       {QStringLiteral("location"), event.location},
                       {QStringLiteral("notes"), event.notes},
                       {QStringLiteral("calendar_id"), event.collection},
                       {QStringLiteral("calendar_title"), calendarTitle}};
}

QJsonObject reminderRecord(const CalendarItem &reminder, const QString &listTitle)
{
    return QJsonObject{{QStringLiteral("reminder_id"), reminder.recordId()},
                       {QStringLiteral("title"), reminder.hasTitle ? reminder.title : QStringLiteral("(unknown)")},
                       {QStringLiteral("notes"), reminder.notes},
                       {QStringLiteral("completed"), reminder.completed},
                       {QStringLiteral("due_date"), CalendarToolHandler::formatDate(reminder.due)},
                       {QStringLiteral("list_id"), reminder.collection},
                       {QStringLiteral("list_title"), listTitle}};
}

JSONToolResult successResult(const QJsonObject &members)
{
    JSONToolResult result;
    result.structuredContent.insert(kSuccess, AnyCodable(true));
    for (auto it = members.begin(); it != members.end(); ++it) {
        if (auto value = AnyCodable::decode(it.value()))
            result.structuredContent.insert(it.key(), *value);
    }
    return result;
}

QString readBackTitle(const CalendarItem &item)
{
    return item.hasTitle ? item.title : QStringLiteral("(unknown)");
}

// The text item: the context line, the message and the JSON block of the structured content.
JSONToolResult withContext(JSONToolResult result, const QString &message)
{
    const QJsonObject structured = result.toJsonObject().value(QStringLiteral("structuredContent")).toObject();
    result.content = {JSONToolContent{QStringLiteral("text"), CalendarToolHandler::composeText(message, structured)}};
    return result;
}

JSONToolResult failure(const QString &message)
{
    return withContext(JSONToolResult::errorResult(message), message);
}

// A new item takes every field, a missing one empty; an update changes the fields the
// parameters name. A message when a field a new item needs is wrong.
std::optional<QString> readEvent(const QVariantMap &params, CalendarItem &event, bool creating)
{
    const std::optional<QDateTime> start = CalendarToolHandler::readDate(params.value(QStringLiteral("start_date")));
    const std::optional<QDateTime> end = CalendarToolHandler::readDate(params.value(QStringLiteral("end_date")));
    if (creating && !start)
        return QStringLiteral("Tool parameter 'start_date' must be a valid ISO 8601 date.");
    if (creating && !end)
        return QStringLiteral("Tool parameter 'end_date' must be a valid ISO 8601 date.");
    event.start = start.value_or(event.start);
    event.end = end.value_or(event.end);
    const QVariant allDay = params.value(QStringLiteral("all_day"));
    if (creating || allDay.typeId() == QMetaType::Bool)
        event.allDay = CalendarToolHandler::readBoolean(allDay, false);
    if (creating || params.contains(QStringLiteral("notes")))
        event.notes = text(params, QStringLiteral("notes"));
    if (creating || params.contains(QStringLiteral("location")))
        event.location = text(params, QStringLiteral("location"));
    if (creating || params.contains(QStringLiteral("url")))
        event.url = urlText(text(params, QStringLiteral("url"))).value_or(QString());
    return std::nullopt;
}

std::optional<QString> readReminder(const QVariantMap &params, CalendarItem &reminder, bool creating)
{
    if (creating || params.contains(QStringLiteral("notes")))
        reminder.notes = text(params, QStringLiteral("notes"));
    const QVariant completed = params.value(QStringLiteral("completed"));
    if (creating || completed.typeId() == QMetaType::Bool)
        reminder.completed = CalendarToolHandler::readBoolean(completed, false);
    if (creating || params.contains(QStringLiteral("due_date")))
        reminder.due = CalendarToolHandler::readDate(params.value(QStringLiteral("due_date"))).value_or(QDateTime());
    return std::nullopt;
}

// What tells events (VEVENT) and reminders (VTODO) apart on their shared create, update
// and delete path below.
struct ItemKind {
    Kind kind;
    QString noun;           // in messages, and the result's member that holds the item
    QString label;          // the noun at the start of a message
    QString idKey;          // the parameter that names an item
    QString collectionKey;  // the parameter that names its collection
    QString accessDenied;
    QJsonObject (*record)(const CalendarItem &item, const QString &collectionTitle);
    // The fields besides the title.
    std::optional<QString> (*read)(const QVariantMap &params, CalendarItem &item, bool creating);
};

const ItemKind kEvent{Kind::Events, QStringLiteral("event"), QStringLiteral("Event"), QStringLiteral("event_id"),
                      QStringLiteral("calendar_id"), QStringLiteral("Calendar access denied."),
                      eventRecord, readEvent};
const ItemKind kReminder{Kind::Reminders, QStringLiteral("reminder"), QStringLiteral("Reminder"),
                         QStringLiteral("reminder_id"), QStringLiteral("list_id"), QStringLiteral("Reminders access denied."),
                         reminderRecord, readReminder};

// Puts the item into the collection the parameters name, when that is one of its kind.
bool moveToNamedCollection(CalendarStore *store, const ItemKind &kind, const QVariantMap &params, CalendarItem &item)
{
    const QString id = text(params, kind.collectionKey);
    if (id.isEmpty() || titleOf(store->collections(kind.kind), id).isNull())
        return false;
    item.collection = id;
    return true;
}

// The answer to a save of the item: the item as the store reads it back; the message names
// shownTitle, or else the title read back.
JSONToolResult answer(CalendarStore *store, const ItemKind &kind, const CalendarItem &item, const QString &verb,
                      const std::optional<QString> &shownTitle, const Result<void> &saved)
{
    if (!saved)
        return failure(QStringLiteral("Failed to ") + verb + u' ' + kind.noun + QStringLiteral(": ") +
                       saved.error().description);
    const CalendarItem shown = store->item(item.recordId(), kind.kind).value_or(item);
    const QString collectionTitle = titleOf(store->collections(kind.kind), shown.collection);
    return withContext(successResult({{kind.noun, kind.record(shown, collectionTitle)}}),
                       kind.label + u' ' + verb + QStringLiteral("d: ") + shownTitle.value_or(readBackTitle(shown)));
}

JSONToolResult write(CalendarStore *store, const ItemKind &kind, CalendarItem item, const QString &verb,
                     const std::optional<QString> &shownTitle)
{
    const Result<void> saved = store->save(item, kind.kind);
    return answer(store, kind, item, verb, shownTitle, saved);
}

JSONToolResult createItem(CalendarStore *store, const ItemKind &kind, const QVariantMap &params)
{
    if (!hasAccess(kind.kind))
        return failure(kind.accessDenied);
    const QString title = text(params, QStringLiteral("title"));
    if (title.isEmpty())
        return failure(QStringLiteral("Tool parameter 'title' must not be empty."));
    CalendarItem item;
    item.title = title;
    item.hasTitle = true;
    if (const std::optional<QString> invalid = kind.read(params, item, true))
        return failure(*invalid);
    if (!moveToNamedCollection(store, kind, params, item)) {
        // Without one the save below refuses the item for want of a calendar.
        if (const Result<CalendarCollection> fallback = store->defaultCollection(kind.kind))
            item.collection = fallback->identifier;
    }
    // A new reminder is answered with the title it was given, an event with the one read back.
    return write(store, kind, item, QStringLiteral("create"),
                 kind.kind == Kind::Reminders ? std::optional(title) : std::nullopt);
}

// The item the parameters name, or the failure that answers the call.
std::variant<CalendarItem, JSONToolResult> existingItem(CalendarStore *store, const ItemKind &kind,
                                                        const QVariantMap &params)
{
    if (!hasAccess(kind.kind))
        return failure(kind.accessDenied);
    const QString id = text(params, kind.idKey);
    if (id.isEmpty())
        return failure(QStringLiteral("Tool parameter '") + kind.idKey + QStringLiteral("' must not be empty."));
    std::optional<CalendarItem> found = store->item(id, kind.kind);
    if (!found)
        return failure(kind.label + QStringLiteral(" not found for id '") + id + QStringLiteral("'."));
    return *found;
}

JSONToolResult updateItem(CalendarStore *store, const ItemKind &kind, const QVariantMap &params)
{
    // A file another program changed between the read and the write is read again and the
    // changes applied to what it holds now; a file that keeps changing fails the call.
    for (int attempt = 0;; ++attempt) {
        std::variant<CalendarItem, JSONToolResult> found = existingItem(store, kind, params);
        if (const auto *refused = std::get_if<JSONToolResult>(&found))
            return *refused;
        CalendarItem &item = std::get<CalendarItem>(found);
        if (isString(params, QStringLiteral("title"))) {
            item.title = text(params, QStringLiteral("title"));
            item.hasTitle = true;
        }
        kind.read(params, item, false);
        moveToNamedCollection(store, kind, params, item);
        const Result<void> saved = store->save(item, kind.kind);
        if (saved || saved.error().code != CalendarStore::Stale || attempt == 2)
            return answer(store, kind, item, QStringLiteral("update"), std::nullopt, saved);
    }
}

JSONToolResult deleteItem(CalendarStore *store, const ItemKind &kind, const QVariantMap &params)
{
    const std::variant<CalendarItem, JSONToolResult> found = existingItem(store, kind, params);
    if (const auto *refused = std::get_if<JSONToolResult>(&found))
        return *refused;
    const CalendarItem &item = std::get<CalendarItem>(found);
    if (const Result<void> removed = store->remove(item); !removed)
        return failure(QStringLiteral("Failed to delete ") + kind.noun + QStringLiteral(": ") + removed.error().description);
    return withContext(successResult({{kind.idKey, item.recordId()}}),
                       kind.label + QStringLiteral(" deleted: ") + item.recordId());
}

}  // namespace

CalendarToolHandler *CalendarToolHandler::shared()
{
    static auto *handler = new CalendarToolHandler();
    return handler;
}

CalendarToolHandler::CalendarToolHandler(CalendarStore *store) : m_store(store) {}

CalendarStore *CalendarToolHandler::store() const
{
    return m_store ? m_store : CalendarStore::shared();
}

std::optional<QDateTime> CalendarToolHandler::readDate(const QVariant &value)
{
    switch (value.typeId()) {
    case QMetaType::QDateTime:
        return value.toDateTime().isValid() ? std::optional(value.toDateTime()) : std::nullopt;
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Double: {
        const double seconds = value.toDouble();
        return QDateTime::fromMSecsSinceEpoch(qint64(seconds * 1000.0), Qt::UTC);
    }
    case QMetaType::QString: {
        // Internet date and time: a full date, a time to the second, an optional fraction,
        // and the zone as Z or an offset.
        static const QRegularExpression form(QStringLiteral(
            R"(^\d{4}-\d{2}-\d{2}T\d{2}:\d{2}:\d{2}(\.\d{1,9})?(Z|[+-]\d{2}:?\d{2})$)"),
            QRegularExpression::CaseInsensitiveOption);
        const QString text = value.toString().trimmed();
        if (text.isEmpty() || !form.match(text).hasMatch())
            return std::nullopt;
        QDateTime date = QDateTime::fromString(text.toUpper(), Qt::ISODateWithMs);
        if (!date.isValid())
            return std::nullopt;
        return date.toUTC();
    }
    default:
        return std::nullopt;
    }
}

bool CalendarToolHandler::readBoolean(const QVariant &value, bool defaultValue)
{
    if (value.typeId() == QMetaType::Bool)
        return value.toBool();
    if (value.typeId() == QMetaType::QString) {
        const QString lower = value.toString().toLower();
        return lower == QLatin1String("1") || lower == QLatin1String("true") || lower == QLatin1String("yes") ||
               lower == QLatin1String("on");
    }
    return defaultValue;
}

QString CalendarToolHandler::formatDate(const QDateTime &date)
{
    if (!date.isValid())
        return {};
    return date.toUTC().toString(Qt::ISODateWithMs);
}

QString CalendarToolHandler::composeText(const QString &message, const QJsonObject &structured)
{
    const QString context = QStringLiteral("Current date/time context: ") +
                            formatDate(QDateTime::currentDateTimeUtc()) + QStringLiteral(" (timezone: ") +
                            QString::fromUtf8(QTimeZone::systemTimeZoneId()) + u')';
    const QString json = QString::fromUtf8(QJsonDocument(structured).toJson(QJsonDocument::Indented)).trimmed();
    QString text = context;
    if (!message.isEmpty())
        text += u'\n' + message;
    if (!json.isEmpty())
        text += QStringLiteral("\n\n```json\n") + json + QStringLiteral("\n```");
    return text;
}

JSONToolResult CalendarToolHandler::listCalendars(const QVariantMap &) const
{
    if (!hasAccess(Kind::Events))
        return failure(QStringLiteral("Calendar access denied."));
    QJsonArray records;
    QStringList lines;
    for (const CalendarCollection &calendar : store()->collections(Kind::Events)) {
        records.append(collectionRecord(calendar, QStringLiteral("calendar_id")));
        lines.append(calendar.identifier + QStringLiteral(", ") + calendar.title);
    }
    return withContext(successResult({{QStringLiteral("count"), records.size()}, {QStringLiteral("calendars"), records}}),
                       lines.join(u'\n'));
}

JSONToolResult CalendarToolHandler::listEvents(const QVariantMap &params) const
{
    // The event store belongs to the main thread; the worker waits for the answer.
    if (!MainThread::isCurrent() && QCoreApplication::instance()) {
        JSONToolResult result;
        MainThread::runBlocking([&] { result = listEvents(params); });
        return result;
    }
    if (!hasAccess(Kind::Events))
        return failure(QStringLiteral("Calendar access denied."));
    const QDateTime now = QDateTime::currentDateTime();
    const QDateTime start = readDate(params.value(QStringLiteral("start_date"))).value_or(now.addDays(-30));
    const QDateTime end = readDate(params.value(QStringLiteral("end_date"))).value_or(now.addDays(365));
    // A calendar_id that names no calendar searches none: the filter holds it either way.
    std::optional<QStringList> only;
    const QString calendarId = text(params, QStringLiteral("calendar_id"));
    if (!calendarId.isEmpty())
        only = QStringList{calendarId};
    // A series that repeats without end is cut rather than filling the answer.
    bool readable = false;
    int limit = UserDefaults::standard()->value(maxOccurrencesSettingKey(), 10000).toInt(&readable);
    if (!readable || limit <= 0)
        limit = 10000;
    bool truncated = false;
    QList<CalendarCollection> calendars;
    QJsonArray records;
    QStringList lines;
    for (const CalendarItem &event : store()->events(start, end, only, &calendars, limit, &truncated)) {
        records.append(eventRecord(event, titleOf(calendars, event.collection)));
        lines.append(event.recordId() + QStringLiteral(", ") + event.title);
    }
    return withContext(successResult({{QStringLiteral("count"), records.size()},
                                      {QStringLiteral("start_date"), formatDate(start)},
                                      {QStringLiteral("end_date"), formatDate(end)},
                                      {QStringLiteral("truncated"), truncated},
                                      {QStringLiteral("events"), records}}),
                       lines.join(u'\n'));
}

JSONToolResult CalendarToolHandler::createEvent(const QVariantMap &params) const
{
    return createItem(store(), kEvent, params);
}

JSONToolResult CalendarToolHandler::updateEvent(const QVariantMap &params) const
{
    return updateItem(store(), kEvent, params);
}

JSONToolResult CalendarToolHandler::deleteEvent(const QVariantMap &params) const
{
    return deleteItem(store(), kEvent, params);
}

JSONToolResult CalendarToolHandler::listReminderLists(const QVariantMap &) const
{
    if (!hasAccess(Kind::Reminders))
        return failure(QStringLiteral("Reminders access denied."));
    QJsonArray records;
    QStringList lines;
    for (const CalendarCollection &list : store()->collections(Kind::Reminders)) {
        records.append(collectionRecord(list, QStringLiteral("list_id")));
        lines.append(list.identifier + QStringLiteral(", ") + list.title);
    }
    return withContext(successResult({{QStringLiteral("count"), records.size()}, {QStringLiteral("lists"), records}}),
                       lines.join(u'\n'));
}

JSONToolResult CalendarToolHandler::listReminders(const QVariantMap &params) const
{
    if (!hasAccess(Kind::Reminders))
        return failure(QStringLiteral("Reminders access denied."));
    const QList<CalendarCollection> lists = store()->collections(Kind::Reminders);
    std::optional<QStringList> only;
    const QString listId = text(params, QStringLiteral("list_id"));
    if (!listId.isEmpty()) {
        only = QStringList();
        for (const CalendarCollection &list : lists) {
            if (list.identifier == listId)
                only->append(list.identifier);
        }
    }
    const bool includeCompleted = readBoolean(params.value(QStringLiteral("include_completed")), false);
    QJsonArray records;
    QStringList lines;
    for (const CalendarItem &reminder : store()->reminders(only)) {
        if (reminder.completed && !includeCompleted)
            continue;
        const QJsonObject record = reminderRecord(reminder, titleOf(lists, reminder.collection));
        records.append(record);
        lines.append(reminder.recordId() + QStringLiteral(", ") + record.value(QStringLiteral("title")).toString());
    }
    return withContext(successResult({{QStringLiteral("count"), records.size()}, {QStringLiteral("reminders"), records}}),
                       lines.join(u'\n'));
}

JSONToolResult CalendarToolHandler::createReminder(const QVariantMap &params) const
{
    return createItem(store(), kReminder, params);
}

JSONToolResult CalendarToolHandler::updateReminder(const QVariantMap &params) const
{
    return updateItem(store(), kReminder, params);
}

JSONToolResult CalendarToolHandler::deleteReminder(const QVariantMap &params) const
{
    return deleteItem(store(), kReminder, params);
}
