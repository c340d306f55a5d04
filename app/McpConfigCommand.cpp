#include "app/McpConfigCommand.h"

#include "app/CommandLineArguments.h"
#include "app/config/ClientConfiguration.h"
#include "app/config/RunningServer.h"
#include "app/config/ServerConfigController.h"
#include "base/UserDefaults.h"
#include "store/PersistenceController.h"
#include "store/ServerAccessSettings.h"
#include "store/ServerConfig.h"
#include "store/ServerQueryService.h"

#include <QCoreApplication>
#include <QJsonDocument>

#include <csignal>
#include <cstdio>

namespace {

void printError(const QString &text)
{
    std::fputs((QStringLiteral("kelvara mcp-config: ") + text + QLatin1Char('\n')).toLocal8Bit().constData(), stderr);
}

// The port a client reaches the server at: the server that runs, else the stored port,
// else the port a fresh store starts with.
int serverPort()
{
    if (const std::optional<RunningServer::Record> running = RunningServer::read();
        running && ::kill(pid_t(running->pid), 0) == 0)
        return running->port;
    PersistenceController *store = PersistenceController::shared();
    if (const std::optional<QString> failure = store->loadError()) {
        printError(QStringLiteral("the store could not be opened (%1), so its port is not known: naming 8888 "
                                  "(--port names another)")
                       .arg(*failure));
        return 8888;
    }
    if (const ServerConfig *config = ServerQueryService::fetchServerConfig(store->viewContext()).valueOr(nullptr))
        return quint16(config->port());
    return 8888;
}

}  // namespace

std::optional<McpConfigCommand::Options> McpConfigCommand::parse(const QStringList &arguments, QString *error)
{
    Options options;
    bool stdio = false;
    bool typeGiven = false;
    auto fail = [error](const QString &message) -> std::optional<Options> {
        if (error)
            *error = message;
        return std::nullopt;
    };
    for (CommandLineArguments args(arguments); args.next();) {
        const QString &argument = args.current();
        if (args.is(QLatin1String("-h")) || args.is(QLatin1String("--help"))) {
            options.help = true;
        } else if (args.is(QLatin1String("--stdio"))) {
            stdio = true;
        } else if (args.is(QLatin1String("--http"))) {
            options.http = true;
        } else if (args.is(QLatin1String("--entry"))) {
            options.entryOnly = true;
        } else if (args.isOption(QStringLiteral("--type"))) {
            const auto value = args.value(QStringLiteral("--type"));
            if (!value || (*value != QLatin1String("http") && *value != QLatin1String("streamable-http")))
                return fail(QStringLiteral("--type needs http or streamable-http"));
            options.type = *value;
            typeGiven = true;
        } else if (args.isOption(QStringLiteral("--port"))) {
            const auto value = args.value(QStringLiteral("--port"));
            bool ok = false;
            const int port = value ? value->toInt(&ok) : 0;
            if (!ok || port < 1 || port > 65535)
                return fail(QStringLiteral("--port needs a number from 1 to 65535"));
            options.port = port;
        } else {
            return fail(QStringLiteral("unknown argument '%1'").arg(argument));
        }
    }
    if (stdio && options.http)
        return fail(QStringLiteral("--stdio and --http exclude each other"));
    if (!options.http && (options.port || typeGiven))
        return fail(QStringLiteral("--type and --port describe the HTTP form: add --http"));
    return options;
}

int McpConfigCommand::main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    app.setApplicationName(QStringLiteral("Kelvara"));
    QString usageError;
    const std::optional<Options> options = parse(app.arguments().mid(2), &usageError);
    if (!options) {
        printError(usageError);
        std::fputs("Try 'kelvara mcp-config --help'.\n", stderr);
        return 2;
    }
    if (options->help) {
        std::fputs(usageText.toLocal8Bit().constData(), stdout);
        return 0;
    }
    QJsonObject entry;
    if (options->http) {
        const bool listenAtAll = UserDefaults::standard()->value(ServerConfigController::listenAllDefaultsKey).toBool();
        const bool token = ServerAccessSettings::tokenRequired(listenAtAll);
        entry = ClientConfiguration::httpEntry(ClientConfiguration::clientHost(listenAtAll),
                                               options->port.value_or(serverPort()),
                                               token ? std::optional<QString>(ServerAccessSettings::token()) : std::nullopt,
                                               options->type);
    } else {
        entry = ClientConfiguration::stdioEntry(QCoreApplication::applicationFilePath());
    }
    const QJsonObject printed = options->entryOnly ? entry : ClientConfiguration::document(entry);
    std::fputs(QJsonDocument(printed).toJson(QJsonDocument::Indented).constData(), stdout);
    return std::fflush(stdout) == 0 && !std::ferror(stdout) ? 0 : 1;
}
