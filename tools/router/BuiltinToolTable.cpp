#include "tools/router/BuiltinToolTable.h"

#include "tools/builtin/FileAccessHandler.h"
#include "tools/calendar/CalendarToolHandler.h"
#include "tools/contacts/ContactsToolHandler.h"

#include <QHash>

namespace {

using Thread = BuiltinToolMethod::Thread;
using Precheck = BuiltinToolMethod::Precheck;

const QString kFiles = QStringLiteral("FileAccessHandler");
const QString kCalendars = QStringLiteral("CalendarToolHandler");
const QString kContacts = QStringLiteral("ContactsToolHandler");

QList<BuiltinToolMethod> makeTable()
{
    QList<BuiltinToolMethod> rows;
    const QHash<QString, QString> labels = {
        {QStringLiteral("listFiles"), QStringLiteral("List files in a directory (listFiles)")},
        {QStringLiteral("readFile"), QStringLiteral("Read file from file system (readFile)")},
        {QStringLiteral("writeFile"), QStringLiteral("Write file to file system (writeFile)")},
        {QStringLiteral("listCalendars"), QStringLiteral("List available calendars (listCalendars)")},
        {QStringLiteral("listEvents"), QStringLiteral("List calendar events (listEvents)")},
        {QStringLiteral("createEvent"), QStringLiteral("Create calendar event (createEvent)")},
        {QStringLiteral("updateEvent"), QStringLiteral("Update calendar event (updateEvent)")},
        {QStringLiteral("deleteEvent"), QStringLiteral("Delete calendar event (deleteEvent)")},
        {QStringLiteral("listReminderLists"), QStringLiteral("List reminder lists (listReminderLists)")},
        {QStringLiteral("listReminders"), QStringLiteral("List reminders (listReminders)")},
        {QStringLiteral("createReminder"), QStringLiteral("Create reminder (createReminder)")},
        {QStringLiteral("updateReminder"), QStringLiteral("Update reminder (updateReminder)")},
        {QStringLiteral("deleteReminder"), QStringLiteral("Delete reminder (deleteReminder)")},
        {QStringLiteral("listContacts"), QStringLiteral("List contacts (listContacts)")},
        {QStringLiteral("createContact"), QStringLiteral("Create contact (createContact)")},
        {QStringLiteral("updateContact"), QStringLiteral("Update contact (updateContact)")},
        {QStringLiteral("deleteContact"), QStringLiteral("Delete contact (deleteContact)")},
    };
    auto add = [&rows, &labels](const char *method, const QString &executor, Thread thread, Precheck precheck,
                                BuiltinToolMethod::Executor run) {
        const QString name = QString::fromLatin1(method);
        rows.append(BuiltinToolMethod{name, executor, labels.value(name), thread, precheck, std::move(run)});
    };

    add("listFiles", kFiles, Thread::Caller, Precheck::None,
        [](const QVariantMap &p) { return FileAccessHandler::shared()->listFiles(p); });
    add("readFile", kFiles, Thread::Caller, Precheck::FilePath,
        [](const QVariantMap &p) { return FileAccessHandler::shared()->readFile(p); });
    add("writeFile", kFiles, Thread::Caller, Precheck::FilePathAndContent,
        [](const QVariantMap &p) { return FileAccessHandler::shared()->writeFile(p); });

    // Calendars and reminders: the event store belongs to the main thread. "listEvents"
    // hops there by itself, inside the handler.
    using Calendar = JSONToolResult (CalendarToolHandler::*)(const QVariantMap &) const;
    auto calendar = [&add](const char *method, Thread thread, Calendar member) {
        add(method, kCalendars, thread, Precheck::None,
            [member](const QVariantMap &p) { return (CalendarToolHandler::shared()->*member)(p); });
    };
    calendar("listCalendars", Thread::Main, &CalendarToolHandler::listCalendars);
    calendar("listEvents", Thread::Caller, &CalendarToolHandler::listEvents);
    calendar("createEvent", Thread::Main, &CalendarToolHandler::createEvent);
    calendar("updateEvent", Thread::Main, &CalendarToolHandler::updateEvent);
    calendar("deleteEvent", Thread::Main, &CalendarToolHandler::deleteEvent);
    calendar("listReminderLists", Thread::Main, &CalendarToolHandler::listReminderLists);
    calendar("listReminders", Thread::Main, &CalendarToolHandler::listReminders);
    calendar("createReminder", Thread::Main, &CalendarToolHandler::createReminder);
    calendar("updateReminder", Thread::Main, &CalendarToolHandler::updateReminder);
    calendar("deleteReminder", Thread::Main, &CalendarToolHandler::deleteReminder);

    // Contacts run on the caller's thread.
    using Contacts = JSONToolResult (ContactsToolHandler::*)(const QVariantMap &) const;
    auto contacts = [&add](const char *method, Contacts member) {
        add(method, kContacts, Thread::Caller, Precheck::None,
            [member](const QVariantMap &p) { return (ContactsToolHandler::shared()->*member)(p); });
    };
    contacts("listContacts", &ContactsToolHandler::listContacts);
    contacts("createContact", &ContactsToolHandler::createContact);
    contacts("updateContact", &ContactsToolHandler::updateContact);
    contacts("deleteContact", &ContactsToolHandler::deleteContact);
    return rows;
}

}  // namespace

const QList<BuiltinToolMethod> &BuiltinToolTable::methods()
{
    static const QList<BuiltinToolMethod> table = makeTable();
    return table;
}

const BuiltinToolMethod *BuiltinToolTable::find(const QString &execMethod)
{
    for (const BuiltinToolMethod &row : methods()) {
        if (row.execMethod == execMethod)
            return &row;
    }
    return nullptr;
}
