#include "tools/router/BuiltinToolTable.h"

#include "tools/builtin/FileAccessHandler.h"
#include "tools/calendar/CalendarToolHandler.h"
#include "tools/contacts/ContactsToolHandler.h"

namespace {

using Thread = BuiltinToolMethod::Thread;
using Precheck = BuiltinToolMethod::Precheck;

const QString kFiles = QStringLiteral("FileAccessHandler");
const QString kCalendars = QStringLiteral("CalendarToolHandler");
const QString kContacts = QStringLiteral("ContactsToolHandler");

QList<BuiltinToolMethod> makeTable()
{
    QList<BuiltinToolMethod> rows;
    auto add = [&rows](const char *method, const QString &executor, Thread thread, Precheck precheck,
                       BuiltinToolMethod::Executor run) {
        rows.append(BuiltinToolMethod{QString::fromLatin1(method), executor, thread, precheck, std::move(run)});
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
