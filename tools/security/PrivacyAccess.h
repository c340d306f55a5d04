#pragma once

#include <QString>
#include <optional>

// The application's own privacy setting for the personal data its built-in tools reach:
// calendars (events), reminders and contacts. The user grants each once, when the main
// window first asks, in Settings, or with `kelvara access grant|revoke KIND`. The status
// values are the ones the tools check: 3 full access, 2 denied, 0 not yet asked.
//
// Any thread: the values live in the user defaults.
class PrivacyAccess {
public:
    enum class Kind { Calendars, Reminders, Contacts };
    enum Status { NotDetermined = 0, Denied = 2, FullAccess = 3, WriteOnly = 4 };

    static int status(Kind kind);
    static void setStatus(Kind kind, int status);
    static bool isDetermined(Kind kind) { return status(kind) != NotDetermined; }

    // "calendars", "reminders", "contacts"; nullopt for any other word.
    static std::optional<Kind> kindFromWord(const QString &word);
    static QString word(Kind kind);
    // The settings key: "privacy.calendars" and so on.
    static QString key(Kind kind);
};
