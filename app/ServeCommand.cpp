#include "app/ServeCommand.h"

#include "app/ApplicationServices.h"
#include "app/CommandLineArguments.h"
#include "app/ChildProcessPluginInspector.h"
#include "app/config/ClientConfiguration.h"
#include "app/PluginCommand.h"
#include "app/StdioRelay.h"

#include "base/UserDefaults.h"
#include "diagnostics/LogController.h"
#include "engine/MCPServer.h"
#include "engine/MCPStdioTransport.h"
#include "engine/bridge/MCPServerBridge.h"
#include "engine/bridge/MainThreadQueue.h"
#include "diagnostics/LogEntry.h"
#include "store/ConfigurationController.h"
#include "store/PersistenceController.h"
#include "store/ServerAccessSettings.h"
#include "store/ServerConfig.h"
#include "app/config/ServerConfigController.h"
#include "tools/plugins/PluginController.h"
#include "tools/plugins/PluginInspector.h"
#include "tools/router/MCPServer.h"
#include "tools/scripting/ScriptThreadPool.h"
#include "tools/scripting/ScriptWatchdog.h"

#include <QCoreApplication>
#include <QMetaObject>
#include <QFileInfo>
#include <QSocketNotifier>
#include <QThreadPool>
#include <QTimer>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstdio>
#include <sys/socket.h>
#include <unistd.h>

namespace {

int g_signalPipe[2] = {-1, -1};
// Where status messages and log lines go: standard output, or standard error when the
// protocol itself has standard output (--stdio).
std::FILE *g_report = stdout;

void onSignal(int)
{
    const char byte = 1;
    // Only async-signal-safe work here: the event loop picks the byte up.
    [[maybe_unused]] const ssize_t written = ::write(g_signalPipe[1], &byte, 1);
}

// Set once a write to standard output has failed (`kelvara serve | head -n 3`): the server
// goes on serving, and prints nothing more there.
bool g_stdoutClosed = false;

void noteFailure(std::FILE *stream)
{
    if (stream == stdout && std::ferror(stream)) {
        g_stdoutClosed = true;
        std::clearerr(stream);
    }
}

void writeLine(std::FILE *stream, const QString &line)
{
    if (stream == stdout && g_stdoutClosed)
        return;
    const QByteArray bytes = (line + QLatin1Char('\n')).toLocal8Bit();
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stream);
    noteFailure(stream);
}

void flushStream(std::FILE *stream)
{
    if (stream == stdout && g_stdoutClosed)
        return;
    std::fflush(stream);
    noteFailure(stream);
}

void printLine(std::FILE *stream, const QString &line)
{
    writeLine(stream, line);
    flushStream(stream);
}

// A busy server logs dozens of lines a request; they reach the terminal together once the
// main loop has handled the batch they came in, instead of one write each.
void printLogLine(const QString &line)
{
    static bool flushPending = false;
    writeLine(g_report, line);
    if (flushPending)
        return;
    flushPending = true;
    QTimer::singleShot(0, qApp, [] {
        flushPending = false;
        flushStream(g_report);
    });
}

bool installSignalHandlers()
{
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, g_signalPipe) != 0)
        return false;
    struct sigaction action = {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    return ::sigaction(SIGINT, &action, nullptr) == 0 && ::sigaction(SIGTERM, &action, nullptr) == 0;
}

// Drives one run: start, then wait for a signal to stop; the exit code comes from how it ended.
class ServeSession : public QObject {
public:
    ServeSession(ServerConfigController *controller, bool stdio, QObject *parent = nullptr)
        : QObject(parent), m_controller(controller), m_stdio(stdio)
    {
        connect(controller, &ServerConfigController::serverStatusMessageChanged, this, &ServeSession::statusChanged);
        connect(controller, &AbstractController::shouldShowAlertChanged, this, [this] {
            // The failure of a start is printed once, from its status; other alerts here.
            if (m_controller->shouldShowAlert() && !m_controller->alertMessage().startsWith(
                                                       ServerConfigController::statusFailedPrefix))
                printLine(stderr, m_controller->alertTitle() + QStringLiteral(": ") + m_controller->alertMessage());
            m_controller->setShouldShowAlert(false);
        });
    }

    bool stopRequested() const { return m_stopRequested; }

    void signalled()
    {
        if (m_stopRequested)
            return;
        m_stopRequested = true;
        // A script stuck in a loop would hold its worker, and the stop waits for workers.
        ScriptWatchdog::terminateAll();
        if (m_controller->isServerRunning())
            m_controller->stop();
        else if (!m_controller->isStarting())
            finish(0);
        // While starting, the stop follows once the start has ended.
    }

private:
    void statusChanged()
    {
        const QString status = m_controller->serverStatusMessage();
        printLine(g_report, status);
        if (status == ServerConfigController::statusRunning) {
            if (m_stdio) {
                printLine(g_report, QStringLiteral("Serving on standard input and output (the end of input, SIGINT or "
                                                   "SIGTERM stops the server)"));
            } else {
                const QString host = ClientConfiguration::clientHost(m_controller->listenAtAll());
                printLine(g_report, QStringLiteral("Serving on http://%1:%2/ (SIGINT or SIGTERM stops the server)")
                                      .arg(host)
                                      .arg(m_controller->listeningPort()));
                // The token goes where a user reads it, never into a log file of standard output.
                if (m_controller->tokenRequired())
                    printLine(stderr, QStringLiteral("Clients must send the header: Authorization: Bearer %1")
                                          .arg(m_controller->accessToken()));
                else
                    printLine(stderr, QStringLiteral("Warning: no token is asked for. ") +
                                          (m_controller->listenAtAll() ? ServerAccessSettings::tokenOffWarning
                                                                       : ServerAccessSettings::loopbackTokenOffWarning));
                printLine(stderr, QStringLiteral("Client configuration: ") + m_controller->clientConfiguration());
            }
            if (m_stopRequested)
                m_controller->stop();
        } else if (status.startsWith(ServerConfigController::statusFailedPrefix)) {
            printLine(stderr, status);
            for (const QString &detail : m_controller->startFailureDetails())
                printLine(stderr, detail);
            finish(1);
        } else if (status == ServerConfigController::statusStopped && m_stopRequested) {
            finish(0);
        }
    }

    // Waits for the engine's stop on the thread pool, lets queued log lines through, and ends.
    // A stop held up by a handler that never returns is not waited for past the limit: main
    // then waits, bounded too, and leaves without the objects' teardown.
    void finish(int code)
    {
        auto *poll = new QTimer(this);
        poll->setInterval(20);
        const auto deadline = std::chrono::steady_clock::now() + ServeCommand::stopWaitLimit;
        connect(poll, &QTimer::timeout, this, [poll, code, deadline] {
            if (QThreadPool::globalInstance()->activeThreadCount() > 0 && std::chrono::steady_clock::now() < deadline)
                return;
            poll->stop();
            QTimer::singleShot(0, qApp, [code] { QCoreApplication::exit(code); });
        });
        poll->start();
    }

    ServerConfigController *m_controller;
    const bool m_stdio;
    bool m_stopRequested = false;
};

}  // namespace

std::optional<MCPLogMessageType> ServeCommand::logLevelFromWord(const QString &word)
{
    const QString lower = word.trimmed().toLower();
    if (lower == QLatin1String("debug"))
        return MCPLogMessageType::Debug;
    if (lower == QLatin1String("info"))
        return MCPLogMessageType::Info;
    if (lower == QLatin1String("warning"))
        return MCPLogMessageType::Warning;
    if (lower == QLatin1String("error"))
        return MCPLogMessageType::Error;
    return std::nullopt;
}

std::optional<ServeCommand::Options> ServeCommand::parse(const QStringList &arguments, QString *error)
{
    Options options;
    auto fail = [error](const QString &message) -> std::optional<Options> {
        if (error)
            *error = message;
        return std::nullopt;
    };
    for (CommandLineArguments args(arguments); args.next();) {
        const QString &argument = args.current();
        if (args.is(QLatin1String("-h")) || args.is(QLatin1String("--help"))) {
            options.help = true;
        } else if (args.isOption(QStringLiteral("--port"))) {
            const auto value = args.value(QStringLiteral("--port"));
            if (!value)
                return fail(QStringLiteral("--port needs a number"));
            options.port = *value;
        } else if (args.is(QLatin1String("--listen-all"))) {
            options.listenAtAll = true;
        } else if (args.is(QLatin1String("--loopback"))) {
            options.listenAtAll = false;
        } else if (args.isOption(QStringLiteral("--import"))) {
            const auto value = args.value(QStringLiteral("--import"));
            if (!value || value->isEmpty())
                return fail(QStringLiteral("--import needs a folder"));
            options.importFolders.append(*value);
        } else if (args.isOption(QStringLiteral("--allow-origin"))) {
            const auto value = args.value(QStringLiteral("--allow-origin"));
            if (!value || value->isEmpty())
                return fail(QStringLiteral("--allow-origin needs an origin"));
            if (const std::optional<QString> problem = ServerAccessSettings::originProblem(*value))
                return fail(*problem);
            options.allowOrigins.append(*value);
        } else if (args.is(QLatin1String("--require-token"))) {
            options.requireToken = true;
        } else if (args.is(QLatin1String("--no-token"))) {
            options.requireToken = false;
        } else if (args.isOption(QStringLiteral("--log-level"))) {
            const auto value = args.value(QStringLiteral("--log-level"));
            if (!value || !logLevelFromWord(*value))
                return fail(QStringLiteral("--log-level needs one of debug, info, warning, error"));
            options.logLevel = value->toLower();
        } else if (args.is(QLatin1String("--keep-alive"))) {
            options.keepAlive = true;
        } else if (args.is(QLatin1String("--stdio"))) {
            options.stdio = true;
        } else if (args.is(QLatin1String("--import-builtin"))) {
            options.importBuiltin = true;
        } else if (args.isOption(QStringLiteral("--enable-plugin"))) {
            const auto value = args.value(QStringLiteral("--enable-plugin"));
            if (!value || value->isEmpty())
                return fail(QStringLiteral("--enable-plugin needs a plugin file"));
            options.enablePlugins.append(*value);
        } else {
            return fail(QStringLiteral("unknown argument '%1'").arg(argument));
        }
    }
    if (options.stdio && (!options.allowOrigins.isEmpty() || options.requireToken || options.keepAlive))
        return fail(QStringLiteral("--stdio serves no web pages and no network: leave out --allow-origin, --require-token, "
                                   "--no-token and --keep-alive"));
    if (options.stdio && (options.port || options.listenAtAll))
        return fail(QStringLiteral("--stdio does not listen on a port: leave out --port, --listen-all and --loopback"));
    return options;
}

int ServeCommand::main(int argc, char **argv)
{
    // A reader of standard output that goes away (a pipe into head) must not end the server.
    ::signal(SIGPIPE, SIG_IGN);
    QCoreApplication app(argc, argv);
    app.setApplicationName(QStringLiteral("Kelvara"));

    QString usageError;
    const std::optional<Options> options = parse(app.arguments().mid(2), &usageError);
    if (!options) {
        printLine(stderr, QStringLiteral("kelvara serve: ") + usageError);
        printLine(stderr, QStringLiteral("Try 'kelvara serve --help'."));
        return 2;
    }
    if (options->help) {
        std::fputs(usageText.toLocal8Bit().constData(), stdout);
        return 0;
    }
    if (options->stdio)
        g_report = stderr;
    if (options->port && !ServerConfigController::parsePort(*options->port)) {
        printLine(stderr, QStringLiteral("kelvara serve: ") + ServerConfigController::invalidPortText);
        return 2;
    }
    for (const QString &folder : options->importFolders) {
        if (!QFileInfo(folder).isDir()) {
            printLine(stderr, QStringLiteral("kelvara serve: '%1' is not a folder").arg(folder));
            return 2;
        }
    }

    ApplicationServices services;
    PersistenceController *store = services.store();
    // The window (or another serve) has the store: a client that launched us talks to that
    // instance's server instead of getting nothing.
    if (options->stdio && store->loadError() && store->lockHolder()) {
        if (!options->importFolders.isEmpty() || options->importBuiltin || !options->enablePlugins.isEmpty() ||
            options->logLevel)
            printLine(stderr, QStringLiteral("kelvara serve: Kelvara already runs with this store: --import, "
                                             "--import-builtin, --enable-plugin and --log-level are left to it"));
        return StdioRelay::run(*store->lockHolder(), stdin, stdout, stderr);
    }
    if (const std::optional<QString> failure = store->loadError()) {
        printLine(stderr, QStringLiteral("kelvara serve: the store '%1' could not be opened: %2")
                              .arg(store->storePath(), *failure));
        return 1;
    }

    // Every log line of the chosen level and above is printed as the log export writes it,
    // and kept in the log as well. Below Debug the engine formats no bodies at all.
    if (options->logLevel)
        UserDefaults::standard()->setValue(logLevelKey, *options->logLevel);
    const MCPLogMessageType level =
        logLevelFromWord(UserDefaults::standard()->value(logLevelKey).toString()).value_or(MCPLogMessageType::Info);
    LogController *logger = services.log();
    logger->setMinimumLevel(level);
    services.bridge().setLogLevel(static_cast<int>(level));
    const LogController::LogHandler keep = logger->logHandler();
    logger->setLogHandler([keep](MCPLogMessageType level, int code, const QString &message) {
        printLogLine(LogEntry::make(message, code, level).exportLine());
        if (keep)
            keep(level, code, message);
    });

    ConfigurationController *configuration = services.configuration();
    auto report = [](const QString &source, const Result<ImportResult> &result) {
        if (!result) {
            printLine(stderr, QStringLiteral("kelvara serve: import of %1 failed: %2").arg(source, result.error().description));
            return false;
        }
        printLine(g_report, ConfigurationController::importSummary(*result) + QStringLiteral(" (") + source +
                              QLatin1Char(')'));
        for (const QString &line : result->allErrors())
            printLine(stderr, line);
        return true;
    };
    // A client that launches serve on a store nobody has set up yet gets the built-in tools
    // rather than none; --import-builtin in its arguments adds nothing the second time.
    // A start that imports a folder of the user's brings its own configuration.
    const bool firstStart = !options->importBuiltin && options->importFolders.isEmpty() &&
                            !UserDefaults::standard()->value(firstStartDoneKey).toBool() &&
                            configuration->holdsNoRecords();
    if (firstStart)
        printLine(stderr, QStringLiteral("kelvara serve: the store holds no configuration yet: importing the built-in "
                                         "tools, resources and prompts (once)"));
    if (options->importBuiltin || firstStart) {
        if (!report(configuration->builtinRoot(),
                    configuration->importBuiltinConfiguration(nullptr, ConfigurationController::ImportMode::onlyMissing)))
            return 1;
    }
    UserDefaults::standard()->setValue(firstStartDoneKey, true);
    for (const QString &folder : options->importFolders) {
        if (!report(folder, configuration->importConfiguration(folder)))
            return 1;
    }

    // Every plug-in starts disabled; naming its file here is the user's confirmation. Which
    // registered plug-in a file is, is read in a child process, as `kelvara plugin add` does.
    static ChildProcessPluginInspector inspector(QStringLiteral("/proc/self/exe"));
    if (!options->enablePlugins.isEmpty() && !PluginInspector::shared())
        PluginInspector::setShared(&inspector);
    for (const QString &file : options->enablePlugins) {
        QString reason;
        const std::optional<QString> name = PluginCommand::enableForRun(services.plugins(), file, &reason);
        if (!name) {
            printLine(stderr, QStringLiteral("kelvara serve: ") + reason);
            return 1;
        }
        printLine(g_report, QStringLiteral("Enabled plugin: %1 (%2)").arg(*name, file));
    }

    if (!installSignalHandlers()) {
        printLine(stderr, QStringLiteral("kelvara serve: cannot install the signal handlers"));
        return 1;
    }
    // The controller queues its first sync now; the options are applied after it, so that
    // the sync's reading of the stored flag does not undo --listen-all or --loopback.
    ServerConfigController &controller = *services.server();
    ServeSession session(&controller, options->stdio);
    if (options->stdio) {
        // The end of standard input stops the server as a signal does.
        auto transport = std::make_unique<MCP::MCPStdioTransport>();
        transport->setClosedHandler(
            [&session] { QMetaObject::invokeMethod(&session, [&session] { session.signalled(); }, Qt::QueuedConnection); });
        services.bridge().setTransport(std::move(transport));
    }
    QSocketNotifier notifier(g_signalPipe[0], QSocketNotifier::Read);
    QObject::connect(&notifier, &QSocketNotifier::activated, &session, [&session] {
        char byte = 0;
        [[maybe_unused]] const ssize_t got = ::read(g_signalPipe[0], &byte, 1);
        session.signalled();
    });

    const Options chosen = *options;
    QMetaObject::invokeMethod(
        &controller,
        [&controller, &session, chosen] {
            if (session.stopRequested())
                return;
            if (!controller.serverConfig()) {
                printLine(stderr,
                          QStringLiteral("kelvara serve: the server configuration could not be read from the store"));
                QCoreApplication::exit(1);
                return;
            }
            if (chosen.port)
                controller.setPort(*chosen.port);
            if (chosen.listenAtAll)
                controller.setListenAtAll(*chosen.listenAtAll);
            controller.setRunOptions(chosen.allowOrigins, chosen.requireToken,
                                     chosen.keepAlive ? std::optional<bool>(true) : std::nullopt);
            // A chosen bind flag is saved by the start even when the store has nothing pending.
            controller.updateUnsaved(chosen.listenAtAll.has_value());
            // The AI Chat's integrations limit what is served here as in the window.
            if (const QString limit = controller.toolLimitNotice(); !limit.isEmpty())
                printLine(stderr, QStringLiteral("kelvara serve: ") + limit);
            controller.start();
        },
        Qt::QueuedConnection);
    const int code = app.exec();
    // How far the main thread fell behind the workers' log lines: the figure to watch
    // under load (scripts/bench reads it).
    if (level >= MCPLogMessageType::Info)
        printLine(stderr, QStringLiteral("kelvara serve: log lines waited at most %1 ms for the main thread")
                              .arg(MainThreadQueue::logLines().longestWait().count() / 1000.0, 0, 'f', 1));
    ::signal(SIGINT, SIG_DFL);
    ::signal(SIGTERM, SIG_DFL);
    // Before Qt's own teardown: no request reaches the engine any more, running scripts end,
    // and a line a late worker still logs goes nowhere instead of to objects of a main loop
    // that is gone.
    ScriptWatchdog::terminateAll();
    if (!services.finish(stopWaitLimit)) {
        // A handler that does not return (a plug-in stuck in a call) still uses the objects
        // that the normal exit would destroy under it: leave without destroying them.
        printLine(stderr, QStringLiteral("kelvara serve: a call was still running %1 s after the stop; exiting without it")
                              .arg(std::chrono::duration_cast<std::chrono::seconds>(stopWaitLimit).count()));
        flushStream(stdout);
        std::_Exit(code);
    }
    // The script threads end now, each releasing its own context and group, while every
    // global they use is still whole.
    ScriptThreadPool::shared().stop();
    logger->setLogHandler(nullptr);
    return code;
}
