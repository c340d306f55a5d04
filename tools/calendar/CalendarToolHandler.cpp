#include "tools/calendar/CalendarToolHandler.h"

#include "base/MainThread.h"
#include "tools/calendar/CalendarStore.h"
#include "tools/security/PrivacyAccess.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QTimeZone>
#include <QUrl>

namespace {

using Kind = CalendarCollection::Kind;

const QString kSuccess = QStringLiteral("success");

std::optional<QString> textParam(const QVariantMap &params, const QString &key)
{
    const QVariant value = params.value(key);
    if (value.typeId() != QMetaType::QString)
        return std::nullopt;
    return value.toString().trimmed();
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
                       {QStringLiteral("type"), CalendarCollection::typeName()}};
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
    return QJsonObject{{QStringLiteral("event_id"), event.identifier},
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
    return QJsonObject{{QStringLiteral("reminder_id"), reminder.identifier},
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

JSONToolResult CalendarToolHandler::withContext(JSONToolResult result, const QString &message) const
{
    const QJsonObject structured = result.toJsonObject().value(QStringLiteral("structuredContent")).toObject();
    result.content = {JSONToolContent{QStringLiteral("text"), composeText(message, structured)}};
    return result;
}

JSONToolResult CalendarToolHandler::failure(const QString &message) const
{
    return withContext(JSONToolResult::errorResult(message), message);
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
    const QString calendarId = textParam(params, QStringLiteral("calendar_id")).value_or(QString());
    if (!calendarId.isEmpty())
        only = QStringList{calendarId};
    QList<CalendarCollection> calendars;
    QJsonArray records;
    QStringList lines;
    for (const CalendarItem &event : store()->events(start, end, only, &calendars)) {
        records.append(eventRecord(event, titleOf(calendars, event.collection)));
        lines.append(event.identifier + QStringLiteral(", ") + event.title);
    }
    return withContext(successResult({{QStringLiteral("count"), records.size()},
                                      {QStringLiteral("start_date"), formatDate(start)},
                                      {QStringLiteral("end_date"), formatDate(end)},
                                      {QStringLiteral("events"), records}}),
                       lines.join(u'\n'));
}

JSONToolResult CalendarToolHandler::createEvent(const QVariantMap &params) const
{
    if (!hasAccess(Kind::Events))
        return failure(QStringLiteral("Calendar access denied."));
    const QString title = textParam(params, QStringLiteral("title")).value_or(QString());
    if (title.isEmpty())
        return failure(QStringLiteral("Tool parameter 'title' must not be empty."));
    const std::optional<QDateTime> start = readDate(params.value(QStringLiteral("start_date")));
    if (!start)
        return failure(QStringLiteral("Tool parameter 'start_date' must be a valid ISO 8601 date."));
    const std::optional<QDateTime> end = readDate(params.value(QStringLiteral("end_date")));
    if (!end)
        return failure(QStringLiteral("Tool parameter 'end_date' must be a valid ISO 8601 date."));

    CalendarItem event;
    event.title = title;
    event.hasTitle = true;
    event.start = *start;
    event.end = *end;
    event.allDay = readBoolean(params.value(QStringLiteral("all_day")), false);
    event.notes = textParam(params, QStringLiteral("notes")).value_or(QString());
    event.location = textParam(params, QStringLiteral("location")).value_or(QString());
    if (const std::optional<QString> url = urlText(textParam(params, QStringLiteral("url")).value_or(QString())))
        event.url = *url;
    const QList<CalendarCollection> calendars = store()->collections(Kind::Events);
    const QString calendarId = textParam(params, QStringLiteral("calendar_id")).value_or(QString());
    if (!titleOf(calendars, calendarId).isNull() && !calendarId.isEmpty()) {
        event.collection = calendarId;
    } else {
        QString error;
        if (const std::optional<CalendarCollection> fallback = store()->defaultCollection(Kind::Events, &error))
            event.collection = fallback->identifier;
    }
    QString error;
    if (!store()->save(event, Kind::Events, &error))
        return failure(QStringLiteral("Failed to create event: ") + error);
    const std::optional<CalendarItem> saved = store()->item(event.identifier, Kind::Events);
    const CalendarItem &shown = saved ? *saved : event;
    return withContext(
        successResult({{QStringLiteral("event"),
                        eventRecord(shown, titleOf(store()->collections(Kind::Events), shown.collection))}}),
        QStringLiteral("Event created: ") + readBackTitle(shown));
}

JSONToolResult CalendarToolHandler::updateEvent(const QVariantMap &params) const
{
    if (!hasAccess(Kind::Events))
        return failure(QStringLiteral("Calendar access denied."));
    const QString id = textParam(params, QStringLiteral("event_id")).value_or(QString());
    if (id.isEmpty())
        return failure(QStringLiteral("Tool parameter 'event_id' must not be empty."));
    std::optional<CalendarItem> found = store()->item(id, Kind::Events);
    if (!found)
        return failure(QStringLiteral("Event not found for id '") + id + QStringLiteral("'."));
    CalendarItem event = *found;
    if (isString(params, QStringLiteral("title"))) {
        event.title = textParam(params, QStringLiteral("title")).value_or(QString());
        event.hasTitle = true;
    }
    if (const std::optional<QDateTime> start = readDate(params.value(QStringLiteral("start_date"))))
        event.start = *start;
    if (const std::optional<QDateTime> end = readDate(params.value(QStringLiteral("end_date"))))
        event.end = *end;
    if (params.value(QStringLiteral("all_day")).typeId() == QMetaType::Bool)
        event.allDay = params.value(QStringLiteral("all_day")).toBool();
    if (params.contains(QStringLiteral("notes")))
        event.notes = textParam(params, QStringLiteral("notes")).value_or(QString());
    if (params.contains(QStringLiteral("location")))
        event.location = textParam(params, QStringLiteral("location")).value_or(QString());
    if (params.contains(QStringLiteral("url")))
        event.url = urlText(textParam(params, QStringLiteral("url")).value_or(QString())).value_or(QString());
    const QList<CalendarCollection> calendars = store()->collections(Kind::Events);
    const QString calendarId = textParam(params, QStringLiteral("calendar_id")).value_or(QString());
    if (!calendarId.isEmpty() && !titleOf(calendars, calendarId).isNull())
        event.collection = calendarId;
    QString error;
    if (!store()->save(event, Kind::Events, &error))
        return failure(QStringLiteral("Failed to update event: ") + error);
    const CalendarItem shown = store()->item(event.identifier, Kind::Events).value_or(event);
    return withContext(successResult({{QStringLiteral("event"),
                                       eventRecord(shown, titleOf(store()->collections(Kind::Events), shown.collection))}}),
                       QStringLiteral("Event updated: ") + readBackTitle(shown));
}

JSONToolResult CalendarToolHandler::deleteEvent(const QVariantMap &params) const
{
    if (!hasAccess(Kind::Events))
        return failure(QStringLiteral("Calendar access denied."));
    const QString id = textParam(params, QStringLiteral("event_id")).value_or(QString());
    if (id.isEmpty())
        return failure(QStringLiteral("Tool parameter 'event_id' must not be empty."));
    const std::optional<CalendarItem> found = store()->item(id, Kind::Events);
    if (!found)
        return failure(QStringLiteral("Event not found for id '") + id + QStringLiteral("'."));
    QString error;
    if (!store()->remove(*found, &error))
        return failure(QStringLiteral("Failed to delete event: ") + error);
    return withContext(successResult({{QStringLiteral("event_id"), id}}), QStringLiteral("Event deleted: ") + id);
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
    const QString listId = textParam(params, QStringLiteral("list_id")).value_or(QString());
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
        lines.append(reminder.identifier + QStringLiteral(", ") + record.value(QStringLiteral("title")).toString());
    }
    return withContext(successResult({{QStringLiteral("count"), records.size()}, {QStringLiteral("reminders"), records}}),
                       lines.join(u'\n'));
}

JSONToolResult CalendarToolHandler::createReminder(const QVariantMap &params) const
{
    if (!hasAccess(Kind::Reminders))
        return failure(QStringLiteral("Reminders access denied."));
    const QString title = textParam(params, QStringLiteral("title")).value_or(QString());
    if (title.isEmpty())
        return failure(QStringLiteral("Tool parameter 'title' must not be empty."));
    CalendarItem reminder;
    reminder.title = title;
    reminder.hasTitle = true;
    reminder.notes = textParam(params, QStringLiteral("notes")).value_or(QString());
    reminder.completed = readBoolean(params.value(QStringLiteral("completed")), false);
    if (const std::optional<QDateTime> due = readDate(params.value(QStringLiteral("due_date"))))
        reminder.due = *due;
    const QList<CalendarCollection> lists = store()->collections(Kind::Reminders);
    const QString listId = textParam(params, QStringLiteral("list_id")).value_or(QString());
    if (!listId.isEmpty() && !titleOf(lists, listId).isNull()) {
        reminder.collection = listId;
    } else {
        QString error;
        if (const std::optional<CalendarCollection> fallback = store()->defaultCollection(Kind::Reminders, &error))
            reminder.collection = fallback->identifier;
    }
    QString error;
    if (!store()->save(reminder, Kind::Reminders, &error))
        return failure(QStringLiteral("Failed to create reminder: ") + error);
    const CalendarItem shown = store()->item(reminder.identifier, Kind::Reminders).value_or(reminder);
    return withContext(successResult({{QStringLiteral("reminder"),
                                       reminderRecord(shown, titleOf(store()->collections(Kind::Reminders),
                                                                     shown.collection))}}),
                       QStringLiteral("Reminder created: ") + title);
}

JSONToolResult CalendarToolHandler::updateReminder(const QVariantMap &params) const
{
    if (!hasAccess(Kind::Reminders))
        return failure(QStringLiteral("Reminders access denied."));
    const QString id = textParam(params, QStringLiteral("reminder_id")).value_or(QString());
    if (id.isEmpty())
        return failure(QStringLiteral("Tool parameter 'reminder_id' must not be empty."));
    const std::optional<CalendarItem> found = store()->item(id, Kind::Reminders);
    if (!found)
        return failure(QStringLiteral("Reminder not found for id '") + id + QStringLiteral("'."));
    CalendarItem reminder = *found;
    if (isString(params, QStringLiteral("title"))) {
        reminder.title = textParam(params, QStringLiteral("title")).value_or(QString());
        reminder.hasTitle = true;
    }
    if (params.contains(QStringLiteral("notes")))
        reminder.notes = textParam(params, QStringLiteral("notes")).value_or(QString());
    if (params.value(QStringLiteral("completed")).typeId() == QMetaType::Bool)
        reminder.completed = params.value(QStringLiteral("completed")).toBool();
    if (params.contains(QStringLiteral("due_date")))
        reminder.due = readDate(params.value(QStringLiteral("due_date"))).value_or(QDateTime());
    const QString listId = textParam(params, QStringLiteral("list_id")).value_or(QString());
    if (!listId.isEmpty() && !titleOf(store()->collections(Kind::Reminders), listId).isNull())
        reminder.collection = listId;
    QString error;
    if (!store()->save(reminder, Kind::Reminders, &error))
        return failure(QStringLiteral("Failed to update reminder: ") + error);
    const CalendarItem shown = store()->item(reminder.identifier, Kind::Reminders).value_or(reminder);
    return withContext(successResult({{QStringLiteral("reminder"),
                                       reminderRecord(shown, titleOf(store()->collections(Kind::Reminders),
                                                                     shown.collection))}}),
                       QStringLiteral("Reminder updated: ") + readBackTitle(shown));
}

JSONToolResult CalendarToolHandler::deleteReminder(const QVariantMap &params) const
{
    if (!hasAccess(Kind::Reminders))
        return failure(QStringLiteral("Reminders access denied."));
    const QString id = textParam(params, QStringLiteral("reminder_id")).value_or(QString());
    if (id.isEmpty())
        return failure(QStringLiteral("Tool parameter 'reminder_id' must not be empty."));
    const std::optional<CalendarItem> found = store()->item(id, Kind::Reminders);
    if (!found)
        return failure(QStringLiteral("Reminder not found for id '") + id + QStringLiteral("'."));
    QString error;
    if (!store()->remove(*found, &error))
        return failure(QStringLiteral("Failed to delete reminder: ") + error);
    return withContext(successResult({{QStringLiteral("reminder_id"), id}}),
                       QStringLiteral("Reminder deleted: ") + id);
}
