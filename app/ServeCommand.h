#pragma once

#include "diagnostics/MCPLogMessageType.h"

#include <QString>
#include <QStringList>
#include <chrono>
#include <optional>

// `kelvara serve`: Kelvara's MCP server without the window. It opens the store, imports
// the bundles asked for, and runs exactly the Start pipeline of the server screen. Log
// lines go to standard output in the form of the log export, each status message on a
// line of its own; SIGINT or SIGTERM stops the server and ends with exit code 0. A start
// that fails ends with exit code 1 and its text on standard error; bad usage with 2. With
// --stdio the protocol takes standard output for itself, everything else goes to standard
// error, and the end of standard input stops the server too.
class ServeCommand {
public:
    struct Options {
        std::optional<QString> port;     // stored as the server's port, as the window's field does
        std::optional<bool> listenAtAll;  // stored as the bind flag
        QStringList importFolders;        // user bundles, in order
        bool importBuiltin = false;       // the built-in bundle, before the folders
        QStringList enablePlugins;        // plug-in files the user confirms for this run
        bool stdio = false;               // serve MCP over standard input and output
        QStringList allowOrigins;         // web origins allowed for this run
        std::optional<bool> requireToken; // replaces the stored token requirement for this run
        bool keepAlive = false;           // persistent connections for this run
        std::optional<QString> logLevel;  // stored under logLevelKey
        bool help = false;
    };

    // How long a stop waits for calls still running before the process leaves without them.
    static constexpr std::chrono::seconds stopWaitLimit{10};

    // The stored level of serve's log: "debug", "info" (when unset), "warning" or "error".
    static inline const QString logLevelKey = QStringLiteral("mcp.serve.logLevel");
    // Set once a start has found the store configured or given it the built-in bundle:
    // a store emptied by its user later stays empty.
    static inline const QString firstStartDoneKey = QStringLiteral("mcp.serve.firstStartDone");
    // The level a word names, if it names one.
    static std::optional<MCPLogMessageType> logLevelFromWord(const QString &word);

    static inline const QString usageText = QStringLiteral(
        "Usage: kelvara serve [options]\n"
        "\n"
        "Runs Kelvara's MCP server without the window, for MCP clients and automated checks.\n"
        "It opens the store, imports the bundles asked for, then starts the server exactly as\n"
        "the Start button does: clear the log, save, export every tool, resource and prompt to\n"
        "the exported bundle and register it with the server, listen. Log lines and status\n"
        "messages are printed to standard output. SIGINT (Ctrl+C) or SIGTERM stops the server\n"
        "and exits with 0. A start that fails (port taken, a record that cannot be exported)\n"
        "exits with 1 and the reason on standard error; bad usage exits with 2.\n"
        "\n"
        "Options:\n"
        "  --port N          listen on port N and store it as the server's port, as the\n"
        "                    window's port field does (a number from -32768 to 32767)\n"
        "  --listen-all      listen on all interfaces (0.0.0.0) and store that choice\n"
        "  --loopback        listen on 127.0.0.1 only and store that choice\n"
        "  --allow-origin ORIGIN\n"
        "                    serve requests from web pages of ORIGIN (such as\n"
        "                    https://app.example:3000, or * for any) for this run, besides\n"
        "                    loopback origins and those allowed on the Server screen; may\n"
        "                    be given more than once\n"
        "  --require-token   ask every client for the bearer token (the default, on\n"
        "                    loopback as on all interfaces, unless turned off)\n"
        "  --no-token        do not ask for the bearer token for this run (every user\n"
        "                    of this computer, or anyone who reaches the port, can then\n"
        "                    call every tool)\n"
        "  --keep-alive      keep connections open for further requests (HTTP/1.1\n"
        "                    persistent connections) for this run\n"
        "  --log-level LEVEL print and keep log lines of LEVEL and above: debug, info,\n"
        "                    warning or error, and store that choice (info at first;\n"
        "                    debug shows every request and response in full)\n"
        "  --import DIR      import the configuration bundle in DIR (its Tools, Resources\n"
        "                    and Prompts folders) before starting; may be given more than once\n"
        "  --import-builtin  import the records of the built-in configuration bundle that the\n"
        "                    store lacks (matched by name and kind) before starting, so that\n"
        "                    giving it on every start adds nothing after the first\n"
        "  --stdio           serve MCP over standard input and output instead of HTTP\n"
        "                    (newline-delimited JSON-RPC, for MCP hosts that launch their\n"
        "                    servers as child processes): standard output carries the\n"
        "                    protocol alone, log lines and status messages go to standard\n"
        "                    error, and the end of standard input stops the server (exit 0)\n"
        "  --enable-plugin PATH\n"
        "                    enable the registered native plug-in whose file PATH is, for\n"
        "                    this run: naming the file here is your confirmation, as picking\n"
        "                    it in the window's enable wizard is. It must be registered\n"
        "                    already (Plugin Manager, or 'kelvara plugin add PATH'). May be\n"
        "                    given more than once. An enabled plug-in runs inside Kelvara's\n"
        "                    own process with your user rights\n"
        "  -h, --help        show this help and exit\n"
        "\n"
        "Without --port, --listen-all or --loopback the stored settings apply (port 8888 and\n"
        "loopback on a fresh store). A store that has never held a tool, resource or prompt\n"
        "gets the built-in bundle on its first start (unless that start imports a folder),\n"
        "which is said on standard error. --import appends records and never replaces them:\n"
        "importing the same folder on every start duplicates its records. With --stdio on a\n"
        "store that a running Kelvara holds, each message is relayed to that Kelvara's server\n"
        "(see 'kelvara mcp-config'). The store and the settings live under\n"
        "$XDG_DATA_HOME/Kelvara and $XDG_CONFIG_HOME/Kelvara. As in the window, a\n"
        "desktop notification follows the start and the stop when a notification service runs.\n");

    // Reads the arguments after "serve". On bad usage gives nothing and sets error.
    static std::optional<Options> parse(const QStringList &arguments, QString *error);

    // Runs the whole command on a QCoreApplication of its own; argv[1] is "serve".
    static int main(int argc, char **argv);
};
