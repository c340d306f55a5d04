#pragma once

#include <QString>
#include <QStringList>
#include <optional>

class PluginController;
class QTextStream;
struct Plugin;

// `kelvara plugin`: the user's list of native plug-ins without the window. "add" registers a
// plug-in exactly as the Plugin Manager's approval does, after showing its descriptor and
// asking on the terminal (unless --yes); "list" prints the registered plug-ins. Enabling stays
// a decision of each run: the window's wizard, or `kelvara serve --enable-plugin PATH`,
// which enableForRun carries out.
class PluginCommand {
public:
    static inline const QString usageText = QStringLiteral(
        "Usage: kelvara plugin add PATH [--yes]\n"
        "       kelvara plugin list\n"
        "\n"
        "Registers native tool plug-ins (a .so library, or a .bundle or .plugin folder) in the\n"
        "same list as the window's Plugin Manager.\n"
        "\n"
        "  add PATH     loads the plug-in, shows what it says about itself and asks whether to\n"
        "               register it; a registered plug-in stays disabled\n"
        "  --yes, -y    register without asking\n"
        "  list         prints the registered plug-ins: name, version and path\n"
        "  -h, --help   show this help and exit\n"
        "\n"
        "An enabled plug-in runs inside Kelvara's own process with your user rights: it can\n"
        "read, change and send anything you can. Register only plug-ins you trust.\n"
        "\n"
        "Every plug-in is disabled when Kelvara starts. Enable one for a run by confirming its\n"
        "file again: in the window's Plugin Manager, or with\n"
        "  kelvara serve --enable-plugin PATH\n"
        "\n"
        "Exit codes: 0 done, 1 the plug-in could not be registered or the user declined,\n"
        "2 bad usage.\n");

    // Runs the whole command on a QCoreApplication of its own; argv[1] is "plugin".
    static int main(int argc, char **argv);

    // `add`: loads the plug-in at path, shows its descriptor on out, asks on in unless
    // assumeYes, and approves. Gives the exit code; failures go to err.
    static int add(PluginController *controller, const QString &path, bool assumeYes, QTextStream &in,
                   QTextStream &out, QTextStream &err);
    // `list`: gives the exit code.
    static int list(PluginController *controller, QTextStream &out);

    // `kelvara serve --enable-plugin PATH`: the command line is the user's confirmation for
    // this run. Enables the registered plug-in whose name the file's descriptor carries.
    // Gives that name, or nothing with the reason.
    static std::optional<QString> enableForRun(PluginController *controller, const QString &path, QString *reason);

    // The descriptor as the terminal shows it for review.
    static QString describe(const Plugin &plugin);
    // "y" or "yes", in any case, with blanks around.
    static bool isYes(const QString &answer);
};
