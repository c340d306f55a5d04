#include "tools/calendar/CalendarStore.h"
#include "tools/calendar/CalendarToolHandler.h"
#include "tools/router/BuiltinToolTable.h"
#include "tools/security/PrivacyAccess.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QThread>

#include <tuple>

namespace {

QJsonObject structured(const JSONToolResult &result)
{
    return result.toJsonObject().value(QStringLiteral("structuredContent")).toObject();
}

QString textOf(const JSONToolResult &result)
{
    return result.content.isEmpty() ? QString() : result.content.first().text;
}

void writeFile(const QString &path, const QByteArray &bytes)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(bytes);
}

QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

class CalendarToolTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        PrivacyAccess::setStatus(PrivacyAccess::Kind::Calendars, PrivacyAccess::FullAccess);
        PrivacyAccess::setStatus(PrivacyAccess::Kind::Reminders, PrivacyAccess::FullAccess);
    }

    QVariantMap params(std::initializer_list<std::pair<const char *, QVariant>> pairs)
    {
        QVariantMap map;
        for (const auto &[key, value] : pairs)
            map.insert(QString::fromLatin1(key), value);
        return map;
    }

    QJsonObject createEvent(const QVariantMap &p)
    {
        const JSONToolResult result = handler.createEvent(p);
        EXPECT_TRUE(structured(result).value("success").toBool()) << textOf(result).toStdString();
        return structured(result).value("event").toObject();
    }

    QTemporaryDir dir;
    CalendarStore store{dir.path()};
    CalendarToolHandler handler{&store};
};

}  // namespace

TEST_F(CalendarToolTest, EventsAreCreatedListedUpdatedAndDeletedAsTheRulesSay)
{
    // No calendars yet: the message is empty, so the JSON block follows the context line.
    const JSONToolResult none = handler.listCalendars({});
    EXPECT_EQ(structured(none).value("count").toInt(), 0);
    EXPECT_TRUE(textOf(none).startsWith("Current date/time context: "));
    EXPECT_TRUE(textOf(none).contains(")\n\n```json\n{")) << textOf(none).toStdString();
    EXPECT_TRUE(textOf(none).endsWith("\n```"));

    const JSONToolResult blank = handler.createEvent(params({{"title", "   \n"}}));
    EXPECT_EQ(structured(blank).value("error").toString(), "Tool parameter 'title' must not be empty.");
    EXPECT_TRUE(textOf(blank).contains("\nTool parameter 'title' must not be empty.\n\n```json\n"));
    EXPECT_EQ(structured(handler.createEvent(params({{"title", "x"}, {"start_date", "tomorrow"}}))).value("error").toString(),
              "Tool parameter 'start_date' must be a valid ISO 8601 date.");
    EXPECT_EQ(structured(handler.createEvent(params({{"title", "x"}, {"start_date", "2026-03-01T09:30:00Z"}})))
                  .value("error").toString(),
              "Tool parameter 'end_date' must be a valid ISO 8601 date.");

    // Dates with and without a fraction; results always have one. The default calendar
    // comes into being with the first event.
    const QJsonObject event = createEvent(params({{"title", "  Standup "}, {"start_date", "2026-03-01T09:30:00Z"},
                                                  {"end_date", " 2026-03-01T10:00:00.000Z"}, {"notes", "bring notes"},
                                                  {"location", "Room 1"}, {"url", "not a url"}}));
    EXPECT_EQ(event.value("title").toString(), "Standup");
    EXPECT_EQ(event.value("start_date").toString(), "2026-03-01T09:30:00.000Z");
    EXPECT_EQ(event.value("end_date").toString(), "2026-03-01T10:00:00.000Z");
    EXPECT_EQ(event.value("calendar_title").toString(), "Calendar");
    EXPECT_FALSE(event.value("all_day").toBool());
    const QString id = event.value("event_id").toString();
    EXPECT_FALSE(readFile(store.root() + "/calendar/" + id + ".ics").contains("URL"));
    EXPECT_EQ(handler.listCalendars({}).content.first().text.count("calendar, Calendar"), 1);

    // An event that overlaps the start of the range is listed; one outside is not.
    const JSONToolResult listed =
        handler.listEvents(params({{"start_date", "2026-03-01T09:45:00.000Z"}, {"end_date", "2026-03-02T00:00:00Z"}}));
    EXPECT_EQ(structured(listed).value("count").toInt(), 1);
    EXPECT_TRUE(textOf(listed).contains("\n" + id + ", Standup\n"));
    EXPECT_EQ(structured(handler.listEvents(params({{"start_date", "2026-03-01T10:00:01Z"},
                                                    {"end_date", "2026-03-02T00:00:00Z"}})))
                  .value("count").toInt(), 0);
    // No such calendar: searched over none, not over all.
    EXPECT_EQ(structured(handler.listEvents(params({{"start_date", "2026-01-01T00:00:00Z"}, {"calendar_id", "nope"}})))
                  .value("count").toInt(), 0);
    // A start that is no date takes the default, seen only in the range echoed back.
    const QString defaultStart = structured(handler.listEvents(params({{"start_date", "soon"}}))).value("start_date").toString();
    const QDateTime readStart = QDateTime::fromString(defaultStart, Qt::ISODateWithMs);
    EXPECT_LT(std::abs(readStart.secsTo(QDateTime::currentDateTime().addDays(-30))), 3600) << defaultStart.toStdString();

    // Update: blanks empty the title, null clears the notes, a missing key leaves the
    // location, a string all_day does nothing, an unknown calendar leaves it where it is.
    const JSONToolResult updated = handler.updateEvent(params({{"event_id", id}, {"title", "  "}, {"notes", QVariant::fromValue(nullptr)},
                                                              {"all_day", "YES"}, {"calendar_id", "elsewhere"}}));
    const QJsonObject after = structured(updated).value("event").toObject();
    EXPECT_EQ(after.value("title").toString(), "");
    EXPECT_EQ(after.value("notes").toString(), "");
    EXPECT_EQ(after.value("location").toString(), "Room 1");
    EXPECT_FALSE(after.value("all_day").toBool());
    EXPECT_EQ(after.value("calendar_id").toString(), "calendar");
    // An empty SUMMARY does not survive iCalendar: the title read back is none.
    EXPECT_TRUE(textOf(updated).contains("\nEvent updated: (unknown)\n")) << textOf(updated).toStdString();

    EXPECT_EQ(structured(handler.updateEvent(params({{"event_id", "missing"}}))).value("error").toString(),
              "Event not found for id 'missing'.");
    // What the store refuses reaches the client in the store's words.
    EXPECT_EQ(structured(handler.updateEvent(params({{"event_id", id}, {"start_date", "2026-03-01T11:00:00Z"}})))
                  .value("error").toString(),
              "Failed to update event: The start date must be before the end date.");
    EXPECT_EQ(structured(handler.updateEvent(params({{"event_id", 3}}))).value("error").toString(),
              "Tool parameter 'event_id' must not be empty.");
    const JSONToolResult deleted = handler.deleteEvent(params({{"event_id", id}}));
    EXPECT_EQ(structured(deleted).value("event_id").toString(), id);
    EXPECT_TRUE(textOf(deleted).contains("\nEvent deleted: " + id + "\n"));
    EXPECT_FALSE(QFile::exists(store.root() + "/calendar/" + id + ".ics"));
    EXPECT_EQ(structured(handler.deleteEvent(params({{"event_id", id}}))).value("error").toString(),
              "Event not found for id '" + id + "'.");
}

TEST_F(CalendarToolTest, AllDayEventsCoverTheirLocalDays)
{
    // "YES" turns an event all-day when it is created.
    const QJsonObject event = createEvent(params({{"title", "Holiday"}, {"start_date", "2026-07-01T10:00:00Z"},
                                                  {"end_date", "2026-07-01T11:00:00Z"}, {"all_day", "YES"}}));
    EXPECT_TRUE(event.value("all_day").toBool());
    const QDateTime start = QDateTime::fromString(event.value("start_date").toString(), Qt::ISODateWithMs);
    const QDateTime end = QDateTime::fromString(event.value("end_date").toString(), Qt::ISODateWithMs);
    EXPECT_EQ(start.toLocalTime().time(), QTime(0, 0));
    EXPECT_EQ(start.toLocalTime().date(), QDate(2026, 7, 1));
    EXPECT_EQ(end.toLocalTime(), start.toLocalTime().addDays(1));
    const QByteArray file = readFile(store.root() + "/calendar/" + event.value("event_id").toString() + ".ics");
    EXPECT_TRUE(file.contains("DTSTART;VALUE=DATE:20260701")) << file.toStdString();
    // Listed by a range that only touches its afternoon.
    const QDateTime afternoon = QDateTime(QDate(2026, 7, 1), QTime(15, 0), Qt::LocalTime);
    EXPECT_EQ(structured(handler.listEvents(params({{"start_date", CalendarToolHandler::formatDate(afternoon)},
                                                    {"end_date", CalendarToolHandler::formatDate(afternoon.addSecs(60))}})))
                  .value("count").toInt(), 1);
}

TEST_F(CalendarToolTest, AFileFromAnotherCalendarApplicationIsReadAndKeepsWhatKelvaraDoesNotShow)
{
    const QString collection = dir.path() + "/work";
    writeFile(collection + "/displayname", "Work");
    QFile::copy(QStringLiteral(KELVARA_CALENDAR_TEST_DATA "/thunderbird-export.ics"), collection + "/review.ics");
    QFile(collection + "/review.ics").setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner);

    const JSONToolResult listed =
        handler.listEvents(params({{"start_date", "2026-03-01T00:00:00Z"}, {"end_date", "2026-03-31T00:00:00Z"}}));
    ASSERT_EQ(structured(listed).value("count").toInt(), 1) << textOf(listed).toStdString();
    const QJsonObject event = structured(listed).value("events").toArray().first().toObject();
    EXPECT_EQ(event.value("event_id").toString(), "7c1e4b2a-0f53-4d1e-9a57-3e2b8d5f6a10");
    EXPECT_EQ(event.value("title").toString(), "Quarterly review, budget and hiring");
    EXPECT_EQ(event.value("location").toString(), "Room 4.12; second floor");
    EXPECT_EQ(event.value("notes").toString(),
              "Agenda:\n1. Numbers\n2. Plans for the next quarter that need a longer discussion than usual");
    // 09:30 in Berlin in March (CET, UTC+1).
    EXPECT_EQ(event.value("start_date").toString(), "2026-03-05T08:30:00.000Z");
    EXPECT_EQ(event.value("end_date").toString(), "2026-03-05T10:00:00.000Z");
    EXPECT_EQ(event.value("calendar_title").toString(), "Work");

    // Rewritten in place: the alarm and the other program's own lines stay.
    handler.updateEvent(params({{"event_id", event.value("event_id").toString()}, {"title", "Review"}}));
    const QByteArray file = readFile(collection + "/review.ics");
    EXPECT_TRUE(file.contains("X-MOZ-GENERATION:2"));
    EXPECT_TRUE(file.contains("BEGIN:VALARM"));
    EXPECT_TRUE(file.contains("SUMMARY:Review"));

    // A change made by another program is seen on the next call.
    QByteArray changed = file;
    changed.replace("SUMMARY:Review", "SUMMARY:Review moved by someone else");
    writeFile(collection + "/review.ics", changed);
    const JSONToolResult again =
        handler.listEvents(params({{"start_date", "2026-03-01T00:00:00Z"}, {"end_date", "2026-03-31T00:00:00Z"}}));
    EXPECT_EQ(structured(again).value("events").toArray().first().toObject().value("title").toString(),
              "Review moved by someone else");
}

TEST_F(CalendarToolTest, RemindersFollowTheirOwnRules)
{
    EXPECT_EQ(structured(handler.createReminder(params({{"title", " "}}))).value("error").toString(),
              "Tool parameter 'title' must not be empty.");
    const JSONToolResult created = handler.createReminder(
        params({{"title", "Call the bank"}, {"due_date", "2026-04-02T16:00:00.000Z"}, {"notes", "about the card"}}));
    const QJsonObject reminder = structured(created).value("reminder").toObject();
    EXPECT_TRUE(textOf(created).contains("\nReminder created: Call the bank\n"));
    EXPECT_EQ(reminder.value("due_date").toString(), "2026-04-02T16:00:00.000Z");
    EXPECT_EQ(reminder.value("list_title").toString(), "Reminders");
    EXPECT_FALSE(reminder.value("completed").toBool());
    const QString id = reminder.value("reminder_id").toString();
    // A due date that is no date: none.
    EXPECT_EQ(structured(handler.createReminder(params({{"title", "Later"}, {"due_date", "someday"}})))
                  .value("reminder").toObject().value("due_date").toString(), "");

    // Written by another program: no title, due on a day without a time, one completed.
    const QString list = store.root() + "/reminders";
    writeFile(list + "/untitled.ics", "BEGIN:VCALENDAR\r\nVERSION:2.0\r\nPRODID:-//x//y//EN\r\nBEGIN:VTODO\r\nUID:untitled-1\r\n"
                                      "DUE;VALUE=DATE:20260410\r\nEND:VTODO\r\nEND:VCALENDAR\r\n");
    writeFile(list + "/done.ics", "BEGIN:VCALENDAR\r\nVERSION:2.0\r\nPRODID:-//x//y//EN\r\nBEGIN:VTODO\r\nUID:done-1\r\n"
                                  "SUMMARY:Done already\r\nSTATUS:COMPLETED\r\nEND:VTODO\r\nEND:VCALENDAR\r\n");
    const QJsonObject open = structured(handler.listReminders({}));
    EXPECT_EQ(open.value("count").toInt(), 3);
    bool sawUntitled = false;
    for (const QJsonValue &value : open.value("reminders").toArray()) {
        const QJsonObject item = value.toObject();
        EXPECT_NE(item.value("reminder_id").toString(), "done-1");
        if (item.value("reminder_id").toString() == "untitled-1") {
            sawUntitled = true;
            EXPECT_EQ(item.value("title").toString(), "(unknown)");
            const QDateTime due = QDateTime::fromString(item.value("due_date").toString(), Qt::ISODateWithMs);
            EXPECT_EQ(due.toLocalTime(), QDateTime(QDate(2026, 4, 10), QTime(0, 0), Qt::LocalTime));
        }
    }
    EXPECT_TRUE(sawUntitled);
    EXPECT_EQ(structured(handler.listReminders(params({{"include_completed", "on"}}))).value("count").toInt(), 4);

    // Update: a string does nothing to `completed`, a boolean does; a present due date that
    // is no date clears it.
    QJsonObject updated = structured(handler.updateReminder(params({{"reminder_id", id}, {"completed", "true"}})))
                              .value("reminder").toObject();
    EXPECT_FALSE(updated.value("completed").toBool());
    updated = structured(handler.updateReminder(params({{"reminder_id", id}, {"completed", true}, {"due_date", 86400}})))
                  .value("reminder").toObject();
    EXPECT_TRUE(updated.value("completed").toBool());
    EXPECT_EQ(updated.value("due_date").toString(), "1970-01-02T00:00:00.000Z");
    updated = structured(handler.updateReminder(params({{"reminder_id", id}, {"due_date", false}})))
                  .value("reminder").toObject();
    EXPECT_EQ(updated.value("due_date").toString(), "");
    EXPECT_EQ(structured(handler.updateReminder(params({{"reminder_id", "gone"}}))).value("error").toString(),
              "Reminder not found for id 'gone'.");

    // An event's id is no reminder's.
    const QString eventId = createEvent(params({{"title", "E"}, {"start_date", "2026-03-01T09:30:00Z"},
                                                {"end_date", "2026-03-01T10:00:00Z"}})).value("event_id").toString();
    EXPECT_EQ(structured(handler.deleteReminder(params({{"reminder_id", eventId}}))).value("error").toString(),
              "Reminder not found for id '" + eventId + "'.");
    EXPECT_TRUE(structured(handler.deleteReminder(params({{"reminder_id", id}}))).value("success").toBool());
    EXPECT_EQ(structured(handler.listReminderLists({})).value("lists").toArray().first().toObject().value("list_id").toString(),
              "reminders");
}

// A collection named by the parameters takes the item only when it holds the item's kind;
// else a new item goes to the first collection of its kind and an updated one stays.
TEST_F(CalendarToolTest, ANamedCollectionTakesOnlyItemsOfItsKind)
{
    for (const auto &[folder, kind, title] : {std::tuple{"home", "events", "Home"}, {"work", "events", "Work"},
                                              {"errands", "reminders", "Errands"}}) {
        writeFile(store.root() + "/" + folder + "/kelvara-kind", kind);
        writeFile(store.root() + "/" + folder + "/displayname", title);
    }
    const auto event = [&](const char *calendar) {
        return createEvent(params({{"title", "E"}, {"start_date", "2026-03-01T09:30:00Z"},
                                   {"end_date", "2026-03-01T10:00:00Z"}, {"calendar_id", calendar}}));
    };
    const QJsonObject atWork = event("work");
    EXPECT_EQ(atWork.value("calendar_id").toString(), "work");
    EXPECT_EQ(atWork.value("calendar_title").toString(), "Work");
    EXPECT_EQ(event("errands").value("calendar_id").toString(), "home");

    const QString id = atWork.value("event_id").toString();
    const auto moved = [&](const char *calendar) {
        return structured(handler.updateEvent(params({{"event_id", id}, {"calendar_id", calendar}})))
            .value("event").toObject().value("calendar_id").toString();
    };
    EXPECT_EQ(moved("errands"), "work");
    EXPECT_EQ(moved("home"), "home");
    EXPECT_TRUE(QFile::exists(store.root() + "/home/" + id + ".ics"));
    EXPECT_FALSE(QFile::exists(store.root() + "/work/" + id + ".ics"));

    const JSONToolResult reminder = handler.createReminder(params({{"title", "R"}, {"list_id", "work"}}));
    EXPECT_EQ(structured(reminder).value("reminder").toObject().value("list_title").toString(), "Errands");
}

TEST_F(CalendarToolTest, WithoutAccessEveryMethodSaysSoWithTheContextAndTheJSON)
{
    PrivacyAccess::setStatus(PrivacyAccess::Kind::Calendars, PrivacyAccess::Denied);
    PrivacyAccess::setStatus(PrivacyAccess::Kind::Reminders, PrivacyAccess::NotDetermined);
    for (const JSONToolResult &result : {handler.listCalendars({}), handler.listEvents({}), handler.createEvent({}),
                                         handler.updateEvent({}), handler.deleteEvent({})}) {
        EXPECT_EQ(structured(result).value("error").toString(), "Calendar access denied.");
        EXPECT_FALSE(structured(result).value("success").toBool(true));
        EXPECT_TRUE(textOf(result).contains("\nCalendar access denied.\n\n```json\n"));
    }
    for (const JSONToolResult &result : {handler.listReminderLists({}), handler.listReminders({}),
                                         handler.createReminder({}), handler.updateReminder({}), handler.deleteReminder({})})
        EXPECT_EQ(structured(result).value("error").toString(), "Reminders access denied.");
    // Write-only access passes the check.
    PrivacyAccess::setStatus(PrivacyAccess::Kind::Calendars, PrivacyAccess::WriteOnly);
    EXPECT_TRUE(structured(handler.listCalendars({})).value("success").toBool());
}

TEST(CalendarDates, BothISOFormsNumbersAndBooleans)
{
    EXPECT_EQ(CalendarToolHandler::readDate("2026-03-01T09:30:00Z")->toMSecsSinceEpoch(),
              CalendarToolHandler::readDate("2026-03-01T10:30:00.000+01:00")->toMSecsSinceEpoch());
    EXPECT_FALSE(CalendarToolHandler::readDate("2026-03-01"));
    EXPECT_FALSE(CalendarToolHandler::readDate("2026-03-01T09:30:00"));  // no zone
    EXPECT_FALSE(CalendarToolHandler::readDate("  "));
    EXPECT_FALSE(CalendarToolHandler::readDate(QVariant(true)));
    EXPECT_EQ(CalendarToolHandler::formatDate(*CalendarToolHandler::readDate(86400)), "1970-01-02T00:00:00.000Z");
    EXPECT_TRUE(CalendarToolHandler::readBoolean("On", false));
    EXPECT_FALSE(CalendarToolHandler::readBoolean(" yes", true));  // not trimmed: false
    EXPECT_TRUE(CalendarToolHandler::readBoolean(QVariant(), true));
    EXPECT_TRUE(CalendarToolHandler::readBoolean(1, true));  // a number gives the default
}

// The tool editor reads the labels from the table: every built-in method has one that
// names it, calendar methods before contact ones.
TEST(BuiltinMethodLabels, EveryMethodHasItsLabelInTheEditorsOrder)
{
    QStringList executors;
    for (const BuiltinToolMethod &row : BuiltinToolTable::methods()) {
        EXPECT_TRUE(row.label.endsWith(" (" + row.execMethod + ")")) << row.execMethod.toStdString();
        EXPECT_TRUE(row.run) << row.execMethod.toStdString();
        if (executors.isEmpty() || executors.last() != row.executorName)
            executors.append(row.executorName);
    }
    EXPECT_EQ(executors, QStringList({"FileAccessHandler", "CalendarToolHandler", "ContactsToolHandler"}));
    EXPECT_EQ(BuiltinToolTable::find("listEvents")->label, "List calendar events (listEvents)");
}
