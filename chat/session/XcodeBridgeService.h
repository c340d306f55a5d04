#pragma once

#include <QString>

class QObject;

// The editor bridge: text handed over by an editor and the last answer handed back, in the
// shared settings file of the application group, with a session-bus signal for each side.
// The signal of a key "kelvara.xcode.request" is member "request" of interface "kelvara.xcode"
// (D-Bus member names have no dots). Without a session bus the signals are not sent and the
// store still works; nothing here fails loudly. Stateless; main thread.
class XcodeBridgeService {
public:
    static inline const QString requestKey = QStringLiteral("kelvara.xcode.request");
    static inline const QString responseKey = QStringLiteral("kelvara.xcode.response");
    static inline const QString signalInterface = QStringLiteral("kelvara.xcode");
    static inline const QString signalPath = QStringLiteral("/org/tamsel/apps");

    // $XDG_CONFIG_HOME/group.org.tamsel.apps.conf
    static QString storePath();
    // The stored request, or "".
    static QString readRequest();
    static QString readResponse();
    // Stores the answer, syncs the file and signals "response".
    static void writeResponse(const QString &text);
    // Stores a request, syncs the file and signals "request" (the companion's side).
    static void writeRequest(const QString &text);
    // A request made fit for the chat: trimmed, blank lines emptied; "" when nothing is left.
    static QString normalisedRequest(const QString &text);
    // Calls slot of receiver on each "request" or "response" signal; false without a bus. The
    // subscription stands when this returns.
    static bool subscribe(const QString &member, QObject *receiver, const char *slot);

private:
    static void signal(const QString &member);
    // One round trip to the bus: what was sent before has left, what was asked for stands.
    static void settle();
};
