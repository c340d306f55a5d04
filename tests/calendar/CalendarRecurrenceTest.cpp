#include "base/UserDefaults.h"
#include "tools/calendar/CalendarStore.h"
#include "tools/calendar/CalendarToolHandler.h"
#include "tools/contacts/ContactsStore.h"
#include "tools/contacts/ContactsToolHandler.h"
#include "tools/security/PrivacyAccess.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonObject>
#include <QTemporaryDir>

#include <string>
#include <sys/stat.h>

namespace {

QJsonObject structured(const JSONToolResult &result)
{
    return result.toJsonObject().value(QStringLiteral("structuredContent")).toObject();
}

QString textOf(const JSONToolResult &result)
{
    return result.content.isEmpty() ? QString() : result.content.first().text;
}

QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void writeFile(const QString &path, const QByteArray &bytes)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(bytes);
}

int modeOf(const QString &path)
{
    struct stat status {};
    return ::stat(QFile::encodeName(path).constData(), &status) == 0 ? int(status.st_mode & 07777) : -1;
}

QByteArray calendar(const QByteArray &components)
{
    QByteArray bytes = "BEGIN:VCALENDAR\r\nVERSION:2.0\r\nPRODID:-//test//EN\r\n" + components + "END:VCALENDAR\r\n";
    bytes.replace("\r\n", "\n");
    bytes.replace("\n", "\r\n");
    return bytes;
}

// One line each, so that a failed comparison reads well.
std::string lines(const QStringList &list)
{
    return list.join(u'\n').toStdString();
}

QString localMidnight(int year, int month, int day)
{
    return CalendarToolHandler::formatDate(QDateTime(QDate(year, month, day), QTime(0, 0), Qt::LocalTime));
}

QVariantMap range(const char *from, const char *to)
{
    return {{QStringLiteral("start_date"), QString::fromLatin1(from)}, {QStringLiteral("end_date"), QString::fromLatin1(to)}};
}

class RecurrenceTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        PrivacyAccess::setStatus(PrivacyAccess::Kind::Calendars, PrivacyAccess::FullAccess);
        PrivacyAccess::setStatus(PrivacyAccess::Kind::Reminders, PrivacyAccess::FullAccess);
        PrivacyAccess::setStatus(PrivacyAccess::Kind::Contacts, PrivacyAccess::FullAccess);
    }

    // "key start title" for each event listed in the range.
    QStringList listed(const QVariantMap &params, bool *truncated = nullptr)
    {
        const QJsonObject result = structured(handler.listEvents(params));
        EXPECT_TRUE(result.value("success").toBool());
        if (truncated)
            *truncated = result.value("truncated").toBool();
        QStringList lines;
        for (const QJsonValue &value : result.value("events").toArray()) {
            const QJsonObject event = value.toObject();
            lines.append(event.value("event_id").toString() + u' ' + event.value("start_date").toString() + u' ' +
                         event.value("title").toString());
        }
        return lines;
    }

    QString path(const char *name) const { return dir.path() + "/work/" + name; }

    QTemporaryDir dir;
    CalendarStore store{dir.path()};
    CalendarToolHandler handler{&store};
};

const QByteArray kBerlin = R"(BEGIN:VTIMEZONE
TZID:Europe/Berlin
BEGIN:DAYLIGHT
TZOFFSETFROM:+0100
TZOFFSETTO:+0200
TZNAME:CEST
DTSTART:19700329T020000
RRULE:FREQ=YEARLY;BYMONTH=3;BYDAY=-1SU
END:DAYLIGHT
BEGIN:STANDARD
TZOFFSETFROM:+0200
TZOFFSETTO:+0100
TZNAME:CET
DTSTART:19701025T030000
RRULE:FREQ=YEARLY;BYMONTH=10;BYDAY=-1SU
END:STANDARD
END:VTIMEZONE
)";

struct ExpansionCase {
    const char *name;
    QByteArray components;
    const char *from;
    const char *to;
    QStringList expected;  // "<id> <start> <title>"
};

}  // namespace

TEST_F(RecurrenceTest, SeriesExpandIntoTheirOccurrencesInTheRange)
{
    const QList<ExpansionCase> cases{
        {"daily, far from its first day",
         "BEGIN:VEVENT\nUID:daily\nDTSTART:20260302T080000Z\nDTEND:20260302T081500Z\nRRULE:FREQ=DAILY\nSUMMARY:Standup\nEND:VEVENT\n",
         "2026-03-10T00:00:00Z", "2026-03-13T00:00:00Z",
         {"daily@20260310T080000Z 2026-03-10T08:00:00.000Z Standup",
          "daily@20260311T080000Z 2026-03-11T08:00:00.000Z Standup",
          "daily@20260312T080000Z 2026-03-12T08:00:00.000Z Standup"}},
        // Summer time begins on 29 March: 09:30 in Berlin is 08:30Z before and 07:30Z after.
        {"weekly on two days across a change of summer time, zone from the system",
         "BEGIN:VEVENT\nUID:weekly\nDTSTART;TZID=Europe/Berlin:20260105T093000\nDTEND;TZID=Europe/Berlin:20260105T100000\n"
         "RRULE:FREQ=WEEKLY;BYDAY=MO,TH\nSUMMARY:Sync\nEND:VEVENT\n",
         "2026-03-23T00:00:00Z", "2026-04-03T00:00:00Z",
         {"weekly@20260323T083000Z 2026-03-23T08:30:00.000Z Sync", "weekly@20260326T083000Z 2026-03-26T08:30:00.000Z Sync",
          "weekly@20260330T073000Z 2026-03-30T07:30:00.000Z Sync", "weekly@20260402T073000Z 2026-04-02T07:30:00.000Z Sync"}},
        {"the same from the file's own VTIMEZONE, back to winter time in October",
         kBerlin + "BEGIN:VEVENT\nUID:tz\nDTSTART;TZID=Europe/Berlin:20260105T093000\nDURATION:PT30M\n"
                   "RRULE:FREQ=WEEKLY;BYDAY=MO\nSUMMARY:Plan\nEND:VEVENT\n",
         "2026-10-19T00:00:00Z", "2026-11-01T00:00:00Z",
         {"tz@20261019T073000Z 2026-10-19T07:30:00.000Z Plan", "tz@20261026T083000Z 2026-10-26T08:30:00.000Z Plan"}},
        {"monthly on the 31st skips the shorter months",
         "BEGIN:VEVENT\nUID:m31\nDTSTART:20260131T120000Z\nDTEND:20260131T130000Z\nRRULE:FREQ=MONTHLY;BYMONTHDAY=31\n"
         "SUMMARY:Close books\nEND:VEVENT\n",
         "2026-01-01T00:00:00Z", "2026-09-01T00:00:00Z",
         {"m31@20260131T120000Z 2026-01-31T12:00:00.000Z Close books",
          "m31@20260331T120000Z 2026-03-31T12:00:00.000Z Close books",
          "m31@20260531T120000Z 2026-05-31T12:00:00.000Z Close books",
          "m31@20260731T120000Z 2026-07-31T12:00:00.000Z Close books",
          "m31@20260831T120000Z 2026-08-31T12:00:00.000Z Close books"}},
        // 2026: the last Fridays of April and May are the 24th and the 29th.
        {"monthly on the last Friday, a year after its first",
         "BEGIN:VEVENT\nUID:lastfri\nDTSTART:20250131T160000Z\nDTEND:20250131T170000Z\nRRULE:FREQ=MONTHLY;BYDAY=-1FR\n"
         "SUMMARY:Drinks\nEND:VEVENT\n",
         "2026-04-01T00:00:00Z", "2026-06-01T00:00:00Z",
         {"lastfri@20260424T160000Z 2026-04-24T16:00:00.000Z Drinks",
          "lastfri@20260529T160000Z 2026-05-29T16:00:00.000Z Drinks"}},
        // A rule that can't be read is dropped: a single event, listed and kept under its UID.
        {"a broken rule",
         "BEGIN:VEVENT\nUID:broken\nDTSTART:20260401T090000Z\nDTEND:20260401T100000Z\nRRULE:FREQ=SOMETIMES;BYDAY=XX\n"
         "SUMMARY:Odd\nEND:VEVENT\n",
         "2026-04-01T00:00:00Z", "2026-06-01T00:00:00Z",
         {"broken 2026-04-01T09:00:00.000Z Odd"}},
        {"EXDATE leaves a day out, RDATE adds one",
         "BEGIN:VEVENT\nUID:ex\nDTSTART:20260601T090000Z\nDTEND:20260601T100000Z\nRRULE:FREQ=DAILY;COUNT=4\n"
         "EXDATE:20260603T090000Z\nRDATE:20260610T090000Z\nSUMMARY:Class\nEND:VEVENT\n",
         "2026-06-01T00:00:00Z", "2026-06-30T00:00:00Z",
         {"ex@20260601T090000Z 2026-06-01T09:00:00.000Z Class", "ex@20260602T090000Z 2026-06-02T09:00:00.000Z Class",
          "ex@20260604T090000Z 2026-06-04T09:00:00.000Z Class", "ex@20260610T090000Z 2026-06-10T09:00:00.000Z Class"}},
        // The occurrence of 12 January moved into the range, that of 19 January out of it.
        {"overrides moved into and out of the range",
         "BEGIN:VEVENT\nUID:ov\nDTSTART:20260105T100000Z\nDTEND:20260105T110000Z\nRRULE:FREQ=WEEKLY\nSUMMARY:1:1\nEND:VEVENT\n"
         "BEGIN:VEVENT\nUID:ov\nRECURRENCE-ID:20260112T100000Z\nDTSTART:20260120T150000Z\nDTEND:20260120T160000Z\n"
         "SUMMARY:1:1 (late)\nEND:VEVENT\n"
         "BEGIN:VEVENT\nUID:ov\nRECURRENCE-ID:20260119T100000Z\nDTSTART:20260201T100000Z\nDTEND:20260201T110000Z\n"
         "SUMMARY:1:1 (later)\nEND:VEVENT\n",
         "2026-01-19T00:00:00Z", "2026-01-25T00:00:00Z",
         {"ov@20260112T100000Z 2026-01-20T15:00:00.000Z 1:1 (late)"}},
        {"COUNT and UNTIL end a series",
         "BEGIN:VEVENT\nUID:count\nDTSTART:20260701T090000Z\nDTEND:20260701T093000Z\nRRULE:FREQ=DAILY;COUNT=2\n"
         "SUMMARY:C\nEND:VEVENT\n"
         "BEGIN:VEVENT\nUID:until\nDTSTART:20260701T100000Z\nDTEND:20260701T103000Z\nRRULE:FREQ=DAILY;UNTIL=20260702T100000Z\n"
         "SUMMARY:U\nEND:VEVENT\n",
         "2026-06-01T00:00:00Z", "2026-08-01T00:00:00Z",
         {"count@20260701T090000Z 2026-07-01T09:00:00.000Z C", "until@20260701T100000Z 2026-07-01T10:00:00.000Z U",
          "count@20260702T090000Z 2026-07-02T09:00:00.000Z C", "until@20260702T100000Z 2026-07-02T10:00:00.000Z U"}},
        {"whole days, at local midnight",
         "BEGIN:VEVENT\nUID:day\nDTSTART;VALUE=DATE:20260801\nDTEND;VALUE=DATE:20260802\nRRULE:FREQ=WEEKLY;COUNT=3\n"
         "EXDATE;VALUE=DATE:20260808\nSUMMARY:Market\nEND:VEVENT\n",
         "2026-07-25T00:00:00Z", "2026-09-01T00:00:00Z",
         {"day@20260801 " + localMidnight(2026, 8, 1) + " Market", "day@20260815 " + localMidnight(2026, 8, 15) + " Market"}},
    };
    for (const ExpansionCase &c : cases) {
        SCOPED_TRACE(c.name);
        QTemporaryDir fresh;
        CalendarStore own(fresh.path());
        CalendarToolHandler tools(&own);
        writeFile(fresh.path() + "/work/series.ics", calendar(c.components));
        const QJsonObject result = structured(tools.listEvents(range(c.from, c.to)));
        QStringList lines;
        for (const QJsonValue &value : result.value("events").toArray()) {
            const QJsonObject event = value.toObject();
            lines.append(event.value("event_id").toString() + u' ' + event.value("start_date").toString() + u' ' +
                         event.value("title").toString());
        }
        EXPECT_EQ(::lines(lines), ::lines(c.expected));
        EXPECT_FALSE(result.value("truncated").toBool(true));
    }
}

TEST_F(RecurrenceTest, ASeriesWithoutEndIsCutAtTheLimitAndSaysSo)
{
    writeFile(path("often.ics"), calendar("BEGIN:VEVENT\nUID:often\nDTSTART:20260101T000000Z\nDURATION:PT1M\n"
                                          "RRULE:FREQ=MINUTELY\nSUMMARY:Tick\nEND:VEVENT\n"
                                          "BEGIN:VEVENT\nUID:once\nDTSTART:20260105T000000Z\nDURATION:PT1H\n"
                                          "SUMMARY:Once\nEND:VEVENT\n"));
    // Eight days of minutes are 11,520: the default limit keeps the first 10,000.
    bool truncated = false;
    const QStringList all = listed(range("2026-01-01T00:00:00Z", "2026-01-09T00:00:00Z"), &truncated);
    EXPECT_TRUE(truncated);
    EXPECT_EQ(all.size(), 10001);  // and the single event
    EXPECT_TRUE(all.contains("once 2026-01-05T00:00:00.000Z Once"));
    EXPECT_EQ(all.first(), "often@20260101T000000Z 2026-01-01T00:00:00.000Z Tick");

    // The store's own limit; a range the series fits in is not cut.
    bool cut = false;
    const QList<CalendarItem> five = store.events(QDateTime(QDate(2026, 2, 1), QTime(0, 0), Qt::UTC),
                                                  QDateTime(QDate(2026, 2, 2), QTime(0, 0), Qt::UTC), std::nullopt,
                                                  nullptr, 5, &cut);
    EXPECT_TRUE(cut);
    ASSERT_EQ(five.size(), 5);
    EXPECT_EQ(five.last().recordId(), "often@20260201T000400Z");
    listed(range("2026-01-01T00:00:00Z", "2026-01-01T01:00:00Z"), &truncated);
    EXPECT_FALSE(truncated);

    // The setting; one that is no positive number leaves the default.
    const QString key = CalendarToolHandler::maxOccurrencesSettingKey();
    UserDefaults::standard()->setValue(key, 3);
    EXPECT_EQ(listed(range("2026-01-01T00:00:00Z", "2026-01-01T01:00:00Z"), &truncated).size(), 3);
    EXPECT_TRUE(truncated);
    for (const QVariant &unusable : {QVariant(QStringLiteral("lots")), QVariant(0)}) {
        UserDefaults::standard()->setValue(key, unusable);
        EXPECT_EQ(listed(range("2026-01-01T00:00:00Z", "2026-01-01T01:00:00Z"), &truncated).size(), 60);
        EXPECT_FALSE(truncated);
    }
    UserDefaults::standard()->remove(key);
}

TEST_F(RecurrenceTest, AnOccurrenceIsUpdatedAndDeletedAloneAndTheSeriesAsAWhole)
{
    writeFile(path("sync.ics"),
              calendar("BEGIN:VEVENT\nUID:sync@example.org\nDTSTAMP:20260101T000000Z\n"
                       "DTSTART;TZID=Europe/Berlin:20260105T093000\nDTEND;TZID=Europe/Berlin:20260105T100000\n"
                       "RRULE:FREQ=WEEKLY;BYDAY=MO,TH\nSUMMARY:Sync\nBEGIN:VALARM\nACTION:DISPLAY\nTRIGGER:-PT5M\n"
                       "DESCRIPTION:soon\nEND:VALARM\nEND:VEVENT\n"));
    const QVariantMap weeks = range("2026-03-23T00:00:00Z", "2026-04-03T00:00:00Z");
    const QString monday = "sync@example.org@20260330T073000Z";

    // Moved to the afternoon with a title of its own: written as an override in the zone of
    // the series; the id stays that of the original start.
    const JSONToolResult moved = handler.updateEvent({{"event_id", monday}, {"title", "Sync (afternoon)"},
                                                      {"start_date", "2026-03-30T12:00:00Z"},
                                                      {"end_date", "2026-03-30T12:30:00Z"}});
    const QJsonObject event = structured(moved).value("event").toObject();
    EXPECT_EQ(event.value("event_id").toString(), monday) << textOf(moved).toStdString();
    EXPECT_EQ(event.value("start_date").toString(), "2026-03-30T12:00:00.000Z");
    EXPECT_EQ(event.value("title").toString(), "Sync (afternoon)");
    QByteArray file = readFile(path("sync.ics"));
    EXPECT_TRUE(file.contains("RECURRENCE-ID;TZID=Europe/Berlin:20260330T093000")) << file.toStdString();
    EXPECT_TRUE(file.contains("DTSTART;TZID=Europe/Berlin:20260330T140000")) << file.toStdString();
    EXPECT_TRUE(file.contains("DTSTART;TZID=Europe/Berlin:20260105T093000"));
    EXPECT_EQ(file.count("BEGIN:VALARM"), 2);  // the override keeps the series' alarm
    EXPECT_EQ(lines(listed(weeks)), lines(QStringList({"sync@example.org@20260323T083000Z 2026-03-23T08:30:00.000Z Sync",
                                          "sync@example.org@20260326T083000Z 2026-03-26T08:30:00.000Z Sync",
                                          monday + " 2026-03-30T12:00:00.000Z Sync (afternoon)",
                                          "sync@example.org@20260402T073000Z 2026-04-02T07:30:00.000Z Sync"})));

    // Updated again: the same override, not a second one.
    handler.updateEvent({{"event_id", monday}, {"notes", "bring slides"}});
    file = readFile(path("sync.ics"));
    EXPECT_EQ(file.count("RECURRENCE-ID"), 1);
    EXPECT_EQ(structured(handler.updateEvent({{"event_id", monday}})).value("event").toObject().value("notes").toString(),
              "bring slides");

    // A single event has no occurrences.
    writeFile(path("once.ics"), calendar("BEGIN:VEVENT\nUID:once\nDTSTART:20260525T090000Z\nDTEND:20260525T100000Z\n"
                                         "SUMMARY:Once\nEND:VEVENT\n"));
    EXPECT_EQ(structured(handler.updateEvent({{"event_id", "once@20260525T090000Z"}})).value("error").toString(),
              "Event not found for id 'once@20260525T090000Z'.");
    // A Friday is no occurrence, nor is a time that is not the series' start.
    for (const QString &id : {QStringLiteral("sync@example.org@20260327T083000Z"),
                              QStringLiteral("sync@example.org@20260326T083001Z"), QStringLiteral("sync@example.org@x")})
        EXPECT_EQ(structured(handler.deleteEvent({{"event_id", id}})).value("error").toString(),
                  "Event not found for id '" + id + "'.");

    // Deleting one occurrence, and the moved one: EXDATEs, and the override goes.
    const JSONToolResult deleted = handler.deleteEvent({{"event_id", "sync@example.org@20260326T083000Z"}});
    EXPECT_EQ(structured(deleted).value("event_id").toString(), "sync@example.org@20260326T083000Z");
    EXPECT_TRUE(structured(handler.deleteEvent({{"event_id", monday}})).value("success").toBool());
    file = readFile(path("sync.ics"));
    EXPECT_TRUE(file.contains("EXDATE;TZID=Europe/Berlin:20260326T093000")) << file.toStdString();
    EXPECT_TRUE(file.contains("EXDATE;TZID=Europe/Berlin:20260330T093000"));
    EXPECT_FALSE(file.contains("RECURRENCE-ID"));
    EXPECT_EQ(lines(listed(weeks)), lines(QStringList({"sync@example.org@20260323T083000Z 2026-03-23T08:30:00.000Z Sync",
                                          "sync@example.org@20260402T073000Z 2026-04-02T07:30:00.000Z Sync"})));

    // The UID is the series: a new title for every occurrence, the zone kept; then all go.
    const JSONToolResult renamed = handler.updateEvent({{"event_id", "sync@example.org"}, {"title", "Weekly sync"}});
    EXPECT_EQ(structured(renamed).value("event").toObject().value("start_date").toString(), "2026-01-05T08:30:00.000Z");
    file = readFile(path("sync.ics"));
    EXPECT_TRUE(file.contains("DTSTART;TZID=Europe/Berlin:20260105T093000")) << file.toStdString();
    EXPECT_TRUE(file.contains("RRULE:FREQ=WEEKLY;BYDAY=MO,TH"));
    EXPECT_EQ(listed(weeks).size(), 2);
    EXPECT_TRUE(listed(weeks).first().endsWith(" Weekly sync"));
    EXPECT_TRUE(structured(handler.deleteEvent({{"event_id", "sync@example.org"}})).value("success").toBool());
    EXPECT_FALSE(QFile::exists(path("sync.ics")));
    EXPECT_TRUE(listed(weeks).isEmpty());
}

// Moving the whole series an hour later moves its exceptions with it: the moved occurrence
// and the deleted one keep naming the same days.
TEST_F(RecurrenceTest, ASeriesMovedAsAWholeTakesItsExceptionsAlong)
{
    writeFile(path("sync.ics"),
              calendar("BEGIN:VEVENT\nUID:sync\nDTSTART;TZID=Europe/Berlin:20260105T093000\n"
                       "DTEND;TZID=Europe/Berlin:20260105T100000\nRRULE:FREQ=WEEKLY;BYDAY=MO,TH\n"
                       "EXDATE;TZID=Europe/Berlin:20260326T093000\nSUMMARY:Sync\nEND:VEVENT\n"
                       "BEGIN:VEVENT\nUID:sync\nRECURRENCE-ID;TZID=Europe/Berlin:20260330T093000\n"
                       "DTSTART;TZID=Europe/Berlin:20260330T140000\nDTEND;TZID=Europe/Berlin:20260330T143000\n"
                       "SUMMARY:Sync (afternoon)\nEND:VEVENT\n"));
    const JSONToolResult moved = handler.updateEvent(
        {{"event_id", "sync"}, {"start_date", "2026-01-05T09:30:00Z"}, {"end_date", "2026-01-05T10:00:00Z"}});
    ASSERT_TRUE(structured(moved).value("success").toBool()) << textOf(moved).toStdString();
    const QByteArray file = readFile(path("sync.ics"));
    EXPECT_TRUE(file.contains("DTSTART;TZID=Europe/Berlin:20260105T103000")) << file.toStdString();
    EXPECT_TRUE(file.contains("EXDATE;TZID=Europe/Berlin:20260326T103000")) << file.toStdString();
    EXPECT_TRUE(file.contains("RECURRENCE-ID;TZID=Europe/Berlin:20260330T103000")) << file.toStdString();
    EXPECT_TRUE(file.contains("DTSTART;TZID=Europe/Berlin:20260330T140000"));
    EXPECT_EQ(lines(listed(range("2026-03-23T00:00:00Z", "2026-04-03T00:00:00Z"))),
              lines({"sync@20260323T093000Z 2026-03-23T09:30:00.000Z Sync",
                     "sync@20260330T083000Z 2026-03-30T12:00:00.000Z Sync (afternoon)",
                     "sync@20260402T083000Z 2026-04-02T08:30:00.000Z Sync"}));
}

TEST_F(RecurrenceTest, AnOccurrenceOfAWholeDaySeriesGetsADateOverride)
{
    writeFile(path("market.ics"), calendar("BEGIN:VEVENT\nUID:market\nDTSTART;VALUE=DATE:20260801\n"
                                           "DTEND;VALUE=DATE:20260802\nRRULE:FREQ=WEEKLY\nSUMMARY:Market\nEND:VEVENT\n"));
    const JSONToolResult renamed = handler.updateEvent({{"event_id", "market@20260808"}, {"title", "Big market"}});
    EXPECT_TRUE(structured(renamed).value("success").toBool()) << textOf(renamed).toStdString();
    const QByteArray file = readFile(path("market.ics"));
    EXPECT_TRUE(file.contains("RECURRENCE-ID;VALUE=DATE:20260808")) << file.toStdString();
    EXPECT_EQ(lines(listed(range("2026-08-05T00:00:00Z", "2026-08-12T00:00:00Z"))),
              lines({"market@20260808 " + localMidnight(2026, 8, 8) + " Big market"}));
    // The series goes with its override, and the file with them.
    EXPECT_TRUE(structured(handler.deleteEvent({{"event_id", "market"}})).value("success").toBool());
    EXPECT_FALSE(QFile::exists(path("market.ics")));
}

// A repeating to-do has no range to list: its occurrences due in the last month are shown,
// and the next one; each is completed or deleted on its own.
TEST_F(RecurrenceTest, ARepeatingReminderShowsItsRecentAndNextOccurrences)
{
    const QDateTime now = QDateTime::currentDateTimeUtc();
    const QDateTime first(now.date().addDays(-60), QTime(8, 0), Qt::UTC);
    const QString stamp = QStringLiteral("yyyyMMdd'T'HHmmss'Z'");
    writeFile(dir.path() + "/chores/plants.ics",
              calendar("BEGIN:VTODO\nUID:plants\nDTSTART:" + first.toString(stamp).toUtf8() + "\nDUE:" +
                       first.addSecs(3600).toString(stamp).toUtf8() +
                       "\nRRULE:FREQ=WEEKLY\nSUMMARY:Water the plants\nEND:VTODO\n"));
    const auto open = [&](bool includeCompleted) {
        QList<QPair<QString, QDateTime>> found;
        const QJsonObject result = structured(handler.listReminders({{"include_completed", includeCompleted}}));
        for (const QJsonValue &value : result.value("reminders").toArray()) {
            const QJsonObject reminder = value.toObject();
            EXPECT_EQ(reminder.value("title").toString(), "Water the plants");
            found.append({reminder.value("reminder_id").toString(),
                          QDateTime::fromString(reminder.value("due_date").toString(), Qt::ISODateWithMs)});
        }
        return found;
    };
    const auto listed = open(false);
    ASSERT_GE(listed.size(), 5);
    ASSERT_LE(listed.size(), 6);
    for (int i = 0; i < listed.size(); ++i) {
        const QDateTime due = listed.at(i).second;
        EXPECT_EQ(listed.at(i).first, "plants@" + due.addSecs(-3600).toString(stamp));
        EXPECT_EQ(due.time(), QTime(9, 0));
        EXPECT_EQ(first.daysTo(due) % 7, 0);
        EXPECT_GE(due, now.addDays(-30));
        EXPECT_EQ(due > now, i == listed.size() - 1) << i;  // only the last is still to come
    }

    // Done this week: an override marks that occurrence alone, the series keeps its rule.
    const QString thisWeek = listed.at(listed.size() - 2).first;
    const JSONToolResult done = handler.updateReminder({{"reminder_id", thisWeek}, {"completed", true}});
    EXPECT_TRUE(structured(done).value("reminder").toObject().value("completed").toBool()) << textOf(done).toStdString();
    const QByteArray file = readFile(dir.path() + "/chores/plants.ics");
    EXPECT_EQ(file.count("RECURRENCE-ID:"), 1) << file.toStdString();
    EXPECT_EQ(file.count("RRULE:FREQ=WEEKLY"), 1);
    EXPECT_EQ(open(false).size(), listed.size() - 1);
    EXPECT_EQ(open(true).size(), listed.size());

    EXPECT_TRUE(structured(handler.deleteReminder({{"reminder_id", listed.first().first}})).value("success").toBool());
    EXPECT_TRUE(readFile(dir.path() + "/chores/plants.ics").contains("EXDATE:"));
    EXPECT_EQ(open(true).first().first, listed.at(1).first);
}

TEST_F(RecurrenceTest, AnItemIsNeverWrittenOverAFileAnotherProgramChangedSinceItWasRead)
{
    const QByteArray before = calendar("BEGIN:VEVENT\nUID:talk\nDTSTART:20260910T090000Z\nDTEND:20260910T100000Z\n"
                                       "SUMMARY:Talk\nEND:VEVENT\n");
    writeFile(path("talk.ics"), before);
    std::optional<CalendarItem> read = store.item("talk", CalendarCollection::Kind::Events);
    ASSERT_TRUE(read);
    // A sync brings a new room meanwhile.
    QByteArray synced = before;
    synced.replace("SUMMARY:Talk", "SUMMARY:Talk\r\nLOCATION:Hall B");
    writeFile(path("talk.ics"), synced);

    read->title = "Keynote";
    const Result<void> saved = store.save(*read, CalendarCollection::Kind::Events);
    ASSERT_FALSE(saved.ok());
    EXPECT_EQ(saved.error().code, CalendarStore::Stale);
    EXPECT_TRUE(saved.error().description.contains("changed by another program")) << saved.error().description.toStdString();
    EXPECT_EQ(readFile(path("talk.ics")), synced);

    // The tool reads the file as it is now and changes only the title.
    const JSONToolResult updated = handler.updateEvent({{"event_id", "talk"}, {"title", "Keynote"}});
    EXPECT_EQ(structured(updated).value("event").toObject().value("location").toString(), "Hall B")
        << textOf(updated).toStdString();
    EXPECT_TRUE(readFile(path("talk.ics")).contains("SUMMARY:Keynote"));
}

TEST_F(RecurrenceTest, NewFilesAreTheOwnersAloneAndRewritesKeepTheMode)
{
    const QString root = dir.path() + "/fresh/Calendars";
    CalendarStore fresh(root);
    CalendarToolHandler tools(&fresh);
    const QJsonObject event = structured(tools.createEvent({{"title", "Private"}, {"start_date", "2026-03-01T09:00:00Z"},
                                                            {"end_date", "2026-03-01T10:00:00Z"}}))
                                  .value("event").toObject();
    const QString file = root + "/calendar/" + event.value("event_id").toString() + ".ics";
    EXPECT_EQ(modeOf(root), 0700);
    EXPECT_EQ(modeOf(root + "/calendar"), 0700);
    EXPECT_EQ(modeOf(file), 0600);
    EXPECT_EQ(modeOf(root + "/calendar/displayname"), 0600);
    // No temporary file is left beside it.
    EXPECT_EQ(QDir(root + "/calendar").entryList(QDir::Files).size(), 3);

    // A file another program made readable by others stays so after an update.
    ASSERT_EQ(::chmod(QFile::encodeName(file).constData(), 0644), 0);
    tools.updateEvent({{"event_id", event.value("event_id").toString()}, {"title", "Shared"}});
    EXPECT_EQ(modeOf(file), 0644);
    EXPECT_TRUE(readFile(file).contains("SUMMARY:Shared"));

    const QString contactsRoot = dir.path() + "/fresh/Contacts";
    ContactsStore contacts(contactsRoot);
    ContactsToolHandler people(&contacts);
    const QJsonObject contact =
        structured(people.createContact({{"given_name", "Ada"}})).value("contact").toObject();
    EXPECT_EQ(modeOf(contactsRoot), 0700);
    EXPECT_EQ(modeOf(contactsRoot + "/contacts"), 0700);
    EXPECT_EQ(modeOf(contactsRoot + "/contacts/" + contact.value("contact_id").toString() + ".vcf"), 0600);
}
