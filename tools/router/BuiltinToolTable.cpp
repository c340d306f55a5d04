#include "tools/router/BuiltinToolTable.h"

#include "tools/builtin/FileAccessHandler.h"

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
    // hops there by itself, inside the handler. Not built yet: their executors attach here.
    add("listCalendars", kCalendars, Thread::Main, Precheck::None, {});
    add("listEvents", kCalendars, Thread::Caller, Precheck::None, {});
    add("createEvent", kCalendars, Thread::Main, Precheck::None, {});
    add("updateEvent", kCalendars, Thread::Main, Precheck::None, {});
    add("deleteEvent", kCalendars, Thread::Main, Precheck::None, {});
    add("listReminderLists", kCalendars, Thread::Main, Precheck::None, {});
    add("listReminders", kCalendars, Thread::Main, Precheck::None, {});
    add("createReminder", kCalendars, Thread::Main, Precheck::None, {});
    add("updateReminder", kCalendars, Thread::Main, Precheck::None, {});
    add("deleteReminder", kCalendars, Thread::Main, Precheck::None, {});

    // Contacts run on the caller's thread. Not built yet: their executors attach here.
    add("listContacts", kContacts, Thread::Caller, Precheck::None, {});
    add("createContact", kContacts, Thread::Caller, Precheck::None, {});
    add("updateContact", kContacts, Thread::Caller, Precheck::None, {});
    add("deleteContact", kContacts, Thread::Caller, Precheck::None, {});
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
