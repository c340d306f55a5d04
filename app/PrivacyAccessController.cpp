#include "app/PrivacyAccessController.h"

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
    const QString folder = kind == Kind::Contacts ? QStringLiteral("Contacts") : QStringLiteral("Calendars");
    return QStringLiteral("The built-in %1 tools read and change the files in ~/.local/share/Kelvara/%2 when an MCP "
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
