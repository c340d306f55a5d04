#pragma once

#include <QString>
#include <QStringList>

class QTextStream;

// `kelvara access`: without the window, for headless use of `kelvara serve`. The privacy
// setting of the calendar, reminder and contact tools, as the window's first question and
// Settings set it; and the folders the file tools may use, the list Settings ▸ Security
// Scopes keeps.
class AccessCommand {
public:
    static inline const QString usageText = QStringLiteral(
        "Usage: kelvara access grant|revoke calendars|reminders|contacts...\n"
        "       kelvara access grant|revoke folder PATH...\n"
        "       kelvara access show\n"
        "\n"
        "Lets the built-in calendar, reminder and contact tools reach your data (grant) or\n"
        "keeps them from it (revoke). The tools read and write the folders under\n"
        "$XDG_DATA_HOME/Kelvara (Calendars, Contacts), or the ones the settings\n"
        "mcp.calendars.root and mcp.contacts.root name.\n"
        "\n"
        "\"folder\" lets the file tools, file resources and script tools use a folder (or a\n"
        "single file) and everything below it, like Settings > Security Scopes; outside the\n"
        "granted folders they refuse to read or write. PATH must exist; it is stored as its\n"
        "absolute path with symbolic links resolved. Revoking takes a granted PATH off the\n"
        "list. A running server reads the list when it starts.\n"
        "\n"
        "\"show\" prints each kind with its status, then the granted folders.\n"
        "\n"
        "Exit codes: 0 done, 1 a PATH that does not exist or is not granted, 2 bad usage.\n");

    // Runs the whole command on a QCoreApplication of its own; argv[1] is "access".
    static int main(int argc, char **argv);
    // The command's work on its arguments (after "access"); gives the exit code.
    static int run(const QStringList &arguments, QTextStream &out, QTextStream &err);
};
