#include "engine/bridge/MCPServerBridge.h"

#include "engine/JSONParser.h"
#include "engine/MCPHttpTransport.h"
#include "engine/MCPServer.h"
#include "engine/bridge/MainThreadQueue.h"
#include "engine/bridge/VariantJSON.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QLoggingCategory>
#include <QMetaObject>
#include <QStringList>
#include <algorithm>
#include <exception>

// The system log of the application (see app/SystemLog): silent unless enabled with
// QT_LOGGING_RULES="kelvara.system=true".
Q_LOGGING_CATEGORY(lcBridgeSystemLog, "kelvara.system", QtWarningMsg)

namespace {

void systemLog(const QString &line)
{
    qCInfo(lcBridgeSystemLog).noquote() << line;
}

// Runs fn on the Qt main thread's event loop, in posting order. Without an application
// object there is no main loop, and fn runs at once.
void postToMainThread(std::function<void()> fn)
{
    if (auto *app = QCoreApplication::instance())
        QMetaObject::invokeMethod(app, std::move(fn), Qt::QueuedConnection);
    else
        fn();
}

std::string utf8(const QString &text)
{
    return text.toStdString();
}

std::vector<std::string> variantStrings(const QVariant &value)
{
    std::vector<std::string> items;
    for (const QVariant &item : value.toList())
        items.push_back(utf8(item.toString()));
    return items;
}

}  // namespace

// Holds the application's log handler; the server's callback sees it only weakly, so a
// line logged while the bridge goes away is dropped instead of touching a dead object.
struct MCPServerBridge::LogSink {
    std::mutex mutex;
    LogHandler handler;
};

MCPServerBridge::MCPServerBridge() : m_logSink(std::make_shared<LogSink>())
{
    auto http = std::make_unique<MCP::MCPHttpTransport>();
    m_http = http.get();
    m_cppServer = std::make_unique<MCP::MCPServer>(std::move(http));
    m_cppServer->setMainQueuePoster(postToMainThread);
    setupLogCallback();
}

MCPServerBridge::~MCPServerBridge()
{
    // The server waits for its workers, which may be inside one of our adapters.
    m_cppServer.reset();
}

void MCPServerBridge::setupLogCallback()
{
    std::weak_ptr<LogSink> weakSink = m_logSink;
    m_cppServer->setLogCallback([weakSink](MCP::LogMessageType type, int32_t code, const std::string &text) {
        auto sink = weakSink.lock();
        if (!sink)
            return;
        LogHandler handler;
        {
            std::lock_guard lock(sink->mutex);
            handler = sink->handler;
        }
        if (!handler)
            return;
        const QString message = QString::fromStdString(text);
        const int level = convertLogType(static_cast<int>(type));
        const int logCode = code;
        const size_t cost = 64 + static_cast<size_t>(message.size()) * sizeof(QChar);
        MainThreadQueue::logLines().post([handler, level, logCode, message] { handler(level, logCode, message); }, cost);
    });
}

void MCPServerBridge::setLogLevel(int type)
{
    m_cppServer->setLogLevel(static_cast<MCP::LogMessageType>(convertLogType(type)));
}

void MCPServerBridge::setLogHandler(LogHandler handler)
{
    std::lock_guard lock(m_logSink->mutex);
    m_logSink->handler = std::move(handler);
}

int MCPServerBridge::convertLogType(int type)
{
    return type >= 0 && type <= 4 ? type : 3;
}

void MCPServerBridge::configureWithConfiguration(const MCPServerConfiguration &configuration)
{
    MCP::MCPServerConfig config;
    config.port = configuration.port;
    config.name = utf8(configuration.serverInfo.name);
    config.title = utf8(configuration.serverInfo.title);
    config.version = utf8(configuration.serverInfo.version);
    config.instructions = configuration.instructions ? std::optional<std::string>(utf8(*configuration.instructions))
                                                     : std::nullopt;
    m_cppServer->setConfiguration(config);
}

MCPServerConfiguration MCPServerBridge::getConfiguration() const
{
    const MCP::MCPServerConfig config = m_cppServer->getConfiguration();
    MCPServerConfiguration configuration;
    configuration.port = config.port;
    configuration.serverInfo.setName(QString::fromStdString(config.name));
    configuration.serverInfo.setTitle(QString::fromStdString(config.title));
    configuration.serverInfo.setVersion(QString::fromStdString(config.version));
    if (config.instructions)
        configuration.instructions = QString::fromStdString(*config.instructions);
    return configuration;
}

bool MCPServerBridge::startOnPort(int port, bool listenAtAll, BridgeError *error)
{
    m_cppServer->setListenAtAll(listenAtAll);
    m_cppServer->setServerName(utf8(m_serverName));
    m_cppServer->setServerVersion(utf8(m_serverVersion));
    const bool started = m_cppServer->start(port, listenAtAll);
    if (!started && error) {
        error->domain = QStringLiteral("MCPServerBridge");
        error->code = 1001;
        error->description = QStringLiteral("Failed to start MCP server");
        if (const std::string reason = m_cppServer->transport().startFailure(); !reason.empty())
            error->description += QStringLiteral(": ") + QString::fromStdString(reason);
    }
    return started;
}

int MCPServerBridge::listeningPort() const
{
    return m_cppServer->isRunning() ? m_cppServer->transport().listeningPort() : -1;
}

void MCPServerBridge::setAccessPolicy(const QVariantMap &policy)
{
    if (!m_http)
        return;
    MCP::MCPHttpPolicy rules = m_http->policy();
    if (policy.contains(QStringLiteral("allowedOrigins")))
        rules.allowedOrigins = variantStrings(policy.value(QStringLiteral("allowedOrigins")));
    if (policy.contains(QStringLiteral("bearerToken")))
        rules.bearerToken = utf8(policy.value(QStringLiteral("bearerToken")).toString());
    if (policy.contains(QStringLiteral("receiveTimeout")))
        rules.receiveTimeout = std::chrono::milliseconds(
            std::max<qint64>(0, qRound64(policy.value(QStringLiteral("receiveTimeout")).toDouble() * 1000)));
    if (policy.contains(QStringLiteral("maxConnections")))
        rules.maxConnections = static_cast<size_t>(std::max<qint64>(0, policy.value(QStringLiteral("maxConnections")).toLongLong()));
    if (policy.contains(QStringLiteral("maxBodyBytes")))
        rules.maxBodyBytes = static_cast<size_t>(std::max<qint64>(0, policy.value(QStringLiteral("maxBodyBytes")).toLongLong()));
    if (policy.contains(QStringLiteral("maxConnectionsPerPeer")))
        rules.maxConnectionsPerPeer =
            static_cast<size_t>(std::max<qint64>(0, policy.value(QStringLiteral("maxConnectionsPerPeer")).toLongLong()));
    if (policy.contains(QStringLiteral("maxBufferedBytes")))
        rules.maxBufferedBytes = static_cast<size_t>(std::max<qint64>(0, policy.value(QStringLiteral("maxBufferedBytes")).toLongLong()));
    if (policy.contains(QStringLiteral("keepAlive")))
        rules.keepAlive = policy.value(QStringLiteral("keepAlive")).toBool();
    if (policy.contains(QStringLiteral("idleTimeout")))
        rules.idleTimeout = std::chrono::milliseconds(
            std::max<qint64>(0, qRound64(policy.value(QStringLiteral("idleTimeout")).toDouble() * 1000)));
    if (policy.contains(QStringLiteral("maxRequestsPerConnection")))
        rules.maxRequestsPerConnection =
            static_cast<size_t>(std::max<qint64>(1, policy.value(QStringLiteral("maxRequestsPerConnection")).toLongLong()));
    if (policy.contains(QStringLiteral("sessionIdleTimeout")))
        rules.sessionIdleTimeout = std::chrono::milliseconds(
            std::max<qint64>(0, qRound64(policy.value(QStringLiteral("sessionIdleTimeout")).toDouble() * 1000)));
    if (policy.contains(QStringLiteral("maxHeadBytes")))
        rules.maxHeadBytes = static_cast<size_t>(std::max<qint64>(0, policy.value(QStringLiteral("maxHeadBytes")).toLongLong()));
    m_http->setPolicy(std::move(rules));
}

QVariantMap MCPServerBridge::accessPolicy() const
{
    if (!m_http)
        return {};
    const MCP::MCPHttpPolicy rules = m_http->policy();
    QStringList origins;
    for (const std::string &origin : rules.allowedOrigins)
        origins.append(QString::fromStdString(origin));
    return {{QStringLiteral("allowedOrigins"), origins},
            {QStringLiteral("bearerToken"), QString::fromStdString(rules.bearerToken)},
            {QStringLiteral("receiveTimeout"), rules.receiveTimeout.count() / 1000.0},
            {QStringLiteral("maxConnections"), static_cast<qint64>(rules.maxConnections)},
            {QStringLiteral("maxBodyBytes"), static_cast<qint64>(rules.maxBodyBytes)},
            {QStringLiteral("maxConnectionsPerPeer"), static_cast<qint64>(rules.maxConnectionsPerPeer)},
            {QStringLiteral("maxBufferedBytes"), static_cast<qint64>(rules.maxBufferedBytes)},
            {QStringLiteral("maxHeadBytes"), static_cast<qint64>(rules.maxHeadBytes)},
            {QStringLiteral("keepAlive"), rules.keepAlive},
            {QStringLiteral("idleTimeout"), rules.idleTimeout.count() / 1000.0},
            {QStringLiteral("maxRequestsPerConnection"), static_cast<qint64>(rules.maxRequestsPerConnection)},
            {QStringLiteral("sessionIdleTimeout"), rules.sessionIdleTimeout.count() / 1000.0}};
}

void MCPServerBridge::setTransport(std::unique_ptr<MCP::IMCPTransport> transport)
{
    m_http = dynamic_cast<MCP::MCPHttpTransport *>(transport.get());
    m_cppServer->setTransport(std::move(transport));
}

bool MCPServerBridge::waitUntilIdle(std::chrono::milliseconds limit)
{
    // The transport's own bounded stop first: the server's stop may wait without end for a
    // handler that never returns.
    const bool idle = m_cppServer->transport().waitUntilIdle(limit);
    if (idle)
        m_cppServer->stop();
    return idle;
}

void MCPServerBridge::stop()
{
    m_cppServer->stop();
}

bool MCPServerBridge::isRunning() const
{
    return m_cppServer->isRunning();
}

void MCPServerBridge::resetRegistry()
{
    resetPromotRegistry();
    resetResourceRegistry();
    resetToolRegistry();
}

void MCPServerBridge::resetPromotRegistry()
{
    m_cppServer->getPromptService()->clearPrompts();
}

void MCPServerBridge::resetResourceRegistry()
{
    m_cppServer->getResourceService()->clearResources();
}

void MCPServerBridge::resetToolRegistry()
{
    m_cppServer->getToolService()->clearTools();
}

// ---- conversions ----

QString MCPServerBridge::cleanToken(const QString &text)
{
    QString cleaned;
    cleaned.reserve(text.size());
    for (QChar c : text) {
        if (c == u' ' || c == u'\t' || c == u'\n' || c == u'"' || c == u'[' || c == u']')
            continue;
        cleaned += c;
    }
    return cleaned;
}

MCP::ToolAnnotations MCPServerBridge::convertAnnotations(const QVariantMap &annotations)
{
    MCP::ToolAnnotations result;
    result.audience = {"user", "assistant"};
    result.priority = 0.9;
    if (annotations.contains(QStringLiteral("priority")))
        result.priority = annotations.value(QStringLiteral("priority")).toDouble();
    if (annotations.contains(QStringLiteral("lastModified")))
        result.lastModified = utf8(annotations.value(QStringLiteral("lastModified")).toString());
    // Configured entries follow the default audience; each name is sent once.
    for (const std::string &entry : variantStrings(annotations.value(QStringLiteral("audience"))))
        if (std::find(result.audience.begin(), result.audience.end(), entry) == result.audience.end())
            result.audience.push_back(entry);
    if (annotations.contains(QStringLiteral("title")))
        result.title = utf8(annotations.value(QStringLiteral("title")).toString());
    const std::pair<QString, std::optional<bool> MCP::ToolAnnotations::*> hints[] = {
        {QStringLiteral("readOnlyHint"), &MCP::ToolAnnotations::readOnlyHint},
        {QStringLiteral("destructiveHint"), &MCP::ToolAnnotations::destructiveHint},
        {QStringLiteral("idempotentHint"), &MCP::ToolAnnotations::idempotentHint},
        {QStringLiteral("openWorldHint"), &MCP::ToolAnnotations::openWorldHint}};
    for (const auto &[key, member] : hints)
        if (const QVariant value = annotations.value(key); value.typeId() == QMetaType::Bool)
            result.*member = value.toBool();
    return result;
}

MCP::ToolSchemaProperty MCPServerBridge::convertToolSchemaProperty(const QVariantMap &property)
{
    MCP::ToolSchemaProperty result;
    result.type = "string";
    if (property.contains(QStringLiteral("type")))
        result.type = utf8(property.value(QStringLiteral("type")).toString());
    if (property.contains(QStringLiteral("description")))
        result.description = utf8(property.value(QStringLiteral("description")).toString());
    if (property.contains(QStringLiteral("defaultValue"))) {
        QString value = property.value(QStringLiteral("defaultValue")).toString();
        if (value.contains(u',')) {
            // A list written loosely (a, b or ["a", "b"]) becomes JSON array text.
            QStringList pieces = cleanToken(value).split(u',', Qt::SkipEmptyParts);
            value = QStringLiteral("[\"") + pieces.join(QStringLiteral("\",\"")) + QStringLiteral("\"]");
            if (pieces.isEmpty())
                value = QStringLiteral("[]");
        }
        result.defaultValue = utf8(value);
    }
    if (property.contains(QStringLiteral("name")))
        result.name = utf8(property.value(QStringLiteral("name")).toString());
    if (property.contains(QStringLiteral("items"))) {
        const QVariantMap items = property.value(QStringLiteral("items")).toMap();
        MCP::ToolSchemaPropertyItems converted;
        converted.type = items.contains(QStringLiteral("type")) ? utf8(items.value(QStringLiteral("type")).toString())
                                                                : std::string("null");
        if (items.contains(QStringLiteral("content"))) {
            const QVariant content = items.value(QStringLiteral("content"));
            // Normally JSON text; a map given directly is written out as such text.
            if (content.typeId() == QMetaType::QVariantMap)
                converted.properties = VariantJSON::fromVariant(content).toString(0);
            else
                converted.properties = utf8(content.toString());
        }
        result.items = std::move(converted);
    }
    return result;
}

MCP::ToolSchema MCPServerBridge::convertToolSchema(const QVariantMap &schema)
{
    MCP::ToolSchema result;
    if (const QVariant document = schema.value(QStringLiteral("document")); document.typeId() == QMetaType::QString) {
        // A schema as its author wrote it goes out unchanged; text that is no JSON Object
        // leaves the property list below to describe the tool.
        try {
            MCP::JSONValue parsed = VariantJSON::parseJSONText(document.toString());
            if (parsed.isObject())
                result.document = std::move(parsed);
        } catch (const std::exception &e) {
            systemLog(QStringLiteral("[MCP-SB] Ignoring a schema document: %1").arg(QString::fromUtf8(e.what())));
        }
    }
    result.type = "object";
    if (schema.contains(QStringLiteral("type")))
        result.type = utf8(schema.value(QStringLiteral("type")).toString());
    const QVariantMap properties = schema.value(QStringLiteral("properties")).toMap();
    for (auto it = properties.begin(); it != properties.end(); ++it)
        result.properties[utf8(it.key())] = convertToolSchemaProperty(it.value().toMap());
    if (schema.contains(QStringLiteral("required"))) {
        std::vector<std::string> required;
        for (const QVariant &entry : schema.value(QStringLiteral("required")).toList())
            required.push_back(utf8(cleanToken(entry.toString())));
        result.required = std::move(required);
    }
    return result;
}

std::vector<std::string> MCPServerBridge::convertContextTags(const QString &text)
{
    std::vector<std::string> tags;
    if (text.isEmpty() || !text.startsWith(u'['))
        return tags;
    try {
        const MCP::JSONValue parsed = VariantJSON::parseJSONText(text);
        if (!parsed.isArray())
            return tags;
        for (const auto &entry : parsed.asArray())
            if (entry.isString())
                tags.push_back(entry.asString());
    } catch (const std::exception &e) {
        // Stored text that is no JSON leaves the list empty.
        systemLog(QStringLiteral("[MCP-SB] Ignoring context tags: %1").arg(QString::fromUtf8(e.what())));
        tags.clear();
    }
    return tags;
}

std::vector<MCP::RelatedResource> MCPServerBridge::convertRelatedResources(const QString &text)
{
    std::vector<MCP::RelatedResource> related;
    if (text.isEmpty() || !text.startsWith(u'['))
        return related;
    try {
        const MCP::JSONValue parsed = VariantJSON::parseJSONText(text);
        if (!parsed.isArray())
            return related;
        for (const auto &entry : parsed.asArray()) {
            if (!entry.isObject())
                continue;
            MCP::RelatedResource item;
            // A member of the wrong type raises here and drops the whole list.
            if (entry.contains("resourceId"))
                item.resourceId = entry.at("resourceId").asString();
            if (entry.contains("resourceType"))
                item.resourceType = entry.at("resourceType").asString();
            if (entry.contains("uri"))
                item.uri = entry.at("uri").asString();
            if (entry.contains("url"))
                item.uri = entry.at("url").asString();
            related.push_back(std::move(item));
        }
    } catch (const std::exception &e) {
        systemLog(QStringLiteral("[MCP-SB] Ignoring related resources: %1").arg(QString::fromUtf8(e.what())));
        related.clear();
    }
    return related;
}

QString MCPServerBridge::currentTimestamp()
{
    return QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs);
}

// ---- registration ----

void MCPServerBridge::registerTool(const QVariantMap &configuration, ToolHandler handler)
{
    if (!configuration.contains(QStringLiteral("name"))) {
        systemLog(QStringLiteral("[MCP-SB] Error: Tool configuration missing 'name' field"));
        return;
    }
    auto text = [&](const char *key) { return utf8(configuration.value(QString::fromLatin1(key)).toString()); };
    auto has = [&](const char *key) { return configuration.contains(QString::fromLatin1(key)); };

    MCP::ToolDefinition definition;
    definition.name = text("name");
    if (has("title"))
        definition.title = text("title");
    if (has("description"))
        definition.description = text("description");
    definition.annotations = convertAnnotations(configuration.value(QStringLiteral("annotations")).toMap());
    if (has("inputSchema"))
        definition.inputSchema = convertToolSchema(configuration.value(QStringLiteral("inputSchema")).toMap());
    if (has("outputSchema"))
        definition.outputSchema = convertToolSchema(configuration.value(QStringLiteral("outputSchema")).toMap());
    if (has("toolType"))
        definition.toolType = text("toolType");
    if (has("pluginName"))
        definition.pluginName = text("pluginName");
    if (has("scriptName"))
        definition.scriptName = text("scriptName");
    if (has("execHandler"))
        definition.execHandler = utf8(cleanToken(configuration.value(QStringLiteral("execHandler")).toString()));
    if (has("execMethod"))
        definition.execMethod = utf8(cleanToken(configuration.value(QStringLiteral("execMethod")).toString()));
    if (handler) {
        // The one place a call's values change between the engine's form and Qt's.
        definition.handler = [handler](const MCP::JSONValue &arguments,
                                       const MCP::ToolCallContext &call) -> std::optional<MCP::JSONValue> {
            const ToolInvocation invocation{QString::fromStdString(call.sessionId), QString::fromStdString(call.requestId),
                                            call.token, call.reporter};
            const std::optional<QJsonValue> result = handler(VariantJSON::toJsonObject(arguments), invocation);
            if (!result)
                return std::nullopt;
            return VariantJSON::fromJson(*result);
        };
    }
    m_cppServer->getToolService()->registerTool(definition);
}

namespace {
// What the engine asks for values of a record that names a script.
MCP::CompletionSource scriptSource(const MCPServerBridge::CompletionRunner &run, const QString &script)
{
    return [run, script](const std::string &argument, const std::string &typed, const MCP::JSONValue &given) {
        const QStringList values = run(script, QString::fromStdString(argument), QString::fromStdString(typed),
                                       given.isObject() ? VariantJSON::toVariantMap(given) : QVariantMap());
        std::vector<std::string> result;
        result.reserve(size_t(values.size()));
        for (const QString &value : values)
            result.push_back(value.toStdString());
        return result;
    };
}
}  // namespace

void MCPServerBridge::registerResource(const QVariantMap &configuration, ResourceProvider provider,
                                       CompletionRunner completions)
{
    if (!configuration.contains(QStringLiteral("uri"))) {
        systemLog(QStringLiteral("[MCP-SB] Error: Resource configuration missing 'uri' field"));
        return;
    }
    const QString uri = configuration.value(QStringLiteral("uri")).toString();
    {
        std::lock_guard lock(m_blocksMutex);
        m_resourceProviders.insert(uri, std::move(provider));
    }
    auto text = [&](const char *key) { return utf8(configuration.value(QString::fromLatin1(key)).toString()); };

    MCP::ResourceDefinition definition;
    definition.uri = utf8(uri);
    definition.name = text("name");
    definition.description = text("description");
    definition.mimeType = text("mimeType");
    definition.type = text("type");
    // Tags and relations are stored as JSON text; a list given directly is taken too.
    const QVariant tags = configuration.value(QStringLiteral("contextTags"));
    if (tags.typeId() == QMetaType::QString)
        definition.contextTags = convertContextTags(tags.toString());
    else if (tags.canConvert<QVariantList>() && tags.typeId() != QMetaType::QVariantMap)
        definition.contextTags = variantStrings(tags);
    const QVariant related = configuration.value(QStringLiteral("relatedResources"));
    if (related.typeId() == QMetaType::QString)
        definition.relatedResources = convertRelatedResources(related.toString());
    else if (related.typeId() == QMetaType::QVariantList)
        definition.relatedResources = convertRelatedResources(
            QString::fromStdString(VariantJSON::fromVariant(related).toString(0)));
    definition.annotations = convertAnnotations(configuration.value(QStringLiteral("annotations")).toMap());
    const QVariantMap values = configuration.value(QStringLiteral("values")).toMap();
    for (auto it = values.begin(); it != values.end(); ++it)
        definition.completions[utf8(it.key())] = variantStrings(it.value());
    if (const QString script = configuration.value(QStringLiteral("valuesScript")).toString(); completions && !script.isEmpty())
        definition.valuesSource = scriptSource(completions, script);

    const std::string now = utf8(currentTimestamp());
    definition.metadata.created = now;
    definition.metadata.modified = now;
    definition.metadata.author = "Kelvara Server";
    definition.metadata.version = "1.0";
    definition.data.format = definition.mimeType;
    definition.provider = [this](const MCP::ResourceDefinition &resource) { return provideResource(resource); };
    m_cppServer->getResourceService()->registerResource(definition);
}

MCP::ResourceDefinition MCPServerBridge::provideResource(const MCP::ResourceDefinition &definition)
{
    MCP::ResourceDefinition result = definition;
    ResourceProvider provider;
    {
        std::lock_guard lock(m_blocksMutex);
        // A read through a template runs the template's provider.
        provider = m_resourceProviders.value(
            QString::fromStdString(definition.uriTemplate.empty() ? definition.uri : definition.uriTemplate));
    }
    if (provider) {
        const ResourceReading reading = provider(VariantJSON::toVariantMap(definition.toJSON()));
        if (!reading.error.isEmpty()) {
            result.data.error = utf8(reading.error);
        } else if (reading.binary) {
            result.data.blob = reading.bytes.toBase64().toStdString();
            result.data.size = std::to_string(reading.bytes.size());
        } else {
            result.data.content = utf8(reading.text);  // a null QString counts as empty
        }
        result.data.format = definition.mimeType;
    } else {
        result.data.content = "Failed to hande resource '" + definition.name + "' " + definition.uri;
        result.data.format = "text/plain";
    }
    if (result.data.size.empty())
        result.data.size = std::to_string(result.data.content.size());
    const std::string now = utf8(currentTimestamp());
    result.data.createdAt = now;
    result.data.updatedAt = now;
    return result;
}

void MCPServerBridge::registerPrompt(const QVariantMap &configuration, PromptRenderer renderer,
                                     CompletionRunner completions)
{
    if (!configuration.contains(QStringLiteral("name"))) {
        systemLog(QStringLiteral("[MCP-SB] Error: Prompt configuration missing 'name' field"));
        return;
    }
    const QString name = configuration.value(QStringLiteral("name")).toString();
    {
        std::lock_guard lock(m_blocksMutex);
        m_promptRenderers.insert(name, std::move(renderer));
    }
    MCP::PromptDefinition definition;
    definition.name = utf8(name);
    definition.description = utf8(configuration.value(QStringLiteral("description")).toString());
    definition.template_ = utf8(configuration.value(QStringLiteral("template")).toString());
    for (const QVariant &entry : configuration.value(QStringLiteral("arguments")).toList()) {
        const QVariantMap argument = entry.toMap();
        MCP::PromptArgument converted;
        converted.name = utf8(argument.value(QStringLiteral("name")).toString());
        converted.description = utf8(argument.value(QStringLiteral("description")).toString());
        converted.required = argument.value(QStringLiteral("required")).toBool();
        converted.values = variantStrings(argument.value(QStringLiteral("values")));
        if (const QString script = argument.value(QStringLiteral("valuesScript")).toString(); completions && !script.isEmpty())
            converted.valuesSource = scriptSource(completions, script);
        definition.arguments.push_back(std::move(converted));
    }
    // Messages are kept as the protocol sends them; the bundle's reader has checked them.
    const QVariant messages = configuration.value(QStringLiteral("messages"));
    if (messages.typeId() == QMetaType::QVariantList)
        definition.messages = VariantJSON::fromVariant(messages);
    const std::string key = definition.name;
    definition.renderer = [this, key](const MCP::JSONValue &params) { return renderPrompt(key, params); };
    m_cppServer->getPromptService()->registerPrompt(definition);
}

std::string MCPServerBridge::renderPrompt(const std::string &name, const MCP::JSONValue &params)
{
    const QVariantMap dictionary = VariantJSON::toVariantMap(params);
    PromptRenderer renderer;
    {
        std::lock_guard lock(m_blocksMutex);
        renderer = m_promptRenderers.value(QString::fromStdString(name));
    }
    if (!renderer)
        return {};
    return utf8(renderer(dictionary));  // a null QString counts as empty
}

void MCPServerBridge::setResourceWatch(ResourceWatch watch)
{
    if (!watch) {
        m_cppServer->setResourceWatch(nullptr);
        return;
    }
    m_cppServer->setResourceWatch([watch = std::move(watch)](const std::string &uri, const std::string &type, bool on) {
        watch(QString::fromStdString(uri), QString::fromStdString(type), on);
    });
}

void MCPServerBridge::resourceChanged(const QString &uri)
{
    m_cppServer->resourceChanged(utf8(uri));
}

void MCPServerBridge::unregisterToolWithName(const QString &name)
{
    m_cppServer->getToolService()->unregisterTool(utf8(name));
}

void MCPServerBridge::unregisterResourceWithURI(const QString &uri)
{
    {
        std::lock_guard lock(m_blocksMutex);
        m_resourceProviders.remove(uri);
    }
    m_cppServer->getResourceService()->unregisterResource(utf8(uri));
}

void MCPServerBridge::unregisterPromptWithName(const QString &name)
{
    {
        std::lock_guard lock(m_blocksMutex);
        m_promptRenderers.remove(name);
    }
    m_cppServer->getPromptService()->unregisterPrompt(utf8(name));
}

QStringList MCPServerBridge::listTools() const
{
    QStringList names;
    for (const auto &tool : m_cppServer->getToolService()->listTools())
        names.append(QString::fromStdString(tool.name));
    return names;
}

QStringList MCPServerBridge::listResources() const
{
    QStringList uris;
    for (const auto &resource : m_cppServer->getResourceService()->listResources())
        uris.append(QString::fromStdString(resource.uri));
    return uris;
}

QStringList MCPServerBridge::listPrompts() const
{
    QStringList names;
    for (const auto &prompt : m_cppServer->getPromptService()->listPrompts())
        names.append(QString::fromStdString(prompt.name));
    return names;
}
