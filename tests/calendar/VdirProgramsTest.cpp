// The calendar and contact tools against the programs Linux users keep their vdir folders
// with: khal writes events and khard writes cards, Kelvara's tools change them, and the
// same programs read them back. Each program gets its own configuration in a temporary
// folder. Left out when the programs are not installed (scripts/setup installs them).
#include "tools/calendar/CalendarStore.h"
#include "tools/calendar/CalendarToolHandler.h"
#include "tools/contacts/ContactsStore.h"
#include "tools/contacts/ContactsToolHandler.h"
#include "tools/security/PrivacyAccess.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonObject>
#include <QProcess>
#include <QStandardPaths>
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

QJsonObject structured(const JSONToolResult &result)
{
    return result.toJsonObject().value(QStringLiteral("structuredContent")).toObject();
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

QVariantMap params(std::initializer_list<std::pair<const char *, QVariant>> pairs)
{
    QVariantMap map;
    for (const auto &[key, value] : pairs)
        map.insert(QString::fromLatin1(key), value);
    return map;
}

class VdirProgramsTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        PrivacyAccess::setStatus(PrivacyAccess::Kind::Calendars, PrivacyAccess::FullAccess);
        PrivacyAccess::setStatus(PrivacyAccess::Kind::Reminders, PrivacyAccess::FullAccess);
        PrivacyAccess::setStatus(PrivacyAccess::Kind::Contacts, PrivacyAccess::FullAccess);
    }

    // The program's standard output; a failure to run it fails the test.
    QString run(const QString &program, const QStringList &arguments, const QByteArray &input = {})
    {
        QProcess process;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("XDG_CONFIG_HOME", dir.path() + "/config");
        environment.insert("XDG_DATA_HOME", dir.path() + "/data");
        environment.insert("HOME", dir.path());
        environment.insert("LANG", "C.UTF-8");
        environment.insert("LC_ALL", "C.UTF-8");
        process.setProcessEnvironment(environment);
        process.start(program, arguments);
        process.write(input);
        process.closeWriteChannel();
        // Not a time limit on the result: only a guard against a program that hangs.
        const bool finished = process.waitForFinished(300000);
        EXPECT_TRUE(finished && process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0)
            << program.toStdString() << " " << arguments.join(' ').toStdString() << ": "
            << process.readAllStandardError().toStdString();
        return QString::fromUtf8(process.readAllStandardOutput());
    }

    // khal's lines for the days, one per event, in a fixed format, joined by line feeds.
    std::string khalList(const QString &day, const QString &span = "1d")
    {
        const QString out = run("khal", {"list", "--day-format", "", "--format",
                                         "{start-time}-{end-time} {title}|{location}|{description}|{alarm-symbol}",
                                         day, span});
        QStringList lines;
        for (const QString &line : out.split(u'\n')) {
            if (!line.trimmed().isEmpty())
                lines.append(line.trimmed());
        }
        return lines.join(u'\n').toStdString();
    }

    // khard's YAML of a contact, as "key: value" lines without comments and blanks.
    QStringList khardShow(const QString &search)
    {
        QStringList lines;
        for (const QString &line : run("khard", {"show", "--format", "yaml", search}).split(u'\n')) {
            if (!line.trimmed().isEmpty() && !line.trimmed().startsWith(u'#'))
                lines.append(line.trimmed());
        }
        return lines;
    }

    QTemporaryDir dir;
};

}  // namespace

TEST_F(VdirProgramsTest, KhalEventsKeepTheirZonesAlarmsAndRepeatsThroughKelvara)
{
    if (QStandardPaths::findExecutable("khal").isEmpty())
        GTEST_SKIP() << "khal is not installed";
    const QString root = dir.path() + "/calendars";
    QDir().mkpath(root + "/work");
    writeFile(dir.path() + "/config/khal/config",
              "[calendars]\n[[work]]\npath = " + root.toUtf8() + "/work\ntype = calendar\n"
              "[locale]\ntimeformat = %H:%M\ndateformat = %Y-%m-%d\nlongdateformat = %Y-%m-%d\n"
              "datetimeformat = %Y-%m-%d %H:%M\nlongdatetimeformat = %Y-%m-%d %H:%M\n"
              "local_timezone = Europe/Berlin\ndefault_timezone = Europe/Berlin\n"
              "[default]\ndefault_calendar = work\n");
    run("khal", {"new", "-a", "work", "--location", "Room 4", "-r", "weekly", "2026-01-05", "09:30", "10:00",
                 "Europe/Berlin", "Stand-up", "::", "Daily sync notes"});
    run("khal", {"new", "-a", "work", "-m", "15m", "2026-07-01", "14:00", "15:30", "America/New_York", "Call with NY"});
    run("khal", {"new", "-a", "work", "2026-03-10", "2026-03-11", "Offsite"});
    ASSERT_EQ(QDir(root + "/work").entryList({"*.ics"}).size(), 3);

    CalendarStore store(root);
    CalendarToolHandler handler(&store);
    QHash<QString, QString> ids;  // title -> series or event id
    const QJsonArray listed = structured(handler.listEvents(params({{"start_date", "2026-01-01T00:00:00Z"},
                                                                    {"end_date", "2026-12-31T00:00:00Z"}})))
                                  .value("events").toArray();
    for (const QJsonValue &event : listed)
        ids.insert(event.toObject().value("title").toString(), event.toObject().value("event_id").toString().section(u'@', 0, 0));
    ASSERT_TRUE(ids.contains("Stand-up") && ids.contains("Call with NY") && ids.contains("Offsite"));
    const QString standup = ids.value("Stand-up");
    const QByteArray standupBefore = readFile(root + "/work/" + standup + ".ics");

    const auto ok = [](const JSONToolResult &result) {
        EXPECT_TRUE(structured(result).value("success").toBool()) << result.content.value(0).text.toStdString();
    };
    ok(handler.updateEvent(params({{"event_id", standup}, {"notes", "Weekly sync notes"}})));
    ok(handler.updateEvent(params({{"event_id", standup + "@20260112T083000Z"},
                                   {"start_date", "2026-01-12T10:00:00Z"}, {"end_date", "2026-01-12T10:30:00Z"}})));
    ok(handler.deleteEvent(params({{"event_id", standup + "@20260119T083000Z"}})));
    ok(handler.updateEvent(params({{"event_id", ids.value("Call with NY")}, {"title", "Call with New York"}})));
    ok(handler.updateEvent(params({{"event_id", ids.value("Offsite")}, {"location", "Lake house"}})));

    // khal sees the series in Berlin time in winter and in summer, the moved and the
    // removed occurrence, the alarm, the whole days.
    EXPECT_EQ(khalList("2026-01-05"), "09:30-10:00 Stand-up|Room 4|Weekly sync notes|");
    EXPECT_EQ(khalList("2026-01-12"), "11:00-11:30 Stand-up|Room 4|Weekly sync notes|");
    EXPECT_EQ(khalList("2026-01-19"), "");
    EXPECT_EQ(khalList("2026-07-06"), "09:30-10:00 Stand-up|Room 4|Weekly sync notes|");
    EXPECT_EQ(khalList("2026-07-01"), "20:00-21:30 Call with New York||| ⏰");
    EXPECT_EQ(khalList("2026-03-10", "2d"), "- Offsite|Lake house||\n- Offsite|Lake house||");

    // The series' own lines as khal wrote them.
    const QByteArray standupAfter = readFile(root + "/work/" + standup + ".ics");
    for (const QByteArray &line : standupBefore.split('\n')) {
        if (!line.startsWith("DTSTAMP") && !line.startsWith("DESCRIPTION"))
            EXPECT_TRUE(standupAfter.contains(line + '\n')) << line.toStdString();
    }

    // The other way: Kelvara's event as khal reads it.
    ok(handler.createEvent(params({{"title", "Dentist"}, {"calendar_id", "work"}, {"start_date", "2026-08-03T08:00:00Z"},
                                   {"end_date", "2026-08-03T08:45:00Z"}, {"location", "Main St 1"}, {"notes", "Bring card"}})));
    EXPECT_EQ(khalList("2026-08-03"), "09:30-10:00 Stand-up|Room 4|Weekly sync notes|\n10:00-10:45 Dentist|Main St 1|Bring card|");
}

TEST_F(VdirProgramsTest, KhardCardsKeepEveryPropertyThroughKelvara)
{
    if (QStandardPaths::findExecutable("khard").isEmpty())
        GTEST_SKIP() << "khard is not installed";
    const QString root = dir.path() + "/contacts";
    QDir().mkpath(root + "/people");
    writeFile(dir.path() + "/config/khard/khard.conf",
              "[addressbooks]\n[[people]]\npath = " + root.toUtf8() + "/people/\n"
              "[general]\ndefault_action = list\neditor = /bin/false\nmerge_editor = /bin/false\n"
              "[vcard]\npreferred_version = 3.0\n");
    run("khard", {"new", "-a", "people"},
        "Formatted name : Countess Ada Lovelace\nPrefix : Countess\nFirst name : Ada\nLast name : Lovelace\n"
        "Nickname : Enchantress of Numbers\nBirthday : 1815-12-10\n"
        "Organisation :\n    -\n        - Analytical Engine Society\n        - Notes Department\n"
        "Title : Translator\nPhone :\n    cell : +44 20 7946 0001\n    home, pref : +44 20 7946 0002\n"
        "Email :\n    work : ada@engine.example\n    home : ada@home.example\n"
        "Address :\n    home :\n        Street : 12 St James's Square\n        City : London\n"
        "Note : Wrote the first program\n");
    const QStringList before = khardShow("Lovelace");
    ASSERT_TRUE(before.contains("Formatted name: Countess Ada Lovelace")) << before.join('\n').toStdString();

    ContactsStore store(root);
    ContactsToolHandler handler(&store);
    const QJsonArray contacts = structured(handler.listContacts({})).value("contacts").toArray();
    ASSERT_EQ(contacts.size(), 1);
    const QJsonObject ada = contacts.first().toObject();
    EXPECT_EQ(ada.value("display_name").toString(), "Ada Lovelace");
    EXPECT_EQ(ada.value("organization_name").toString(), "Analytical Engine Society");
    const QJsonObject updated = structured(handler.updateContact(
        params({{"contact_id", ada.value("contact_id").toString()}, {"note", "Wrote the first program (Note G)"},
                {"phone_numbers", QVariantList{"+44 20 7946 0003", "+44 20 7946 0002"}}})));
    ASSERT_TRUE(updated.value("success").toBool());

    // What khard shows is what it showed, with the new note and number.
    QStringList expected = before;
    expected.replaceInStrings("Note: Wrote the first program", "Note: Wrote the first program (Note G)");
    expected.replaceInStrings("cell: +44 20 7946 0001", "cell: +44 20 7946 0003");
    EXPECT_EQ(khardShow("Lovelace").join(u'\n').toStdString(), expected.join(u'\n').toStdString());

    // The other way: Kelvara's card as khard reads it.
    ASSERT_TRUE(structured(handler.createContact(params({{"given_name", "Grace"}, {"family_name", "Hopper"},
                                                         {"organization_name", "Navy"},
                                                         {"phone_numbers", "+1 555 0199"},
                                                         {"email_addresses", "grace@navy.example"}})))
                    .value("success").toBool());
    const QStringList grace = khardShow("Hopper");
    for (const char *line : {"Formatted name: Grace Hopper", "First name: Grace", "Last name: Hopper", "+1 555 0199",
                             "grace@navy.example", "Navy"}) {
        EXPECT_TRUE(grace.filter(QString::fromLatin1(line)).size() == 1) << line << "\n" << grace.join('\n').toStdString();
    }
    const QString listedByKhard = run("khard", {"ls"});
    EXPECT_TRUE(listedByKhard.contains("Ada Lovelace") && listedByKhard.contains("Grace Hopper")) << listedByKhard.toStdString();
}
