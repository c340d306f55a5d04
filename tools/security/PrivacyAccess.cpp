#include "tools/security/PrivacyAccess.h"

#include "base/UserDefaults.h"

int PrivacyAccess::status(Kind kind)
{
    return UserDefaults::standard()->value(key(kind), int(NotDetermined)).toInt();
}

void PrivacyAccess::setStatus(Kind kind, int status)
{
    UserDefaults::standard()->setValue(key(kind), status);
}

std::optional<PrivacyAccess::Kind> PrivacyAccess::kindFromWord(const QString &word)
{
    for (Kind kind : {Kind::Calendars, Kind::Reminders, Kind::Contacts}) {
        if (PrivacyAccess::word(kind) == word)
            return kind;
    }
    return std::nullopt;
}

QString PrivacyAccess::word(Kind kind)
{
    switch (kind) {
    case Kind::Calendars:
        return QStringLiteral("calendars");
    case Kind::Reminders:
        return QStringLiteral("reminders");
    case Kind::Contacts:
        return QStringLiteral("contacts");
    }
    return {};
}

QString PrivacyAccess::key(Kind kind)
{
    return QStringLiteral("privacy.") + word(kind);
}
