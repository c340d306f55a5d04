#pragma once

#include "tools/results/JSONToolResult.h"
#include "tools/calendar/CalendarItem.h"

#include <QDateTime>
#include <QVariant>
#include <QVariantMap>
#include <optional>

class CalendarStore;

// The built-in calendar and reminder tools: "listCalendars", "listEvents", "createEvent",
// "updateEvent", "deleteEvent", "listReminderLists", "listReminders", "createReminder",
// "updateReminder" and "deleteReminder", over the calendar folder tree. Every result,
// failures too, has one text item that starts with the current date and time and ends
// with a JSON copy of the structured content. Access is the application's privacy setting
// for calendars (the event methods) or reminders.
//
// Threads: the router runs nine of the methods on the main thread; listEvents hops there
// by itself. The store takes turns on its own lock, so a test may call any of them
// directly.
class CalendarToolHandler {
public:
    static CalendarToolHandler *shared();
    // Over the shared store unless one is given.
    explicit CalendarToolHandler(CalendarStore *store = nullptr);

    JSONToolResult listCalendars(const QVariantMap &params) const;
    JSONToolResult listEvents(const QVariantMap &params) const;
    JSONToolResult createEvent(const QVariantMap &params) const;
    JSONToolResult updateEvent(const QVariantMap &params) const;
    JSONToolResult deleteEvent(const QVariantMap &params) const;
    JSONToolResult listReminderLists(const QVariantMap &params) const;
    JSONToolResult listReminders(const QVariantMap &params) const;
    JSONToolResult createReminder(const QVariantMap &params) const;
    JSONToolResult updateReminder(const QVariantMap &params) const;
    JSONToolResult deleteReminder(const QVariantMap &params) const;

    // A date from a date value, seconds since 1970 (UTC), or an ISO 8601 text with or
    // without fractional seconds; nullopt for anything else.
    static std::optional<QDateTime> readDate(const QVariant &value);
    // A boolean as it is; a text that is exactly "1", "true", "yes" or "on" once lower-cased
    // is true, any other text false; anything else gives the default.
    static bool readBoolean(const QVariant &value, bool defaultValue);
    // 2026-03-01T09:30:00.000Z
    static QString formatDate(const QDateTime &date);
    // The text item: the context line, the message and the JSON block.
    static QString composeText(const QString &message, const QJsonObject &structured);
    // The most occurrences one series yields in one listEvents call (10,000 unless set);
    // a cut list says so in its `truncated` member.
    static QString maxOccurrencesSettingKey() { return QStringLiteral("calendar.maxOccurrences"); }

private:
    CalendarStore *store() const;

    CalendarStore *m_store;
};
