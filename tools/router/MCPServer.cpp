#include "tools/router/MCPServer.h"

#include "base/MainThread.h"
#include "diagnostics/LogController.h"
#include "engine/bridge/MCPServerBridge.h"
#include "tools/builtin/FileAccessHandler.h"
#include "tools/builtin/Utf8TextFile.h"
#include "tools/plugins/ExternToolBridge.h"
#include "tools/plugins/PluginController.h"
#include "tools/router/BuiltinToolTable.h"
#include "tools/router/ResourceFileWatcher.h"
#include "tools/results/ToolError.h"
#include "tools/scripting/PluginScripting.h"
#include "tools/security/BookmarkController.h"
#include "tools/security/FileAccessPolicy.h"
#include "tools/security/ScopedSecurityAccess.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QPointer>
#include <QUrl>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const QString kArguments = QStringLiteral("arguments");
const QString kFilePath = QStringLiteral("file_path");
const QString kContent = QStringLiteral("content");

// The value under key when it is a non-empty string.
std::optional<QString> nonEmptyString(const QVariantMap &map, const QString &key)
{
    const QVariant value = map.value(key);
    if (value.typeId() != QMetaType::QString)
        return std::nullopt;
    QString text = value.toString();
    if (text.isEmpty())
        return std::nullopt;
    return text;
}

// A readable dump of a dictionary for the log.
QString describe(const QVariantMap &map)
{
    return QString::fromUtf8(QJsonDocument(QJsonObject::fromVariantMap(map)).toJson(QJsonDocument::Indented)).trimmed();
}

QJsonValue neutralValue(const QString &type)
{
    if (type == QLatin1String("boolean"))
        return false;
    if (type == QLatin1String("number") || type == QLatin1String("integer"))
        return 0;
    if (type == QLatin1String("array"))
        return QJsonArray();
    if (type == QLatin1String("object"))
        return QJsonObject();
    return QString();
}

}  // namespace

MCPServer::MCPServer(LogController *logger, MCPServerBridge *bridge, PluginController *toolController)
    : m_logger(logger),
      m_bridge(bridge),
      m_toolController(toolController),
      m_alive(std::make_shared<std::atomic<bool>>(true))
{
    // The bridge calls this on the main thread. Once the router is gone the lines go to
    // standard error instead of the log.
    QPointer<LogController> weakLogger(logger);
    m_bridge->setLogHandler([alive = m_alive, weakLogger](int type, int code, const QString &message) {
        if (alive->load() && weakLogger) {
            if (const LogController::LogHandler handler = weakLogger->logHandler())
                handler(static_cast<MCPLogMessageType>(type), code, message);
            return;
        }
        std::fputs(message.toLocal8Bit().constData(), stderr);
        std::fputc('\n', stderr);
        std::fflush(stderr);
    });
    m_fileWatcher = std::make_unique<ResourceFileWatcher>(bridge);
}

MCPServer::~MCPServer()
{
    m_alive->store(false);
}

void MCPServer::releaseBridge()
{
    m_fileWatcher.reset();
}

ExternToolBridge &MCPServer::httpBridge()
{
    std::call_once(m_httpBridgeOnce, [this] { m_httpBridge = std::make_unique<ExternToolBridge>(); });
    return *m_httpBridge;
}

JSONToolResult MCPServer::fail(const QString &message, MCPLogMessageType level)
{
    return ToolError::report(m_logger, message, -1, level);
}

// ---- tools ----

// The road of a script tool call, counted in changes of the data's form. Kelvara makes five
// between reading the request and writing the answer:
//   1. the request's bytes are parsed into the engine's JSONValue;
//   2. the bridge turns the arguments into a QJsonObject;
//   3. here the parameters become the JSON text that toolEntry receives;
//   4. the text toolEntry gives back is parsed once into Qt JSON values, which the
//      JSONToolResult keeps as they are;
//   5. the bridge turns the result object into a JSONValue, which the engine writes.
// What a script does with its text (JSON.parse, JSON.stringify) is its own affair, and what it
// reports to the client on the way (Kelvara.log, Kelvara.progress) goes beside this road,
// through the call's reporter. Routing
// reads the tool's configuration, never keys of the arguments, so a parameter may be called
// anything, `name` and `sessionId` included.
JSONToolResult MCPServer::handleToolCall(const QJsonObject &arguments, const JSONToolConfig &config,
                                         const ToolInvocation &call)
{
    JSONToolResult result = route(arguments, config, call);
    // Every result, failures included, carries the members its output schema promises.
    applyOutputSchema(result, config.outputSchema);
    return result;
}

JSONToolResult MCPServer::route(const QJsonObject &arguments, const JSONToolConfig &config, const ToolInvocation &call)
{
    // The engine checks most of these too; a caller that skips the engine does not.
    if (call.sessionId.isEmpty())
        return fail(QStringLiteral("Custom tool sessionId must not be empty"), MCPLogMessageType::Error);
    const QString &name = config.name;
    if (name.isEmpty())
        return fail(QStringLiteral("Custom tool name must not be empty"), MCPLogMessageType::Error);
    const QString &toolType = config.toolType;
    if (toolType.isEmpty())
        return fail(QStringLiteral("Custom tool type must not be empty"), MCPLogMessageType::Error);
    // Cleaned as the engine's definition has them: stored text may carry blanks and quotes.
    const QString execMethod = MCPServerBridge::cleanToken(config.execMethod);
    if (execMethod.isEmpty())
        return fail(QStringLiteral("Custom tool execMethod must not be empty"), MCPLogMessageType::Error);
    const QString execHandler = MCPServerBridge::cleanToken(config.execHandler);

    if (toolType == QLatin1String("BuiltinTool"))
        return callBuiltin(name, execMethod, arguments);
    if (toolType == QLatin1String("CustomTool")) {
        if (execHandler.isEmpty())
            return fail(QStringLiteral("Custom tool handler name must not be empty"), MCPLogMessageType::Error);
        return callPlugin(arguments, config, call);
    }
    if (toolType == QLatin1String("ScriptTool")) {
        if (execHandler.isEmpty())
            return fail(QStringLiteral("Script tool handler name must not be empty"), MCPLogMessageType::Error);
        return callScript(arguments, config, execHandler, call);
    }
    return fail(QStringLiteral("No handler for '%1::%2' of type '%3' available.").arg(name, execMethod, toolType),
                MCPLogMessageType::Error);
}

std::optional<QJsonObject> MCPServer::effectiveParameters(const QJsonObject &arguments)
{
    const auto it = arguments.constFind(kArguments);
    if (it == arguments.constEnd())
        return arguments;
    if (!it.value().isObject())
        return std::nullopt;
    return it.value().toObject();
}

JSONToolResult MCPServer::callBuiltin(const QString &name, const QString &execMethod, const QJsonObject &arguments)
{
    const std::optional<QJsonObject> effective = effectiveParameters(arguments);
    if (!effective)
        return fail(QStringLiteral("Tool arguments missing or invalid data type."), MCPLogMessageType::Error);

    const BuiltinToolMethod *method = BuiltinToolTable::find(execMethod);
    if (!method)
        return fail(QStringLiteral("Unknown built-in tool method '%1:%2'.").arg(name, execMethod),
                    MCPLogMessageType::Info);

    QVariantMap parameters = effective->toVariantMap();
    if (method->precheck != BuiltinToolMethod::Precheck::None) {
        const std::optional<QString> path = nonEmptyString(parameters, kFilePath);
        if (!path)
            return fail(QStringLiteral("Tool parameter 'file_path' must not be empty."), MCPLogMessageType::Info);
        // Blanks count as present here and are cut to nothing; the handler then says so.
        parameters.insert(kFilePath, path->trimmed());
        if (method->precheck == BuiltinToolMethod::Precheck::FilePathAndContent &&
            !nonEmptyString(parameters, kContent))
            return fail(QStringLiteral("Tool parameter 'content' must not be empty."), MCPLogMessageType::Info);
    }

    if (!method->run)
        return fail(QStringLiteral("Built-in tool '%1:%2' cannot run: its executor %3 is not part of this build of "
                                   "Kelvara yet.")
                        .arg(name, execMethod, method->executorName),
                    MCPLogMessageType::Info);

    if (method->thread == BuiltinToolMethod::Thread::Main) {
        // One at a time on the main thread; the worker waits for the answer.
        JSONToolResult result;
        MainThread::runBlocking([&] { result = method->run(parameters); });
        return result;
    }
    return method->run(parameters);
}

std::optional<QString> MCPServer::jsonText(const QJsonObject &value, JSONToolResult *failure)
{
    const QByteArray data = QJsonDocument(value).toJson(QJsonDocument::Indented);
    if (data.isEmpty()) {
        *failure = fail(QStringLiteral("Error converting data object to JSON"), MCPLogMessageType::Info);
        return std::nullopt;
    }
    return QString::fromUtf8(data);
}

JSONToolResult MCPServer::callPlugin(const QJsonObject &arguments, const JSONToolConfig &config,
                                     const ToolInvocation &call)
{
    if (config.pluginName.isEmpty())
        return fail(QStringLiteral("Pluing name missing in custom tool configuration"), MCPLogMessageType::Info);
    // A plug-in gets the whole arguments, an `arguments` member included; the session id
    // and the tool's name come as arguments of its entry function.
    JSONToolResult failure;
    const std::optional<QString> json = jsonText(arguments, &failure);
    if (!json)
        return failure;
    return runPlugin(call.sessionId, config.pluginName, *json);
}

JSONToolResult MCPServer::runPlugin(const QString &sessionId, const QString &pluginName, const QString &json)
{
    // The plug-in registry finds, loads and calls the plug-in, and shapes every failure.
    return m_toolController->callPlugin(sessionId, pluginName, json);
}

JSONToolResult MCPServer::callScript(const QJsonObject &arguments, const JSONToolConfig &config,
                                     const QString &execHandler, const ToolInvocation &call)
{
    if (config.scriptName.isEmpty())
        return fail(QStringLiteral("Script file name missing in custom tool configuration"), MCPLogMessageType::Info);
    // An `arguments` member that is no object does not stop a script: it gets everything.
    JSONToolResult failure;
    const std::optional<QString> json = jsonText(effectiveParameters(arguments).value_or(arguments), &failure);
    if (!json)
        return failure;
    return PluginScripting::callScript(call.sessionId, config.scriptName, execHandler, *json, call.reporter, config.name);
}

void MCPServer::applyOutputSchema(JSONToolResult &result, const JSONToolSchema &outputSchema)
{
    for (auto it = outputSchema.properties.cbegin(); it != outputSchema.properties.cend(); ++it) {
        if (!result.structuredContent.contains(it.key()))
            result.structuredContent.insert(it.key(), *AnyCodable::decode(neutralValue(it.value().type)));
    }
}

// ---- resources and prompts ----

bool MCPServer::isTextual(const QString &mimeType)
{
    const QString type = mimeType.section(QLatin1Char(';'), 0, 0).trimmed().toLower();
    static const QStringList textual = {
        QStringLiteral("application/json"), QStringLiteral("application/xml"), QStringLiteral("application/javascript"),
        QStringLiteral("application/x-yaml"), QStringLiteral("application/yaml"), QStringLiteral("application/toml"),
        QStringLiteral("application/x-sh"), QStringLiteral("application/sql"), QStringLiteral("image/svg+xml")};
    return type.isEmpty() || type.startsWith(QLatin1String("text/")) || type.endsWith(QLatin1String("+json")) ||
           type.endsWith(QLatin1String("+xml")) || textual.contains(type);
}

ResourceReading MCPServer::readBytes(const QString &path)
{
    ScopedSecurityAccess access(BookmarkController::shared(), path, FileAccessPolicy::Intent::read);
    const QFileInfo info(path);
    QString reason;
    if (!access.allowed())
        reason = QStringLiteral("Failed to read file: ") + access.denial();
    else if (!info.exists())
        reason = QStringLiteral("File '%1' does not exist.").arg(path);
    else if (!info.isFile())
        reason = QStringLiteral("'%1' is not a regular file.").arg(path);
    else if (info.size() > Utf8TextFile::maxReadBytes())
        reason = QStringLiteral("File '%1' is larger than %2 bytes.").arg(path).arg(Utf8TextFile::maxReadBytes());
    // Opened without waiting and looked at again: a FIFO put there since is refused, not
    // waited on.
    const int fd = reason.isEmpty() ? ::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY) : -1;
    const int openError = errno;
    struct stat st {};
    if (reason.isEmpty() && fd < 0)
        reason = QStringLiteral("File '%1' cannot be read: %2").arg(path, QString::fromLocal8Bit(std::strerror(openError)));
    else if (reason.isEmpty() && (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)))
        reason = QStringLiteral("'%1' is not a regular file.").arg(path);
    QFile file;
    if (reason.isEmpty() && !file.open(fd, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle))
        reason = QStringLiteral("File '%1' cannot be read: %2").arg(path, file.errorString());
    if (!reason.isEmpty()) {
        if (fd >= 0 && !file.isOpen())
            ::close(fd);
        fail(reason, MCPLogMessageType::Info);
        return ResourceReading::failure(reason);
    }
    return ResourceReading::ofBytes(file.read(Utf8TextFile::maxReadBytes()));
}

ResourceReading MCPServer::handleResource(const QVariantMap &resource)
{
    m_logger->log(QStringLiteral("[MCPServer] Resource handler:\n") + describe(resource), -1, MCPLogMessageType::Info);

    auto failText = [this](const QString &message) {
        fail(message, MCPLogMessageType::Info);
        return ResourceReading::failure(message);
    };
    const std::optional<QString> uri = nonEmptyString(resource, QStringLiteral("uri"));
    if (!uri)
        return failText(QStringLiteral("Resource URI cannot be empty"));
    if (!nonEmptyString(resource, QStringLiteral("name")))
        return failText(QStringLiteral("Resource name must not be empty"));
    const std::optional<QString> type = nonEmptyString(resource, QStringLiteral("type"));
    if (!type)
        return failText(QStringLiteral("Resource type must not be empty"));
    if (!nonEmptyString(resource, QStringLiteral("mimeType")))
        return failText(QStringLiteral("Resource mimeType must not be empty"));

    const QString cannotHandle = QStringLiteral("Error: Failed to handle: '%1' '%2'").arg(*type, *uri);

    // A template is read as the file its filled-in URI names.
    if (*type == QLatin1String("file") || *type == QLatin1String("template")) {
        // A file: URI names a local path; anything else is taken as a path as it stands.
        const QUrl url(*uri);
        const QString path = url.isLocalFile() ? url.toLocalFile() : *uri;
        const QString mimeType = resource.value(QStringLiteral("mimeType")).toString();
        if (!isTextual(mimeType))
            return readBytes(path);
        const JSONToolResult read = FileAccessHandler::shared()->readFile(QVariantMap{{kFilePath, path}});
        QString text;
        for (const JSONToolContent &item : read.content) {
            // A resource said to be text that holds an image is not given as empty text.
            if (item.type != QLatin1String("text"))
                return failText(QStringLiteral("'%1' is an image, not %2 text.").arg(path, mimeType));
            text += item.text;
        }
        if (read.structuredContent.value(QStringLiteral("success")).toJson() == QJsonValue(false))
            return failText(text);
        return text;
    }

    if (*type == QLatin1String("link") || *type == QLatin1String("resourceLink") ||
        *type == QLatin1String("resource")) {
        const QString answer = httpBridge().httpGet(*uri, QStringLiteral("{}"));
        QJsonParseError parseError;
        const QJsonDocument document = QJsonDocument::fromJson(answer.toUtf8(), &parseError);
        if (parseError.error != QJsonParseError::NoError)
            return failText(QStringLiteral("Failed to parse response."));
        const QJsonObject reply = document.object();
        // No answer at all (no connection, a time-out): the client hears why, not an
        // empty text. An answer with an error status still has its body as the text.
        if (reply.value(QStringLiteral("success")) == QJsonValue(false) &&
            reply.value(QStringLiteral("statusCode")).toInt() == 0) {
            const QString reason = reply.value(QStringLiteral("error")).toString();
            return failText(QStringLiteral("Failed to fetch %1: %2").arg(*uri, reason.isEmpty() ? QStringLiteral("no answer") : reason));
        }
        const QJsonValue body = reply.value(QStringLiteral("body"));
        if (!document.isObject() || !body.isString())
            return failText(cannotHandle);
        return body.toString();
    }

    return failText(cannotHandle);
}

ResourceReading MCPServer::readScriptResource(const QVariantMap &resource, const QString &script)
{
    const QString name = resource.value(QStringLiteral("name")).toString();
    JSONToolResult failure;
    const std::optional<QString> json =
        jsonText(QJsonObject::fromVariantMap(resource.value(QStringLiteral("variables")).toMap()), &failure);
    if (!json)
        return ResourceReading::failure(failure.content.value(0).text);
    const JSONToolResult result =
        PluginScripting::callScript(QString(), script, QStringLiteral("readResource"), *json, nullptr, name);
    QString text;
    for (const JSONToolContent &item : result.content) {
        const QJsonObject embedded = item.members.value(QStringLiteral("resource")).toObject();
        const QJsonValue data = item.members.contains(QStringLiteral("data")) ? item.members.value(QStringLiteral("data"))
                                                                              : embedded.value(QStringLiteral("blob"));
        if (data.isString())
            return ResourceReading::ofBytes(QByteArray::fromBase64(data.toString().toLatin1()));
        text += item.type == QLatin1String("text") ? item.text : embedded.value(QStringLiteral("text")).toString();
    }
    if (result.structuredContent.value(QStringLiteral("success")).toJson() == QJsonValue(false)) {
        fail(QStringLiteral("The script of resource '%1' failed: %2").arg(name, text), MCPLogMessageType::Info);
        return ResourceReading::failure(text);
    }
    return text;
}

QStringList MCPServer::completeWithScript(const QString &script, const QString &argument, const QString &typed,
                                          const QVariantMap &given)
{
    const QJsonObject params{{QStringLiteral("argument"), argument},
                             {QStringLiteral("value"), typed},
                             {QStringLiteral("arguments"), QJsonObject::fromVariantMap(given)}};
    JSONToolResult failure;
    const std::optional<QString> json = jsonText(params, &failure);
    if (!json)
        return {};
    const JSONToolResult result = PluginScripting::callScript(QString(), script, QStringLiteral("complete"), *json);
    QString text;
    for (const JSONToolContent &item : result.content)
        text += item.text;
    if (result.structuredContent.value(QStringLiteral("success")).toJson() == QJsonValue(false)) {
        fail(QStringLiteral("The completion script '%1' failed: %2").arg(script, text), MCPLogMessageType::Info);
        return {};
    }
    QStringList values;
    const QJsonDocument document = QJsonDocument::fromJson(text.toUtf8());
    if (document.isArray()) {
        for (const QJsonValue &value : document.array())
            values.append(value.isString() ? value.toString()
                                           : QString::fromUtf8(QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact))
                                                 .mid(1)
                                                 .chopped(1));
        return values;
    }
    for (const QString &line : text.split(QLatin1Char('\n')))
        if (!line.trimmed().isEmpty())
            values.append(line.trimmed());
    return values;
}

QString MCPServer::handlePrompt(const QVariantMap &params)
{
    m_logger->log(QStringLiteral("[MCPServer] Prompt handler called: ") + describe(params), -1,
                  MCPLogMessageType::Info);
    return promptNotImplementedText;
}
