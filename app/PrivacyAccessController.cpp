#include "app/PrivacyAccessController.h"

#include "base/UserDefaults.h"
#include "tools/calendar/CalendarStore.h"
#include "tools/contacts/ContactsStore.h"

#include <QDir>

PrivacyAccessController::PrivacyAccessController(QObject *parent) : QObject(parent) {}

QList<PrivacyAccessController::Kind> PrivacyAccessController::undecided()
{
    QList<Kind> kinds;
    for (Kind kind : {Kind::Reminders, Kind::Calendars, Kind::Contacts}) {
        if (!PrivacyAccess::isDetermined(kind))
            kinds.append(kind);
    }
    return kinds;
}

QString PrivacyAccessController::label(Kind kind)
{
    switch (kind) {
    case Kind::Calendars:
        return QStringLiteral("Calendars");
    case Kind::Reminders:
        return QStringLiteral("Reminders");
    case Kind::Contacts:
        return QStringLiteral("Contacts");
    }
    return {};
}

QString PrivacyAccessController::questionTitle(Kind kind)
{
    switch (kind) {
    case Kind::Calendars:
        return QStringLiteral("Kelvara would like to access your calendars.");
    case Kind::Reminders:
        return QStringLiteral("Kelvara would like to access your reminders.");
    case Kind::Contacts:
        return QStringLiteral("Kelvara would like to access your contacts.");
    }
    return {};
}

QString PrivacyAccessController::questionText(Kind kind)
{
    // The folder the tools really use (a setting may point them at khal's or khard's), with
    // the home folder written as ~.
    QString folder = kind == Kind::Contacts
                         ? UserDefaults::standard()->value(ContactsStore::rootSettingKey(), ContactsStore::defaultRoot()).toString()
                         : UserDefaults::standard()->value(CalendarStore::rootSettingKey(), CalendarStore::defaultRoot()).toString();
    const QString home = QDir::homePath();
    if (folder == home || folder.startsWith(home + QLatin1Char('/')))
        folder = QLatin1Char('~') + folder.mid(home.size());
    return QStringLiteral("The built-in %1 tools read and change the files in %2 when an MCP "
                          "client or the chat's model calls them. You can change this later in Settings ▸ Privacy.")
        .arg(label(kind).toLower(), folder);
}

bool PrivacyAccessController::isGranted(Kind kind) const
{
    return PrivacyAccess::status(kind) == PrivacyAccess::FullAccess;
}

void PrivacyAccessController::setGranted(Kind kind, bool granted)
{
    const int status = granted ? PrivacyAccess::FullAccess : PrivacyAccess::Denied;
    if (PrivacyAccess::status(kind) == status)
        return;
    PrivacyAccess::setStatus(kind, status);
    emit accessChanged(kind, granted);
}
