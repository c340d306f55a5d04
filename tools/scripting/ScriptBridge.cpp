#include "tools/scripting/ScriptBridge.h"

#include "base/AtomicFile.h"
#include "engine/CancellationToken.h"
#include "base/SystemLog.h"
#include "diagnostics/LogController.h"
#include "tools/builtin/Utf8TextFile.h"
#include "tools/http/Utf8Text.h"
#include "tools/http/HttpClient.h"
#include "tools/results/ToolError.h"
#include "tools/scripting/ConfigurationLookup.h"
#include "tools/scripting/ScriptContext.h"
#include "tools/scripting/ScriptProcess.h"
#include "tools/scripting/ScriptValue.h"
#include "tools/scripting/ScriptWatchdog.h"
#include "tools/security/BookmarkController.h"
#include "tools/security/FileAccessPolicy.h"
#include "tools/security/ScopedSecurityAccess.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStandardPaths>

#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <filesystem>
#include <set>
#include <system_error>

namespace {

namespace fs = std::filesystem;

fs::path nativePath(const QString &path)
{
    return fs::path(QFile::encodeName(path).toStdString());
}

QString systemDescription(int error)
{
    return QString::fromLocal8Bit(std::strerror(error));
}

// One line of JSON for the log (the engine's own form spreads over lines).
void appendCompact(std::string &out, const MCP::JSONValue &value)
{
    switch (value.type()) {
    case MCP::JSONValue::Type::Array: {
        out += '[';
        bool first = true;
        for (const MCP::JSONValue &item : value.asArray()) {
            out += first ? "" : ",";
            first = false;
            appendCompact(out, item);
        }
        out += ']';
        return;
    }
    case MCP::JSONValue::Type::Object: {
        out += '{';
        bool first = true;
        for (const auto &[key, member] : value.asObject()) {
            out += first ? "\"" : ",\"";
            first = false;
            MCP::JSONValue::appendEscaped(out, key);
            out += "\":";
            appendCompact(out, member);
        }
        out += '}';
        return;
    }
    default:
        value.appendTo(out, 0);
    }
}

QString itemName(const QString &path)
{
    const QString name = QFileInfo(path).fileName();
    return name.isEmpty() ? path : name;
}

// The JSON text of a stored record, or "" with the reason logged.
QString configJSON(LogController *logger, const QString &kind, const QString &name,
                   ConfigurationLookup::Answer (ConfigurationLookup::*lookUp)(const QString &))
{
    ConfigurationLookup *lookup = ConfigurationLookup::shared();
    const ConfigurationLookup::Answer answer =
        lookup ? (lookup->*lookUp)(name)
               : ConfigurationLookup::Answer(AppError{QStringLiteral("ConfigurationLookup"), 1, QStringLiteral("no store is open")});
    if (!answer) {
        logger->log(QStringLiteral("[Script] Fetch error: ") + answer.error().description, -40110, MCPLogMessageType::Error);
        return QStringLiteral("");
    }
    if (!*answer) {
        logger->log(QStringLiteral("[Script] ") + kind + QStringLiteral(" ") + name + QStringLiteral(" not found"),
                    -40110, MCPLogMessageType::Error);
        return QStringLiteral("");
    }
    return **answer;
}

}  // namespace

ScriptBridge::ScriptBridge(const QString &sid)
    : m_sid(sid), m_logger(LogController::shared()), m_security(BookmarkController::shared())
{
}

ScriptBridge::~ScriptBridge() = default;

std::optional<JSONToolResult> ScriptBridge::toolResult() const
{
    std::lock_guard lock(m_resultMutex);
    return m_toolResult;
}

QString ScriptBridge::resolvedPath(const QString &path) const
{
    // An empty path stays empty: it names nothing, and the methods say so.
    if (path.isEmpty() || m_moduleDir.isEmpty() || QDir::isAbsolutePath(path))
        return path;
    return QDir::cleanPath(m_moduleDir + QLatin1Char('/') + path);
}

void ScriptBridge::setReporter(std::shared_ptr<MCP::CallReporter> reporter, const QString &loggerName)
{
    m_reporter = std::move(reporter);
    m_loggerName = loggerName.toStdString();
}

void ScriptBridge::log(const QString &level, int code, const QString &message)
{
    m_logger->log(message, code, mcpLogMessageTypeFromWord(level));
}

const QStringList &ScriptBridge::clientLogLevels()
{
    static const QStringList levels = {QStringLiteral("debug"),   QStringLiteral("info"),
                                       QStringLiteral("notice"),  QStringLiteral("warning"),
                                       QStringLiteral("error"),   QStringLiteral("critical"),
                                       QStringLiteral("alert"),   QStringLiteral("emergency")};
    return levels;
}

bool ScriptBridge::callEnded() const
{
    if (const MCP::CancellationToken *token = MCP::CancellationToken::current(); token && token->isCancelled())
        return true;
    const ScriptWatchdog *watchdog = ScriptWatchdog::current();
    return watchdog && watchdog->fired();
}

MCP::JSONValue ScriptBridge::clientLogData(const QString &text, const std::optional<MCP::JSONValue> &data)
{
    if (!data)
        return MCP::JSONValue(text.toStdString());
    if (text.isEmpty())
        return *data;
    // Clients show an object's members; the text leads as its "message".
    MCP::JSONValue::ObjectType object;
    if (data->isObject())
        object = data->asObject();
    else
        object["data"] = *data;
    object["message"] = MCP::JSONValue(text.toStdString());
    return MCP::JSONValue(std::move(object));
}

bool ScriptBridge::logToClient(const QString &level, const QString &text, const std::optional<MCP::JSONValue> &data)
{
    if (!clientLogLevels().contains(level))
        return false;
    if (callEnded())
        return true;
    if (m_reporter) {
        m_reporter->log(level.toStdString(), clientLogData(text, data), m_loggerName);
        return true;
    }
    static const QHash<QString, MCPLogMessageType> kinds = {
        {QStringLiteral("debug"), MCPLogMessageType::Debug},     {QStringLiteral("info"), MCPLogMessageType::Info},
        {QStringLiteral("notice"), MCPLogMessageType::Info},     {QStringLiteral("warning"), MCPLogMessageType::Warning},
        {QStringLiteral("error"), MCPLogMessageType::Error},     {QStringLiteral("critical"), MCPLogMessageType::Critical},
        {QStringLiteral("alert"), MCPLogMessageType::Critical},  {QStringLiteral("emergency"), MCPLogMessageType::Critical},
    };
    QString line = text;
    if (data) {
        std::string dataText;
        appendCompact(dataText, *data);
        line += (line.isEmpty() ? QString() : QStringLiteral(" ")) + QString::fromStdString(dataText);
    }
    m_logger->log(QStringLiteral("[Script] ") + line, -1, kinds.value(level));
    return true;
}

void ScriptBridge::progress(double progress, std::optional<double> total, const QString &message)
{
    if (!m_reporter || callEnded())
        return;
    m_reporter->progress(progress, total, message.toStdString());
}

bool ScriptBridge::closeStream(std::chrono::milliseconds retry)
{
    if (!m_reporter || callEnded())
        return false;
    return m_reporter->closeStream(retry);
}

ScriptBridge::ClientAnswer ScriptBridge::askClient(const QString &who, const std::string &capability,
                                                   const std::string &method, const MCP::JSONValue &params)
{
    ClientAnswer answer;
    if (!m_reporter) {
        answer.error = who + QStringLiteral(": no MCP client made this call, so there is none to ask");
        return answer;
    }
    if (!m_reporter->clientSupports(capability)) {
        answer.error = who + QStringLiteral(": the client does not support %1").arg(QString::fromStdString(capability));
        return answer;
    }
    if (callEnded()) {
        answer.error = who + QStringLiteral(": the call has ended");
        return answer;
    }
    // The wait counts against the script's time limit and ends with a cancel or a shutdown.
    ScriptWatchdog *watchdog = ScriptWatchdog::current();
    const MCP::ClientRequests::Reply reply =
        m_reporter->request(method, params, [watchdog]() -> std::optional<std::string> {
            if (!watchdog)
                return std::nullopt;
            if (auto reason = watchdog->reasonToStop())
                return reason->toStdString();
            return std::nullopt;
        });
    if (reply.answered && reply.result.isObject()) {
        answer.result = reply.result;
        return answer;
    }
    if (reply.answered)
        answer.error = who + QStringLiteral(": the client's answer is not an object");
    else if (reply.code != 0)
        answer.error = who + QStringLiteral(": the client refused (%1): %2").arg(reply.code).arg(QString::fromStdString(reply.error));
    else
        answer.error = who + QStringLiteral(": no answer from the client: ") + QString::fromStdString(reply.error);
    return answer;
}

std::optional<QString> ScriptBridge::elicitationSchemaFault(const MCP::JSONValue &schema)
{
    if (!schema.isObject())
        return QStringLiteral("requestedSchema must be an object");
    if (schema.contains("type") && !(schema.at("type").isString() && schema.at("type").asString() == "object"))
        return QStringLiteral("requestedSchema's type must be \"object\"");
    if (!schema.contains("properties") || !schema.at("properties").isObject())
        return QStringLiteral("requestedSchema must have \"properties\", an object");
    static const QStringList primitive = {QStringLiteral("string"), QStringLiteral("number"), QStringLiteral("integer"),
                                          QStringLiteral("boolean")};
    for (const auto &[name, property] : schema.at("properties").asObject()) {
        const QString where = QStringLiteral("requestedSchema property '%1'").arg(QString::fromStdString(name));
        if (!property.isObject() || !property.contains("type") || !property.at("type").isString())
            return where + QStringLiteral(" must be an object with a \"type\"");
        const QString type = QString::fromStdString(property.at("type").asString());
        if (type == QLatin1String("array")) {
            // A multi-select: its items are the choices, untitled (enum) or titled (anyOf).
            const bool choices = property.contains("items") && property.at("items").isObject() &&
                                 (property.at("items").contains("enum") || property.at("items").contains("anyOf"));
            if (!choices)
                return where + QStringLiteral(" is an array without \"items\" naming its choices (enum or anyOf)");
        } else if (!primitive.contains(type)) {
            return where + QStringLiteral(" has type '%1'; a client can be asked only for string, number, integer, "
                                          "boolean or an array of choices")
                               .arg(type);
        }
    }
    return std::nullopt;
}

ScriptBridge::ClientAnswer ScriptBridge::elicit(const QString &message, const MCP::JSONValue &requestedSchema)
{
    static const QString who = QStringLiteral("Kelvara.elicit");
    if (auto fault = elicitationSchemaFault(requestedSchema))
        return {std::nullopt, who + QStringLiteral(": ") + *fault};
    MCP::JSONValue schema = requestedSchema;
    if (!schema.contains("type"))
        schema["type"] = MCP::JSONValue(std::string("object"));
    MCP::JSONValue params;
    params["message"] = MCP::JSONValue(message.toStdString());
    params["requestedSchema"] = std::move(schema);
    ClientAnswer answer = askClient(who, "elicitation", "elicitation/create", params);
    if (answer.result) {
        static const std::set<std::string> actions = {"accept", "decline", "cancel"};
        const MCP::JSONValue &result = *answer.result;
        if (!result.contains("action") || !result.at("action").isString() || !actions.count(result.at("action").asString()))
            return {std::nullopt, who + QStringLiteral(": the client's answer has no action (accept, decline or cancel)")};
    }
    return answer;
}

ScriptBridge::ClientAnswer ScriptBridge::sample(const MCP::JSONValue &messages, const MCP::JSONValue &options)
{
    static const QString who = QStringLiteral("Kelvara.sample");
    if (!messages.isArray() || messages.asArray().empty())
        return {std::nullopt, who + QStringLiteral(": messages must be a text or a non-empty array of {role, content}")};
    for (const MCP::JSONValue &message : messages.asArray()) {
        if (!message.isObject() || !message.contains("role") || !message.at("role").isString() || !message.contains("content"))
            return {std::nullopt, who + QStringLiteral(": each message needs a role and a content")};
    }
    if (!options.isNull() && !options.isObject())
        return {std::nullopt, who + QStringLiteral(": options must be an object when given")};
    MCP::JSONValue params = options.isObject() ? options : MCP::JSONValue(MCP::JSONValue::ObjectType{});
    params["messages"] = messages;
    if (!params.contains("maxTokens"))
        params["maxTokens"] = MCP::JSONValue(1000);
    else if (!params.at("maxTokens").isNumber() || params.at("maxTokens").asNumber() < 1)
        return {std::nullopt, who + QStringLiteral(": options.maxTokens must be a positive number")};
    return askClient(who, "sampling", "sampling/createMessage", params);
}

std::optional<QString> ScriptBridge::openFile(const QString &path)
{
    return readFile(path);
}

std::optional<QString> ScriptBridge::readFile(const QString &given)
{
    const QString path = resolvedPath(given);
    ScopedSecurityAccess access(m_security, path, FileAccessPolicy::Intent::read, FileAccessPolicy::Caller::scriptHost);
    QString description = access.denial();
    std::optional<QString> text = access.allowed() ? Utf8TextFile::read(path, &description) : std::nullopt;
    if (!text)
        m_logger->log(QStringLiteral("[Script] Failed to read file: ") + description, 404, MCPLogMessageType::Error);
    return text;
}

std::optional<QString> ScriptBridge::readFileBase64(const QString &given)
{
    const QString path = resolvedPath(given);
    ScopedSecurityAccess access(m_security, path, FileAccessPolicy::Intent::read, FileAccessPolicy::Caller::scriptHost);
    QString description = access.denial();
    const std::optional<QByteArray> bytes = access.allowed() ? Utf8TextFile::readBytes(path, &description) : std::nullopt;
    if (!bytes) {
        m_logger->log(QStringLiteral("[Script] Failed to read file: ") + description, 404, MCPLogMessageType::Error);
        return std::nullopt;
    }
    return QString::fromLatin1(bytes->toBase64());
}

bool ScriptBridge::fileExists(const QString &given)
{
    const QString path = resolvedPath(given);
    ScopedSecurityAccess access(m_security, path, FileAccessPolicy::Intent::read, FileAccessPolicy::Caller::scriptHost);
    if (!access.allowed()) {
        m_logger->log(QStringLiteral("[Script] Failed to check file: ") + access.denial(), 500, MCPLogMessageType::Error);
        return false;
    }
    return QFileInfo::exists(path);
}

bool ScriptBridge::saveFile(const QString &given, const QString &content)
{
    const QString path = resolvedPath(given);
    ScopedSecurityAccess access(m_security, path, FileAccessPolicy::Intent::write, FileAccessPolicy::Caller::scriptHost);
    auto fail = [&](const QString &description) {
        m_logger->log(QStringLiteral("[Script] Failed to save file: ") + description, 500, MCPLogMessageType::Error);
        return false;
    };
    if (!access.allowed())
        return fail(access.denial());
    // A lone surrogate has no UTF-8 form: refused rather than written with a replacement.
    if (!Utf8Text::isEncodable(content)) {
        return fail(QStringLiteral("The file '%1' couldn't be saved using text encoding Unicode (UTF-8).")
                        .arg(itemName(path)));
    }
    if (QFileInfo(path).isDir())
        return fail(QStringLiteral("The file '%1' couldn't be saved: %2").arg(itemName(path), systemDescription(EISDIR)));
    // A FIFO, a device or a socket stays what it is (AtomicFile refuses it too; this says so
    // before anything else happens).
    if (QFileInfo(path).exists() && !QFileInfo(path).isFile())
        return fail(QStringLiteral("The file '%1' couldn't be saved: it is not a regular file").arg(itemName(path)));
    const QByteArray bytes = content.toUtf8();
    // The whole text goes to a temporary file beside the target, which then replaces it:
    // a failure leaves the old file as it was.
    if (const std::optional<QString> failure = AtomicFile::write(path, bytes))
        return fail(QStringLiteral("The file '%1' couldn't be saved: %2").arg(itemName(path), *failure));
    return true;
}

QStringList ScriptBridge::listDirectory(const QString &given)
{
    const QString path = resolvedPath(given);
    ScopedSecurityAccess access(m_security, path, FileAccessPolicy::Intent::read, FileAccessPolicy::Caller::scriptHost);
    if (!access.allowed()) {
        m_logger->log(QStringLiteral("[Script] Failed to list directory: ") + access.denial(), 500, MCPLogMessageType::Error);
        return {};
    }
    DIR *directory = ::opendir(QFile::encodeName(path).constData());
    if (!directory) {
        const int openError = errno;
        m_logger->log(QStringLiteral("[Script] Failed to list directory: ")
                          + QStringLiteral("The folder '%1' couldn't be opened: %2").arg(itemName(path), systemDescription(openError)),
                      500, MCPLogMessageType::Error);
        return {};
    }
    QStringList names;
    errno = 0;
    while (const struct dirent *entry = ::readdir(directory)) {
        if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0)
            names.append(QFile::decodeName(entry->d_name));
        errno = 0;
    }
    const int readError = errno;
    ::closedir(directory);
    if (readError != 0) {
        m_logger->log(QStringLiteral("[Script] Failed to list directory: ")
                          + QStringLiteral("The folder '%1' couldn't be read: %2").arg(itemName(path), systemDescription(readError)),
                      500, MCPLogMessageType::Error);
        return {};
    }
    return names;
}

bool ScriptBridge::createDirectory(const QString &given)
{
    const QString path = resolvedPath(given);
    ScopedSecurityAccess access(m_security, path, FileAccessPolicy::Intent::write, FileAccessPolicy::Caller::scriptHost);
    if (!access.allowed()) {
        m_logger->log(QStringLiteral("[Script] Failed to create directory: ") + access.denial(), 500, MCPLogMessageType::Error);
        return false;
    }
    std::error_code error;
    if (path.isEmpty())
        error = std::make_error_code(std::errc::no_such_file_or_directory);
    else
        fs::create_directories(nativePath(path), error);
    // An item that stands there and is no folder is no success.
    if (!error && !QFileInfo(path).isDir())
        error = std::make_error_code(std::errc::file_exists);
    if (error) {
        m_logger->log(QStringLiteral("[Script] Failed to create directory: ")
                          + QStringLiteral("The folder '%1' couldn't be created: %2")
                                .arg(itemName(path), QString::fromLocal8Bit(error.message().c_str())),
                      500, MCPLogMessageType::Error);
        return false;
    }
    return true;
}

bool ScriptBridge::deleteFile(const QString &given)
{
    const QString path = resolvedPath(given);
    ScopedSecurityAccess access(m_security, path, FileAccessPolicy::Intent::remove, FileAccessPolicy::Caller::scriptHost);
    if (!access.allowed()) {
        m_logger->log(QStringLiteral("[Script] Failed to delete file: ") + access.denial(), 500, MCPLogMessageType::Error);
        return false;
    }
    std::error_code error;
    const fs::path target = nativePath(path);
    // remove_all counts a missing item as nothing removed; for a script it is a failure.
    if (path.isEmpty()) {
        error = std::make_error_code(std::errc::no_such_file_or_directory);
    } else {
        const fs::file_status status = fs::symlink_status(target, error);
        if (!error && !fs::exists(status))
            error = std::make_error_code(std::errc::no_such_file_or_directory);
        if (!error)
            fs::remove_all(target, error);
    }
    if (error) {
        m_logger->log(QStringLiteral("[Script] Failed to delete file: ")
                          + QStringLiteral("The item '%1' couldn't be removed: %2")
                                .arg(itemName(path), QString::fromLocal8Bit(error.message().c_str())),
                      500, MCPLogMessageType::Error);
        return false;
    }
    return true;
}

QString ScriptBridge::getDocumentsPath() const
{
    const QString documents = QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation);
    return documents.isEmpty() ? QDir::homePath() : documents;
}

QString ScriptBridge::getTempPath() const
{
    return QDir::tempPath();
}

HttpClient &ScriptBridge::httpClient()
{
    std::call_once(m_httpClientOnce, [this] {
        m_httpClient = std::make_unique<HttpClient>(30.0);
        m_httpClient->verboseLogging = false;
    });
    return *m_httpClient;
}

// The answers are the JSON text of HttpClientResult, which is what scripts read.
QString ScriptBridge::httpGet(const QString &url, const QString &queryJSON)
{
    SystemLog::write(QStringLiteral("[Script] httpGet url=%1").arg(url));
    return httpClient().get(url, queryJSON).toJSONString();
}

QString ScriptBridge::httpRequest(const QString &method, const QString &url, const QString &body,
                                  const QString &paramsJSON)
{
    SystemLog::write(QStringLiteral("[Script] httpRequest method=%1 url=%2").arg(method, url));
    return httpClient().request(method, url, body.isEmpty() ? QString() : body, paramsJSON, QString()).toJSONString();
}

QString ScriptBridge::httpPost(const QString &url, const QString &body, const QString &headersJSON)
{
    SystemLog::write(QStringLiteral("[Script] httpPost url=%1").arg(url));
    return httpClient().post(url, body, headersJSON).toJSONString();
}

bool ScriptBridge::downloadFile(const QString &url, const QString &given)
{
    const QString destination = resolvedPath(given);
    // Written like saveFile: only where granted, never over Kelvara's own files, and never in
    // place of a FIFO, a device or a socket (the download's rename would replace it).
    const FileAccessPolicy::Decision access = FileAccessPolicy::check(
        m_security, destination, FileAccessPolicy::Intent::write, FileAccessPolicy::Caller::scriptHost);
    QString refusal = access.denial.value_or(QString());
    if (refusal.isEmpty() && QFileInfo(destination).exists() && !QFileInfo(destination).isFile())
        refusal = QStringLiteral("'%1' is not a regular file").arg(destination);
    if (!refusal.isEmpty()) {
        m_logger->log(QStringLiteral("[Script] Failed to download file: ") + refusal, 500, MCPLogMessageType::Error);
        return false;
    }
    SystemLog::write(QStringLiteral("[Script] downloadFile url=%1 dest=%2").arg(url, destination));
    if (const Result<void> downloaded = httpClient().downloadFile(url, destination); !downloaded) {
        SystemLog::write(QStringLiteral("[Script] downloadFile failed: %1").arg(downloaded.error().description));
        return false;
    }
    return true;
}

QString ScriptBridge::resourceConfig(const QString &name)
{
    // Sorted by name: the first whose name holds the text wins. An empty text is part of no name.
    return configJSON(m_logger, QStringLiteral("Resource"), name, &ConfigurationLookup::resourceConfig);
}

QString ScriptBridge::promptConfig(const QString &name)
{
    return configJSON(m_logger, QStringLiteral("Prompt"), name, &ConfigurationLookup::promptConfig);
}

bool ScriptBridge::process(const QString &path, const QVariantList &arguments, const QString &stdoutName,
                           const QString &stderrName)
{
    QStringList strings;
    for (const QVariant &argument : arguments) {
        if (argument.typeId() == QMetaType::QString)
            strings.append(argument.toString());
    }

    // A relative program path names a file in the module folder, where the child starts too.
    const QString program = resolvedPath(path);
    const ScriptProcess::Outcome outcome = ScriptProcess::run(program, strings, m_moduleDir);
    if (!outcome.launched) {
        m_logger->log(QStringLiteral("[Script] process() failed to launch ") + path + QStringLiteral(": ")
                          + outcome.launchError,
                      500, MCPLogMessageType::Error);
        injectOutputArrays({}, {outcome.launchError}, stdoutName, stderrName);
        return false;
    }

    m_logger->log(QStringLiteral("[Script] process() ") + path + QStringLiteral(" exited ")
                      + QString::number(outcome.status) + QStringLiteral(", ") + QStringLiteral("stdout=")
                      + QString::number(outcome.standardOutput.size()) + QStringLiteral(" lines, stderr=")
                      + QString::number(outcome.standardError.size()) + QStringLiteral(" lines"),
                  -1, outcome.succeeded() ? MCPLogMessageType::Debug : MCPLogMessageType::Warning);
    injectOutputArrays(outcome.standardOutput, outcome.standardError, stdoutName, stderrName);
    return outcome.succeeded();
}

bool ScriptBridge::shell(const QString &command)
{
    return process(QStringLiteral("/bin/sh"), QVariantList{QStringLiteral("-c"), command}, QStringLiteral("stdOut"),
                   QStringLiteral("stdErr"));
}

void ScriptBridge::injectOutputArrays(const QStringList &standardOutput, const QStringList &standardError,
                                      const QString &stdoutName, const QString &stderrName)
{
    const std::shared_ptr<ScriptContext> context = m_jsContext.lock();
    if (!context) {
        m_logger->log(QStringLiteral("[Script] injectOutputArrays: jsContext is nil – output not forwarded"), 500,
                      MCPLogMessageType::Error);
        return;
    }
    JSGlobalContextRef ctx = context->jsContext();
    context->setObjectForKeyedSubscript(stdoutName, ScriptValue::makeStringArray(ctx, standardOutput));
    context->setObjectForKeyedSubscript(stderrName, ScriptValue::makeStringArray(ctx, standardError));
    m_logger->log(QStringLiteral("[Script] Injected ") + stdoutName + QStringLiteral("[")
                      + QString::number(standardOutput.size()) + QStringLiteral("] ") + QStringLiteral("and ")
                      + stderrName + QStringLiteral("[") + QString::number(standardError.size())
                      + QStringLiteral("] into JS context"),
                  -1, MCPLogMessageType::Debug);
}

void ScriptBridge::setToolResult(const QString &json)
{
    auto store = [this](JSONToolResult result) {
        std::lock_guard lock(m_resultMutex);
        m_toolResult = std::move(result);
    };

    QJsonParseError parseError{};
    const QJsonDocument document = QJsonDocument::fromJson(json.toUtf8(), &parseError);
    if (parseError.error != QJsonParseError::NoError || !document.isObject()) {
        store(ToolError::report(m_logger, QStringLiteral("[Script] Invalid JSON result"), 1400, MCPLogMessageType::Error));
        return;
    }
    const QJsonObject source = document.object();

    QMap<QString, AnyCodable> structured;
    const QJsonValue error = source.value(QStringLiteral("error"));
    if (error.isString()) {
        structured.insert(QStringLiteral("error"), AnyCodable(error.toString()));
        if (!error.toString().trimmed().isEmpty())
            structured.insert(QStringLiteral("success"), AnyCodable(false));
    } else {
        structured.insert(QStringLiteral("error"), AnyCodable(QString()));
    }

    const QJsonValue success = source.value(QStringLiteral("success"));
    if (success.isBool())
        structured.insert(QStringLiteral("success"), AnyCodable(success.toBool()));
    else if (!structured.contains(QStringLiteral("success")))
        structured.insert(QStringLiteral("success"), AnyCodable(true));

    const QJsonValue text = source.value(QStringLiteral("text"));
    if (!text.isString()) {
        store(ToolError::report(m_logger, QStringLiteral("[Script] Result object missing attribute 'text'"), 1401,
                                  MCPLogMessageType::Error));
        return;
    }

    const QJsonValue metadata = source.value(QStringLiteral("metadata"));
    if (metadata.isObject()) {
        const QJsonObject entries = metadata.toObject();
        for (auto it = entries.constBegin(); it != entries.constEnd(); ++it) {
            if (auto value = AnyCodable::decode(it.value()))
                structured.insert(it.key(), *value);
        }
    }

    // Content items besides the text (images, audio, resources) come as they were made; an
    // empty text then adds no item of its own.
    JSONToolResult result;
    const QJsonValue items = source.value(QStringLiteral("content"));
    if (!items.isArray() || !text.toString().isEmpty())
        result.content.append(JSONToolContent{QStringLiteral("text"), text.toString(), {}});
    for (const QJsonValue &item : items.toArray()) {
        const std::optional<JSONToolContent> parsed = JSONToolContent::fromJson(item.toObject());
        if (!parsed) {
            store(ToolError::report(m_logger, QStringLiteral("[Script] A content item of the result has no type (or a text item no text)"),
                                    1402, MCPLogMessageType::Error));
            return;
        }
        result.content.append(*parsed);
    }
    result.structuredContent = structured;
    store(std::move(result));
}
