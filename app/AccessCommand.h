#pragma once

#include <QString>
#include <QStringList>

class QTextStream;

// `kelvara access`: the privacy setting of the calendar, reminder and contact tools without
// the window, for headless use of `kelvara serve`. It sets the same values the window's
// first question and Settings set.
class AccessCommand {
public:
    static inline const QString usageText = QStringLiteral(
        "Usage: kelvara access grant|revoke calendars|reminders|contacts...\n"
        "       kelvara access show\n"
        "\n"
        "Lets the built-in calendar, reminder and contact tools reach your data (grant) or\n"
        "keeps them from it (revoke); \"show\" prints each kind with its status. The tools\n"
        "read and write the folders under $XDG_DATA_HOME/Kelvara (Calendars, Contacts), or\n"
        "the ones the settings mcp.calendars.root and mcp.contacts.root name.\n"
        "\n"
        "Exit codes: 0 done, 2 bad usage.\n");

    // Runs the whole command on a QCoreApplication of its own; argv[1] is "access".
    static int main(int argc, char **argv);
    // The command's work on its arguments (after "access"); gives the exit code.
    static int run(const QStringList &arguments, QTextStream &out, QTextStream &err);
};
