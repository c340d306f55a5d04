#include "tools/calendar/CalendarFileText.h"
#include "tools/calendar/CalendarStore.h"
#include "tools/calendar/CalendarToolHandler.h"
#include "tools/security/PrivacyAccess.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonObject>
#include <QTemporaryDir>

// Readable failures: the text, not its bytes one by one.
inline void PrintTo(const QByteArray &bytes, std::ostream *out)
{
    *out << '"' << bytes.toStdString() << '"';
}

inline void PrintTo(const QString &text, std::ostream *out)
{
    *out << '"' << text.toStdString() << '"';
}

namespace {

QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QByteArray fixture(const char *name)
{
    return readFile(QStringLiteral(KELVARA_CALENDAR_TEST_DATA "/") + QString::fromLatin1(name));
}

QJsonObject structured(const JSONToolResult &result)
{
    return result.toJsonObject().value(QStringLiteral("structuredContent")).toObject();
}

// The lines of a file, line ends kept, DTSTAMP left out: every write stamps the item anew.
QByteArray stampless(const QByteArray &bytes)
{
    QList<QByteArray> lines;
    qsizetype pos = 0;
    while (pos < bytes.size()) {
        qsizetype next = bytes.indexOf('\n', pos);
        next = next < 0 ? bytes.size() : next + 1;
        const QByteArray line = bytes.mid(pos, next - pos);
        if (!line.startsWith("DTSTAMP"))
            lines.append(line);
        pos = next;
    }
    return lines.join();
}

// The file's lines with one component (BEGIN:<kind> to END:<kind> holding the marker) cut.
std::string without(const QByteArray &bytes, const QByteArray &kind, const QByteArray &marker)
{
    const QList<QByteArray> lines = stampless(bytes).split('\n');
    QByteArray result;
    QList<QByteArray> block;
    bool inside = false;
    for (const QByteArray &line : lines) {
        if (line.startsWith("BEGIN:" + kind))
            inside = true;
        if (inside) {
            block.append(line);
            if (line.startsWith("END:" + kind)) {
                inside = false;
                if (!block.join('\n').contains(marker))
                    result += block.join('\n') + '\n';
                block.clear();
            }
            continue;
        }
        result += line + '\n';
    }
    return result.toStdString();
}

class CalendarFileTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        PrivacyAccess::setStatus(PrivacyAccess::Kind::Calendars, PrivacyAccess::FullAccess);
        PrivacyAccess::setStatus(PrivacyAccess::Kind::Reminders, PrivacyAccess::FullAccess);
        QDir(dir.path()).mkpath("team");
        QDir(dir.path()).mkpath("home");
        QFile(dir.path() + "/home/displayname").open(QIODevice::WriteOnly);
        path = dir.path() + "/team/export.ics";
        QFile::copy(QStringLiteral(KELVARA_CALENDAR_TEST_DATA "/team-export.ics"), path);
        QFile(path).setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner);
        original = readFile(path);
    }

    QVariantMap params(std::initializer_list<std::pair<const char *, QVariant>> pairs)
    {
        QVariantMap map;
        for (const auto &[key, value] : pairs)
            map.insert(QString::fromLatin1(key), value);
        return map;
    }

    bool succeeded(const JSONToolResult &result)
    {
        const bool ok = structured(result).value("success").toBool();
        EXPECT_TRUE(ok) << result.content.value(0).text.toStdString();
        return ok;
    }

    QTemporaryDir dir;
    CalendarStore store{dir.path()};
    CalendarToolHandler handler{&store};
    QString path;
    QByteArray original;
};

}  // namespace

TEST(CalendarFileText, FilesOfOtherProgramsGoBackByteForByteWhenNothingChanged)
{
    const std::pair<const char *, const char *> files[] = {
        {"khal-standup.ics", "AP0XX42W8EUPWPS6QADOJ4XQ0AX3JMIXQKEX"},
        {"khal-call.ics", "817VWC4GYMOHEIEGKANXDE4Q376YP02JXFRP"},
        {"khal-offsite.ics", "8T3TXFKTI7IPLEKRXJM45YCRBND1LAM20WMD"},
        {"thunderbird-export.ics", "7c1e4b2a-0f53-4d1e-9a57-3e2b8d5f6a10"},
        {"team-export.ics", "team-weekly-1"},
        {"team-export.ics", "todo-report"},
        {"team-export.ics", "launch-2026"},
        {"rfc5545-examples.ics", "uid1@example.com"},
        {"rfc5545-examples.ics", "uid4@example.com"},
    };
    for (const auto &[name, uid] : files) {
        const QByteArray bytes = fixture(name);
        ASSERT_FALSE(bytes.isEmpty()) << name;
        icalcomponent *root = icalparser_parse_string(bytes.constData());
        EXPECT_EQ(CalendarFileText::spliced(bytes, root, QString::fromLatin1(uid)), bytes) << name;
        icalcomponent_free(root);
    }
    // A file of two calendars: a changed title is that one line, the alarm's folded
    // attachment and the other calendar stay.
    const QByteArray examples = fixture("rfc5545-examples.ics");
    icalcomponent *root = icalparser_parse_string(examples.constData());
    icalcomponent *todo = nullptr;
    for (icalcomponent *calendar = icalcomponent_get_first_component(root, ICAL_VCALENDAR_COMPONENT); calendar;
         calendar = icalcomponent_get_next_component(root, ICAL_VCALENDAR_COMPONENT)) {
        if (icalcomponent *found = icalcomponent_get_first_component(calendar, ICAL_VTODO_COMPONENT))
            todo = found;
    }
    ASSERT_NE(todo, nullptr);
    icalcomponent_set_summary(todo, "Submit Income Taxes, signed");
    QByteArray expected = examples;
    expected.replace("SUMMARY:Submit Income Taxes\r\n", "SUMMARY:Submit Income Taxes\\, signed\r\n");
    EXPECT_EQ(CalendarFileText::spliced(examples, root, "uid4@example.com").toStdString(), expected.toStdString());
    // Taken out alone, it carries no line of the other calendar.
    const QByteArray alone = CalendarFileText::extracted(examples, root, "uid4@example.com");
    EXPECT_FALSE(alone.contains("Networld"));
    EXPECT_TRUE(alone.contains("ATTACH;FMTTYPE=audio/basic:http://example.com/pub/audios/\r\n doorbell.wav\r\n"));
    EXPECT_FALSE(CalendarFileText::holdsOthers(alone, "uid4@example.com"));
    EXPECT_TRUE(CalendarFileText::holdsOthers(examples, "uid4@example.com"));
    icalcomponent_free(root);

    // An empty original is the tree's own text.
    icalcomponent *fresh = icalcomponent_new(ICAL_VCALENDAR_COMPONENT);
    EXPECT_TRUE(CalendarFileText::spliced({}, fresh, "x").startsWith("BEGIN:VCALENDAR\r\n"));
    icalcomponent_free(fresh);
}

TEST_F(CalendarFileTest, AnUpdateRewritesOnlyWhatItChangedInItsOwnItem)
{
    // Notes of one event: one line more in that event, every other byte as it was.
    ASSERT_TRUE(succeeded(handler.updateEvent(params({{"event_id", "launch-2026"}, {"notes", "Bring snacks"}}))));
    QByteArray expected = stampless(original);
    expected.replace("X-EXAMPLE-COLOR:orange\r\n", "X-EXAMPLE-COLOR:orange\r\nDESCRIPTION:Bring snacks\r\n");
    EXPECT_EQ(stampless(readFile(path)).toStdString(), expected.toStdString());

    // The series' title: the line keeps its LANGUAGE and place; the override, the alarm,
    // the attendee's folded line and the zone stay.
    const QByteArray beforeTitle = readFile(path);
    ASSERT_TRUE(succeeded(handler.updateEvent(params({{"event_id", "team-weekly-1"}, {"title", "Team sync"}}))));
    QByteArray renamed = stampless(beforeTitle);
    renamed.replace("SUMMARY;LANGUAGE=en:Team weekly\r\n", "SUMMARY;LANGUAGE=en:Team sync\r\n");
    const QByteArray renamedFile = readFile(path);
    EXPECT_EQ(stampless(renamedFile).toStdString(), renamed.toStdString());

    // New times of an event with a DURATION: written in its own zone, the rest as it was.
    ASSERT_TRUE(succeeded(handler.updateEvent(params({{"event_id", "launch-2026"},
                                                      {"start_date", "2026-03-02T16:00:00Z"},
                                                      {"end_date", "2026-03-02T19:00:00Z"}}))));
    const QByteArray moved = readFile(path);
    EXPECT_TRUE(moved.contains("DTSTART;TZID=Europe/Berlin:20260302T170000\r\n")) << moved.toStdString();
    EXPECT_TRUE(moved.contains("DTEND;TZID=Europe/Berlin:20260302T200000\r\n"));
    EXPECT_FALSE(moved.contains("DURATION"));
    EXPECT_EQ(without(moved, "VEVENT", "launch-2026"), without(renamedFile, "VEVENT", "launch-2026"));
}

TEST_F(CalendarFileTest, DeletesAndMovesTakeOnlyTheirItem)
{
    // A delete cuts the event's lines and nothing else.
    ASSERT_TRUE(succeeded(handler.deleteEvent(params({{"event_id", "launch-2026"}}))));
    EXPECT_EQ(readFile(path), [&] {
        QByteArray bytes = original;
        const qsizetype begin = bytes.indexOf("BEGIN:VEVENT\r\nUID:launch-2026");
        const qsizetype end = bytes.indexOf("END:VEVENT\r\n", begin) + 12;
        return bytes.remove(begin, end - begin);
    }());

    // A series moved to another calendar takes its override and its zone; the old file
    // keeps the to-do as it was.
    ASSERT_TRUE(succeeded(handler.updateEvent(params({{"event_id", "team-weekly-1"}, {"calendar_id", "home"}}))));
    const QStringList homeFiles = QDir(dir.path() + "/home").entryList({"*.ics"});
    ASSERT_EQ(homeFiles.size(), 1);
    const QByteArray home = readFile(dir.path() + "/home/" + homeFiles.first());
    EXPECT_EQ(home.count("BEGIN:VEVENT"), 2);
    EXPECT_TRUE(home.contains("BEGIN:VTIMEZONE\r\nTZID:Europe/Berlin\r\n"));
    EXPECT_TRUE(home.contains("ATTENDEE;CN=\"Ann Alpha\";ROLE=REQ-PARTICIPANT;PARTSTAT=ACCEPTED:mailto:ann@exa\r\n mple.org\r\n"));
    EXPECT_TRUE(home.contains("RECURRENCE-ID;TZID=Europe/Berlin:20260112T093000\r\n"));
    EXPECT_FALSE(home.contains("VTODO"));
    const QByteArray team = readFile(path);
    EXPECT_FALSE(team.contains("VEVENT"));
    EXPECT_TRUE(team.contains("BEGIN:VTODO\r\nUID:todo-report\r\nDTSTAMP:20260101T120000Z\r\nDTSTART;VALUE=DATE:20260301\r\n"
                              "DUE;VALUE=DATE:20260310\r\nSUMMARY:Write the report\r\nPRIORITY:1\r\n"
                              "STATUS:NEEDS-ACTION\r\nEND:VTODO\r\n"));
    EXPECT_TRUE(team.startsWith(original.left(original.indexOf("BEGIN:VEVENT"))));

    // The moved series still lists its moved occurrence once, in Berlin time.
    const QJsonArray events = structured(handler.listEvents(params({{"start_date", "2026-01-12T00:00:00Z"},
                                                                    {"end_date", "2026-01-13T00:00:00Z"}})))
                                  .value("events").toArray();
    ASSERT_EQ(events.size(), 1);
    EXPECT_EQ(events.first().toObject().value("start_date").toString(), "2026-01-12T13:00:00.000Z");
}

TEST_F(CalendarFileTest, AFolderOfEventsAndToDosIsACalendarAndAReminderList)
{
    const QJsonArray lists = structured(handler.listReminderLists({})).value("lists").toArray();
    QStringList types;
    for (const QJsonValue &list : lists) {
        if (list.toObject().value("list_id").toString() == "team")
            types.append(list.toObject().value("type").toString());
    }
    EXPECT_EQ(types.join(u',').toStdString(), "local, events and reminders");
    const QJsonArray reminders =
        structured(handler.listReminders(params({{"list_id", "team"}}))).value("reminders").toArray();
    ASSERT_EQ(reminders.size(), 1);
    EXPECT_EQ(reminders.first().toObject().value("title").toString(), "Write the report");

    // A title edit leaves the to-do's dates as days, as they were.
    ASSERT_TRUE(succeeded(handler.updateReminder(params({{"reminder_id", "todo-report"}, {"title", "Write it"}}))));
    const QByteArray after = readFile(path);
    EXPECT_TRUE(after.contains("DTSTART;VALUE=DATE:20260301\r\nDUE;VALUE=DATE:20260310\r\nSUMMARY:Write it\r\n"))
        << after.toStdString();
    EXPECT_EQ(without(after, "VTODO", "todo-report"), without(original, "VTODO", "todo-report"));
}

TEST_F(CalendarFileTest, ItemsWithoutUIDKeepTheirIdsWhenOthersGo)
{
    const QString shared = dir.path() + "/home/old-export.ics";
    QFile file(shared);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("BEGIN:VCALENDAR\nVERSION:2.0\nPRODID:-//Old//EN\n"
               "BEGIN:VEVENT\nDTSTART:20260401T100000Z\nDTEND:20260401T110000Z\nSUMMARY:First\nEND:VEVENT\n"
               "BEGIN:VEVENT\nDTSTART:20260402T100000Z\nDTEND:20260402T110000Z\nSUMMARY:Second\nEND:VEVENT\n"
               "BEGIN:VEVENT\nDTSTART:20260403T100000Z\nDTEND:20260403T110000Z\nSUMMARY:Third\nEND:VEVENT\n"
               "END:VCALENDAR\n");
    file.close();
    QHash<QString, QString> ids;
    for (const QJsonValue &event : structured(handler.listEvents(params({{"start_date", "2026-04-01T00:00:00Z"},
                                                                         {"end_date", "2026-04-05T00:00:00Z"}})))
                                       .value("events").toArray())
        ids.insert(event.toObject().value("title").toString(), event.toObject().value("event_id").toString());
    EXPECT_EQ(ids.value("First"), "old-export");
    EXPECT_EQ(ids.value("Third"), "old-export#2");

    // The first goes; the others get their ids as UIDs, in the file's own line ends.
    ASSERT_TRUE(succeeded(handler.deleteEvent(params({{"event_id", ids.value("First")}}))));
    EXPECT_EQ(readFile(shared),
              "BEGIN:VCALENDAR\nVERSION:2.0\nPRODID:-//Old//EN\n"
              "BEGIN:VEVENT\nUID:old-export#1\nDTSTART:20260402T100000Z\nDTEND:20260402T110000Z\nSUMMARY:Second\nEND:VEVENT\n"
              "BEGIN:VEVENT\nUID:old-export#2\nDTSTART:20260403T100000Z\nDTEND:20260403T110000Z\nSUMMARY:Third\nEND:VEVENT\n"
              "END:VCALENDAR\n");
    // The listed ids still name the same events; the gone one touches nothing.
    ASSERT_TRUE(succeeded(handler.updateEvent(params({{"event_id", ids.value("Third")}, {"location", "Hall"}}))));
    // The new lines (and the stamp the event lacked) follow its own, the other event stays.
    const QByteArray updated = readFile(shared);
    EXPECT_TRUE(updated.contains("SUMMARY:Third\nDTSTAMP:")) << updated.toStdString();
    EXPECT_TRUE(updated.contains("Z\nLOCATION:Hall\nEND:VEVENT\nEND:VCALENDAR\n")) << updated.toStdString();
    EXPECT_TRUE(updated.contains("UID:old-export#1\nDTSTART:20260402T100000Z\nDTEND:20260402T110000Z\nSUMMARY:Second\nEND:VEVENT\n"));
    const QByteArray before = readFile(shared);
    EXPECT_EQ(structured(handler.updateEvent(params({{"event_id", ids.value("First")}, {"title", "x"}})))
                  .value("error").toString().toStdString(),
              "Event not found for id 'old-export'.");
    EXPECT_EQ(readFile(shared), before);
}

TEST_F(CalendarFileTest, ANewEventIsWrittenInTheSystemsZoneWithItsDefinition)
{
    const QByteArray zone = qgetenv("TZ");
    qputenv("TZ", "Europe/Berlin");
    const JSONToolResult created = handler.createEvent(params({{"title", "Dentist"}, {"calendar_id", "home"},
                                                               {"start_date", "2026-08-04T08:00:00Z"},
                                                               {"end_date", "2026-08-04T08:45:00Z"}}));
    if (zone.isNull())
        qunsetenv("TZ");
    else
        qputenv("TZ", zone);
    ASSERT_TRUE(succeeded(created));
    const QString id = structured(created).value("event").toObject().value("event_id").toString();
    const QByteArray file = readFile(dir.path() + "/home/" + id + ".ics");
    // Summer time in Berlin: 10:00 local, and the zone's own definition in the file.
    EXPECT_TRUE(file.contains("DTSTART;TZID=Europe/Berlin:20260804T100000\r\n")) << file.toStdString();
    EXPECT_TRUE(file.contains("DTEND;TZID=Europe/Berlin:20260804T104500\r\n"));
    EXPECT_TRUE(file.contains("BEGIN:VTIMEZONE\r\nTZID:Europe/Berlin\r\n"));
    EXPECT_EQ(structured(created).value("event").toObject().value("start_date").toString().toStdString(),
              "2026-08-04T08:00:00.000Z");
}
