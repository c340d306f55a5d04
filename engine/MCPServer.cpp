#include "engine/MCPServer.h"

#include "engine/ProtocolVersion.h"

#include "engine/MCPCodes.h"
#include "engine/MCPHttpTransport.h"
#include "engine/MCPPromptService.h"
#include "engine/MCPResourceService.h"
#include "engine/JSONSchemaValidator.h"
#include "engine/MCPServerMessage.h"
#include "engine/MCPToolService.h"
#include "engine/PromptTemplate.h"
#include "engine/RequestReporter.h"

#include <charconv>
#include <cmath>
#include <limits>

namespace MCP {

namespace {

std::string idText(uint64_t id)
{
    char digits[24];
    return std::string(digits, std::to_chars(digits, digits + sizeof digits, id).ptr);
}

// A Number requestId as a decimal integer, truncated to 64 bits (saturating).
std::string numberIdText(double value)
{
    if (value >= 0) {
        if (value >= 18446744073709551615.0)
            return idText(std::numeric_limits<uint64_t>::max());
        return idText(static_cast<uint64_t>(value));
    }
    if (value <= -9223372036854775808.0)
        return std::to_string(std::numeric_limits<int64_t>::min());
    return std::to_string(static_cast<int64_t>(value));
}

}  // namespace

MCPServer::MCPServer(std::unique_ptr<IMCPTransport> transport)
    : m_toolService(std::make_unique<MCPToolService>()),
      m_resourceService(std::make_unique<MCPResourceService>()),
      m_promptService(std::make_unique<MCPPromptService>()),
      m_transport(transport ? std::move(transport) : std::make_unique<MCPHttpTransport>())
{
    setupRoutes();
    m_toolService->setListObserver([this] { listChanged(ToolsChanged); });
    m_resourceService->setListObserver([this] { listChanged(ResourcesChanged); });
    m_promptService->setListObserver([this] { listChanged(PromptsChanged); });
    m_transport->setSessionEndedHandler([this](const std::string &id) { m_subscriptions.dropSession(id); });
}

void MCPServer::listChanged(unsigned bits)
{
    std::lock_guard lock(m_changesMutex);
    if (!m_announcing)
        return;
    m_changedLists |= bits;
    m_changesCondition.notify_all();
}

void MCPServer::announceChanges()
{
    // A save that re-exports replaces every tool one by one: the clients hear of it once,
    // after the registries have been quiet for a moment.
    constexpr auto kQuiet = std::chrono::milliseconds(50);
    std::unique_lock lock(m_changesMutex);
    for (;;) {
        m_changesCondition.wait(lock, [this] { return !m_announcing || m_changedLists != 0; });
        if (!m_announcing)
            return;
        for (unsigned seen = m_changedLists;;) {
            if (m_changesCondition.wait_for(lock, kQuiet, [&] { return !m_announcing || m_changedLists != seen; })) {
                if (!m_announcing)
                    return;
                seen = m_changedLists;
                continue;
            }
            break;
        }
        const unsigned changed = std::exchange(m_changedLists, 0);
        lock.unlock();
        static const JSONValue noParams{JSONValue::ObjectType{}};
        if (changed & ToolsChanged)
            m_transport->broadcast(MCPServerMessage::notificationLine("notifications/tools/list_changed", noParams));
        if (changed & ResourcesChanged)
            m_transport->broadcast(MCPServerMessage::notificationLine("notifications/resources/list_changed", noParams));
        if (changed & PromptsChanged)
            m_transport->broadcast(MCPServerMessage::notificationLine("notifications/prompts/list_changed", noParams));
        lock.lock();
    }
}

void MCPServer::stopAnnouncing()
{
    {
        std::lock_guard lock(m_changesMutex);
        m_announcing = false;
        m_changedLists = 0;
        m_changesCondition.notify_all();
    }
    if (m_announcer.joinable())
        m_announcer.join();
}

void MCPServer::setTransport(std::unique_ptr<IMCPTransport> transport)
{
    if (m_running || !transport)
        return;
    m_subscriptions.clear();
    m_transport = std::move(transport);
    m_transport->setSessionEndedHandler([this](const std::string &id) { m_subscriptions.dropSession(id); });
    if (m_logCallback)
        m_transport->setLogCallback(m_logCallback);
    m_transport->setLogLevel(m_logLevel);
}

MCPServer::~MCPServer()
{
    stop();
    stopAnnouncing();
    // Workers may still be inside a route: the transport waits for them before the
    // services and the router they use go away.
    m_transport.reset();
}

bool MCPServer::logs(LogMessageType type) const
{
    return m_logCallback && static_cast<int>(type) <= static_cast<int>(m_logLevel);
}

void MCPServer::log(LogMessageType type, int32_t code, const std::string &text) const
{
    if (logs(type))
        m_logCallback(type, code, text);
}

void MCPServer::setLogCallback(LogCallback callback)
{
    m_logCallback = std::move(callback);
    m_transport->setLogCallback(m_logCallback);
}

void MCPServer::setLogLevel(LogMessageType level)
{
    m_logLevel = level;
    m_transport->setLogLevel(level);
}

void MCPServer::setMainQueuePoster(MainQueuePoster poster)
{
    m_toolService->setMainQueuePoster(poster);
    m_resourceService->setMainQueuePoster(poster);
    m_promptService->setMainQueuePoster(std::move(poster));
}

void MCPServer::addMiddleware(MessageRouter::Middleware middleware)
{
    m_router.addMiddleware(std::move(middleware));
}

IMCPToolService *MCPServer::getToolService() { return m_toolService.get(); }
IMCPResourceService *MCPServer::getResourceService() { return m_resourceService.get(); }
IMCPPromptService *MCPServer::getPromptService() { return m_promptService.get(); }

void MCPServer::setConfiguration(const MCPServerConfig &config)
{
    m_config.port = config.port;
    m_config.name = config.name;
    m_config.title = config.title;
    m_config.version = config.version;
    m_config.instructions = config.instructions;
    m_config.listenAtAll = config.listenAtAll;
    if (logs(LogMessageType::Info))
        log(LogMessageType::Info, LogCode::Info,
            "MCP Server configured: " + m_config.name + " v" + m_config.version + " on port " + std::to_string(m_config.port));
}

MCPServerConfig MCPServer::getConfiguration() const { return m_config; }
void MCPServer::setListenAtAll(bool listenAtAll) { m_config.listenAtAll = listenAtAll; }
void MCPServer::setServerName(const std::string &name) { m_config.name = name; }
void MCPServer::setServerVersion(const std::string &version) { m_config.version = version; }
std::string MCPServer::getServerName() const { return m_config.name; }
std::string MCPServer::getServerVersion() const { return m_config.version; }
bool MCPServer::isRunning() const { return m_running; }

bool MCPServer::start(int port, bool listenAtAll)
{
    if (m_running) {
        log(LogMessageType::Warning, LogCode::ServerAlreadyRunning, "Server already running");
        return false;
    }
    m_config.port = static_cast<uint16_t>(port);
    m_config.listenAtAll = listenAtAll;
    m_transport->setMessageHandler([this](const std::string &connectionId, std::shared_ptr<MCPMessage> message) {
        handleMessage(connectionId, std::move(message));
    });
    if (!m_transport->start(port, listenAtAll)) {
        log(LogMessageType::Error, LogCode::TransportStartFailed, "Failed to start transport layer");
        return false;
    }
    if (const int bound = m_transport->listeningPort(); bound > 0)
        m_config.port = static_cast<uint16_t>(bound);
    m_running = true;
    {
        std::lock_guard lock(m_changesMutex);
        m_announcing = true;
        m_changedLists = 0;
    }
    m_announcer = std::thread([this] { announceChanges(); });
    if (logs(LogMessageType::Info)) {
        log(LogMessageType::Info, LogCode::Info,
            "MCP Server '" + m_config.name + "' v" + m_config.version + " started on port " + std::to_string(m_config.port));
        if (m_config.instructions)
            log(LogMessageType::Info, LogCode::Info, "Server instructions: " + *m_config.instructions);
    }
    return true;
}

void MCPServer::stop()
{
    if (!m_running)
        return;
    stopAnnouncing();
    m_transport->stop();
    m_subscriptions.clear();
    m_running = false;
    log(LogMessageType::Info, LogCode::Info, "MCP Server stopped");
}

std::shared_ptr<CancellationToken> MCPServer::registerRequest(const std::string &key)
{
    auto token = std::make_shared<CancellationToken>();
    std::lock_guard lock(m_activeRequestsMutex);
    m_activeRequests.insert_or_assign(key, token);
    return token;
}

void MCPServer::unregisterRequest(const std::string &key)
{
    std::lock_guard lock(m_activeRequestsMutex);
    m_activeRequests.erase(key);
}

bool MCPServer::cancelRequest(const std::string &key)
{
    std::lock_guard lock(m_activeRequestsMutex);
    auto it = m_activeRequests.find(key);
    if (it == m_activeRequests.end())
        return false;
    it->second->cancel();
    return true;
}

std::shared_ptr<MCPMessage> MCPServer::process(const std::string &sessionId, std::shared_ptr<MCPMessage> message)
{
    MCPContext context{sessionId, message, message->params};
    if (logs(LogMessageType::Debug)) {
        log(LogMessageType::Debug, LogCode::Info, "HTTP-RCV [" + message->method + "]\n" + message->toString());
        log(LogMessageType::Debug, LogCode::Info,
            "Dispatch: \"" + message->method + "\" sid: \"" + sessionId + "\" id: " + message->id.toJSON());
    }
    // The client's answer to a request of the server's goes to the call waiting on it, in the
    // session it came in; one nobody waits on (unknown id, too late) is dropped.
    if (message->type == MCPMessage::MessageType::Response) {
        const auto session = message->inSession ? m_transport->session(sessionId) : nullptr;
        if (!session || !session->clientRequests().answer(*message))
            log(LogMessageType::Warning, LogCode::Info,
                "Response from the client to no waiting request (id " + message->id.toJSON() + ")");
        return nullptr;
    }
    if (message->type == MCPMessage::MessageType::Request && !message->id.isValid()) {
        log(LogMessageType::Warning, LogCode::Info, "Request with an id that is neither a string nor an integer");
        return MCPServerMessage::createError(RequestId::fromJSON(JSONValue()),
                                             "Invalid Request: the id must be a string or an integer",
                                             RPCCode::InvalidRequest);
    }
    auto response = m_router.dispatch(context);
    // A notification is never answered, whatever its route made of it (the transport
    // acknowledges it its own way).
    if (message->type == MCPMessage::MessageType::Notification)
        return nullptr;
    if (response && logs(LogMessageType::Debug))
        log(LogMessageType::Debug, LogCode::Info, "HTTP-RSP [" + message->method + "]\n" + response->toString());
    return response;
}

void MCPServer::handleMessage(const std::string &connectionId, std::shared_ptr<MCPMessage> message)
{
    if (!message)
        return;
    if (auto response = process(connectionId, std::move(message)))
        m_transport->sendResponse(connectionId, std::move(response));
}

void MCPServer::setupRoutes()
{
    auto bind = [this](std::shared_ptr<MCPMessage> (MCPServer::*route)(const MCPContext &)) {
        return [this, route](const MCPContext &context) { return (this->*route)(context); };
    };
    m_router.addRoute("initialize", bind(&MCPServer::handleInitialize));
    m_router.addRoute("notifications/initialized", bind(&MCPServer::handleInitialized));
    m_router.addRoute("ping", bind(&MCPServer::handlePing));
    m_router.addRoute("logging/setLevel", bind(&MCPServer::handleSetLevel));
    m_router.addRoute("notifications/cancelled", bind(&MCPServer::handleCancelled));
    m_router.addRoute("tools/list", bind(&MCPServer::handleToolsList));
    m_router.addRoute("tools/call", bind(&MCPServer::handleToolsCall));
    m_router.addRoute("resources/list", bind(&MCPServer::handleResourcesList));
    m_router.addRoute("resources/read", bind(&MCPServer::handleResourcesRead));
    m_router.addRoute("prompts/list", bind(&MCPServer::handlePromptsList));
    m_router.addRoute("prompts/get", bind(&MCPServer::handlePromptsGet));
    addContentRoutes();
    addSubscriptionRoutes();
}

void MCPServer::addContentRoutes()
{
    m_router.addRoute("resources/templates/list",
                      [this](const MCPContext &context) { return handleResourceTemplatesList(context); });
    m_router.addRoute("completion/complete", [this](const MCPContext &context) { return handleCompletion(context); });
}

// ---- session routes ----

std::shared_ptr<MCPMessage> MCPServer::handleInitialize(const MCPContext &context)
{
    std::string_view requested;
    if (context.params.isObject() && context.params.contains("protocolVersion") &&
        context.params.at("protocolVersion").isString())
        requested = context.params.at("protocolVersion").asString();
    const std::string version(ProtocolVersion::negotiate(requested));
    log(LogMessageType::Info, LogCode::Info, "Initialize request received (protocol: " + version + ")");
    if (context.message->inSession) {
        if (const auto session = m_transport->session(context.sessionId)) {
            session->setProtocolVersion(version);
            // What the client can be asked during its calls (elicitation, sampling).
            if (context.params.isObject() && context.params.contains("capabilities"))
                session->setClientCapabilities(context.params.at("capabilities"));
        }
    }
    JSONValue result;
    result["protocolVersion"] = JSONValue(version);
    JSONValue &info = result["serverInfo"];
    info["name"] = JSONValue(m_config.name);
    info["version"] = JSONValue(m_config.version);
    info["title"] = JSONValue(m_config.title.empty() ? m_config.name : m_config.title);

    JSONValue capabilities = JSONValue(JSONValue::ObjectType{});
    // Log messages reach a client during its calls (and on its session's stream).
    capabilities["logging"] = JSONValue(JSONValue::ObjectType{});
    // The list changes are sent to every session's stream and over stdio.
    if (m_toolService->count() > 0)
        capabilities["tools"]["listChanged"] = JSONValue(true);
    if (m_resourceService->count() > 0) {
        capabilities["resources"]["listChanged"] = JSONValue(true);
        capabilities["resources"]["subscribe"] = JSONValue(true);
    }
    if (m_promptService->count() > 0)
        capabilities["prompts"]["listChanged"] = JSONValue(true);
    // Values for prompt arguments and template variables, where the records give some.
    if (m_promptService->count() > 0 || m_resourceService->count() > 0)
        capabilities["completions"] = JSONValue(JSONValue::ObjectType{});
    result["capabilities"] = std::move(capabilities);
    if (m_config.instructions)
        result["instructions"] = JSONValue(*m_config.instructions);
    return MCPServerMessage::createResponse(*context.message, std::move(result));
}

std::shared_ptr<MCPMessage> MCPServer::handleInitialized(const MCPContext &context)
{
    log(LogMessageType::Info, LogCode::Info, "Received notifications/initialized");
    return MCPServerMessage::createResponse(*context.message, JSONValue(JSONValue::ObjectType{}));
}

std::shared_ptr<MCPMessage> MCPServer::handlePing(const MCPContext &context)
{
    log(LogMessageType::Info, LogCode::Info, "Ping received");
    return MCPServerMessage::createResponse(*context.message, JSONValue(JSONValue::ObjectType{}));
}

std::shared_ptr<MCPMessage> MCPServer::handleSetLevel(const MCPContext &context)
{
    const JSONValue &params = context.params;
    const JSONValue *level = params.isObject() && params.contains("level") ? &params.at("level") : nullptr;
    const int index = level && level->isString() ? MCPSession::levelIndex(level->asString()) : -1;
    if (index < 0) {
        std::string names;
        for (std::string_view name : MCPSession::kLevels)
            names += (names.empty() ? "" : ", ") + std::string(name);
        return MCPServerMessage::createError(context.message->id, "Invalid params: level must be one of " + names,
                                             RPCCode::InvalidParams);
    }
    // A request without a session has nothing to remember it in; it is answered all the same.
    if (context.message->inSession) {
        if (const auto session = m_transport->session(context.sessionId))
            session->setLogLevel(index);
    }
    log(LogMessageType::Info, LogCode::Info, "Log level for the client set to " + level->asString());
    return MCPServerMessage::createResponse(*context.message, JSONValue(JSONValue::ObjectType{}));
}

std::shared_ptr<MCPMessage> MCPServer::handleCancelled(const MCPContext &context)
{
    const JSONValue &params = context.params;
    if (!params.isObject()) {
        log(LogMessageType::Error, LogCode::InvalidCancel, "Cancel notification has invalid params");
        return nullptr;
    }
    std::string requestId;
    std::string key;
    const JSONValue *idValue = params.contains("requestId") ? &params.at("requestId") : nullptr;
    if (idValue && idValue->isString() && !idValue->asString().empty()) {
        requestId = idValue->asString();
        key = RequestId::fromJSON(*idValue).key();
    } else if (idValue && idValue->isNumber()) {
        requestId = numberIdText(idValue->asNumber());
        key = RequestId::fromJSON(*idValue, requestId).key();
    } else {
        log(LogMessageType::Warning, LogCode::Info, "Cancel notification missing or invalid requestId");
        return nullptr;
    }
    std::string reason = "<none>";
    if (params.contains("reason") && params.at("reason").isString())
        reason = params.at("reason").asString();
    log(LogMessageType::Warning, LogCode::Info, "Cancel received for requestId=" + requestId + " reason=" + reason);
    if (!cancelRequest(key))
        log(LogMessageType::Info, LogCode::Info, "Cancel arrived after completion for requestId=" + requestId);
    return nullptr;
}

// ---- tools ----

template <class Build>
std::pair<std::shared_ptr<const std::string>, size_t> MCPServer::cachedList(ListCache &cache, uint64_t revision, Build build)
{
    {
        std::lock_guard lock(cache.mutex);
        if (cache.text && cache.revision == revision)
            return {cache.text, cache.count};
    }
    // Built outside the lock: a request that races a rebuild builds its own copy. A change
    // after `revision` was read leaves a newer list under the older revision, which the
    // next request replaces.
    auto [value, count] = build();
    std::string text;
    value.appendTo(text, 2);
    auto shared = std::make_shared<const std::string>(std::move(text));
    std::lock_guard lock(cache.mutex);
    cache.text = shared;
    cache.revision = revision;
    cache.count = count;
    return {shared, count};
}

namespace {

template <class Definition>
std::pair<JSONValue, size_t> listReply(const char *key, const std::vector<Definition> &items)
{
    JSONValue::ArrayType list;
    list.reserve(items.size());
    for (const auto &item : items)
        list.push_back(item.toJSON());
    JSONValue result;
    result[key] = JSONValue(std::move(list));
    return {std::move(result), items.size()};
}

}  // namespace

std::shared_ptr<MCPMessage> MCPServer::handleToolsList(const MCPContext &context)
{
    const auto [text, count] =
        cachedList(m_toolList, m_toolService->revision(), [this] { return listReply("tools", m_toolService->listTools()); });
    if (logs(LogMessageType::Info))
        log(LogMessageType::Info, LogCode::Info, "Tools list requested - count: " + std::to_string(count));
    auto response = MCPServerMessage::createResponse(*context.message, JSONValue());
    response->resultText = text;
    return response;
}

std::shared_ptr<MCPMessage> MCPServer::handleToolsCall(const MCPContext &context)
{
    const RequestId &id = context.message->id;
    auto fail = [&](int32_t code, const std::string &text) {
        log(LogMessageType::Error, LogCode::ToolCallFailed, text);
        return MCPServerMessage::createError(id, text, code);
    };
    const JSONValue &params = context.params;
    if (!params.isObject())
        return fail(RPCCode::ToolInvalidContext, "Tool call has invalid context parameter");
    if (!params.contains("name"))
        return fail(RPCCode::ToolMissingName, "Tool call missing 'name' parameter");
    const std::string &name = params.at("name").asString();  // a non-String raises: -32603
    if (name.empty())
        return fail(RPCCode::ToolEmptyName, "Tool name cannot be empty");
    const auto tool = m_toolService->findTool(name);
    if (!tool)
        return fail(RPCCode::ToolNotFound, "Could not find tool: " + name);

    // The definition must say where the call goes; the router reads that from its own copy
    // of the tool's configuration, so nothing of it is added to the client's arguments.
    if (tool->toolType.empty())
        return fail(RPCCode::ToolMissingType, "Tool object missing 'toolType' parameter");
    if (tool->execHandler.empty())
        return fail(RPCCode::ToolMissingHandler, "Tool object missing 'execHandler' parameter");
    if (tool->execMethod.empty())
        return fail(RPCCode::ToolMissingMethod, "Tool object missing 'execMethod' parameter");
    // Clients may leave out the arguments of a tool that takes none; arguments that are no
    // Object count as none. Otherwise they reach the tool as they came.
    static const JSONValue noArguments{JSONValue::ObjectType{}};
    const JSONValue &arguments =
        params.contains("arguments") && params.at("arguments").isObject() ? params.at("arguments") : noArguments;

    if (auto invalid = invalidArguments(*tool, arguments))
        return fail(RPCCode::InvalidParams, *invalid);

    const std::string key = id.key();
    const auto token = registerRequest(key);
    // A client that can hear nothing before the answer gets no reporter: nothing is built
    // for it. The reporter is closed before the answer leaves (the guard ends first).
    std::shared_ptr<RequestReporter> reporter;
    if (context.message->clientListens) {
        JSONValue progressToken;
        if (params.contains("_meta") && params.at("_meta").isObject() && params.at("_meta").contains("progressToken")) {
            const JSONValue &value = params.at("_meta").at("progressToken");
            if (value.isString() || value.isNumber())
                progressToken = value;
        }
        reporter = std::make_shared<RequestReporter>(
            *m_transport, context.sessionId, std::move(progressToken),
            context.message->inSession ? m_transport->session(context.sessionId) : nullptr, token);
    }
    struct Guard {
        MCPServer *server;
        const std::string &key;
        RequestReporter *reporter;
        ~Guard()
        {
            if (reporter)
                reporter->close();
            server->unregisterRequest(key);
        }
    } guard{this, key, reporter.get()};
    // The server's own lines about the call, for the client too when it listens at that level.
    auto tell = [&](LogMessageType type, int level, const std::string &text) {
        log(type, LogCode::Info, text);  // as before, whether the client listens or not
        if (reporter && reporter->hearsServerLines(level))
            reporter->log(std::string(MCPSession::kLevels[level]), JSONValue(text), "kelvara");
    };
    constexpr int kInfo = 1;
    constexpr int kWarning = 3;
    static_assert(MCPSession::kLevels[kInfo] == "info" && MCPSession::kLevels[kWarning] == "warning");

    if (token->isCancelled()) {
        log(LogMessageType::Warning, LogCode::Info, "Tool call cancelled before execution: " + name);
        return MCPServerMessage::createError(id, "Request cancelled", RPCCode::RequestCancelled);
    }
    tell(LogMessageType::Info, kInfo, "Executing tool: " + name);
    const CancellationToken::Scope currentToken(token.get());
    const ToolCallContext call{context.sessionId, id.text(), token.get(), reporter};
    JSONValue result = m_toolService->callTool(name, arguments, call);
    if (token->isCancelled()) {
        log(LogMessageType::Warning, LogCode::Info, "Tool call cancelled during execution: " + name);
        return MCPServerMessage::createError(id, "Request cancelled", RPCCode::RequestCancelled);
    }
    if (reporter && reporter->hearsServerLines(kWarning) && result.isObject() && result.contains("error") && result.at("error").isString())
        reporter->log("warning", JSONValue("Tool " + name + " failed: " + result.at("error").asString()), "kelvara");
    markFailure(result);
    return MCPServerMessage::createResponse(*context.message, std::move(result));
}

std::optional<std::string> MCPServer::invalidArguments(const ToolDefinition &tool, const JSONValue &arguments)
{
    // Only a schema kept as written is held to the letter; the older property list was
    // never checked and its types ("bool") are no JSON Schema names.
    if (!tool.inputSchema.document)
        return std::nullopt;
    const auto failure = JSONSchemaValidator(*tool.inputSchema.document).validate(arguments);
    if (!failure)
        return std::nullopt;
    return "Invalid arguments for tool '" + tool.name + "' at " +
           (failure->path.empty() ? std::string("the top level") : failure->path) + ": " + failure->message;
}

void MCPServer::markFailure(JSONValue &result)
{
    if (!result.isObject() || result.contains("isError"))
        return;
    bool failed = false;
    if (result.contains("structuredContent")) {
        const JSONValue &structured = result.at("structuredContent");
        failed = structured.isObject() && structured.contains("success") && structured.at("success").isBool() &&
                 !structured.at("success").asBool();
    }
    // An executor that failed answers {"error": text}, which clients show nothing of.
    if (result.contains("error") && result.at("error").isString()) {
        failed = true;
        if (!result.contains("content")) {
            JSONValue item;
            item["type"] = JSONValue("text");
            item["text"] = result.at("error");
            result["content"] = JSONValue(JSONValue::ArrayType{std::move(item)});
        }
    }
    if (failed)
        result["isError"] = JSONValue(true);
}

// ---- resources ----

std::shared_ptr<MCPMessage> MCPServer::handleResourcesList(const MCPContext &context)
{
    // Templates are listed by resources/templates/list only.
    const auto [text, count] = cachedList(m_resourceList, m_resourceService->revision(), [this] {
        std::vector<ResourceDefinition> plain = m_resourceService->listResources();
        std::erase_if(plain, [](const ResourceDefinition &resource) { return resource.type == "template"; });
        return listReply("resources", plain);
    });
    if (logs(LogMessageType::Info))
        log(LogMessageType::Info, LogCode::Info, "Resources list requested - count: " + std::to_string(count));
    auto response = MCPServerMessage::createResponse(*context.message, JSONValue());
    response->resultText = text;
    return response;
}

std::shared_ptr<MCPMessage> MCPServer::handleResourcesRead(const MCPContext &context)
{
    const RequestId &id = context.message->id;
    auto fail = [&](int32_t code, const std::string &text) {
        log(LogMessageType::Error, LogCode::ResourceReadFailed, text);
        return MCPServerMessage::createError(id, text, code);
    };
    const JSONValue &params = context.params;
    if (!params.isObject())
        return fail(RPCCode::ResourceInvalidParams, "Invalid ressource parameters");
    if (!params.contains("uri"))
        return fail(RPCCode::ResourceMissingUri, "Resource read missing 'uri' parameter");
    const JSONValue &uriValue = params.at("uri");
    if (!uriValue.isString() || uriValue.asString().empty())
        return fail(RPCCode::ResourceNotFound, "Resource URL must not be empty");
    const std::string &uri = uriValue.asString();
    log(LogMessageType::Info, LogCode::Info, "Reading resource: " + uri);
    auto found = m_resourceService->findResource(uri);
    if (!found)
        found = m_resourceService->matchTemplate(uri);
    if (!found) {
        const std::string text = "Resource object for '" + uri + "' not found";
        log(LogMessageType::Error, LogCode::ResourceReadFailed, text);
        JSONValue data;
        data["uri"] = JSONValue(uri);
        return MCPServerMessage::createError(id, text, RPCCode::ResourceUnknown, std::move(data));
    }
    const ResourceDefinition resource = m_resourceService->readResource(*found);
    if (!resource.data.error.empty())
        return fail(RPCCode::InternalError, "Failed to read resource '" + uri + "': " + resource.data.error);

    JSONValue content;
    content["id"] = JSONValue(context.sessionId);
    content["type"] = JSONValue(resource.type);
    content["name"] = JSONValue(resource.name);
    content["description"] = JSONValue(resource.description);
    content["uri"] = JSONValue(resource.uri);
    content["mimeType"] = JSONValue(resource.mimeType);
    content["content"] = JSONValue(resource.data.content);

    JSONValue result;
    if (resource.type == "template" && resource.variables.empty()) {
        result["resourceTemplates"] = JSONValue(JSONValue::ArrayType{std::move(content)});
    } else {
        // The resource's own text (or its bytes) where every client looks for it.
        if (!resource.data.blob.empty())
            content["blob"] = JSONValue(resource.data.blob);
        else
            content["text"] = JSONValue(resource.data.content);
        result["contents"] = JSONValue(JSONValue::ArrayType{std::move(content)});
    }
    result["status"] = JSONValue("success");
    return MCPServerMessage::createResponse(*context.message, std::move(result));
}

std::shared_ptr<MCPMessage> MCPServer::handleResourceTemplatesList(const MCPContext &context)
{
    JSONValue::ArrayType list;
    for (const ResourceDefinition &resource : m_resourceService->listResources())
        if (resource.type == "template")
            list.push_back(resource.templateJSON());
    if (logs(LogMessageType::Info))
        log(LogMessageType::Info, LogCode::Info, "Resource templates list requested - count: " + std::to_string(list.size()));
    JSONValue result;
    result["resourceTemplates"] = JSONValue(std::move(list));
    return MCPServerMessage::createResponse(*context.message, std::move(result));
}

std::shared_ptr<MCPMessage> MCPServer::handleCompletion(const MCPContext &context)
{
    auto fail = [&](const std::string &text) {
        log(LogMessageType::Error, LogCode::Info, text);
        return MCPServerMessage::createError(context.message->id, text, RPCCode::InvalidParams);
    };
    const JSONValue &params = context.params;
    auto text = [](const JSONValue &object, const char *key) -> std::string {
        return object.isObject() && object.contains(key) && object.at(key).isString() ? object.at(key).asString() : std::string();
    };
    if (!params.isObject() || !params.contains("ref") || !params.contains("argument"))
        return fail("Completion needs 'ref' and 'argument'");
    const JSONValue &ref = params.at("ref");
    const JSONValue &argument = params.at("argument");
    const std::string name = text(argument, "name");
    const std::string typed = text(argument, "value");
    if (name.empty())
        return fail("Completion argument has no name");

    std::vector<std::string> offered;
    // The arguments already given, for values that depend on them.
    JSONValue given;
    if (params.contains("context") && params.at("context").isObject() && params.at("context").contains("arguments"))
        given = params.at("context").at("arguments");
    const std::string kind = text(ref, "type");
    if (kind == "ref/prompt") {
        const auto prompt = m_promptService->findPrompt(text(ref, "name"));
        if (!prompt)
            return fail("Prompt not found: " + text(ref, "name"));
        for (const PromptArgument &entry : prompt->arguments)
            if (entry.name == name)
                offered = entry.valuesSource ? entry.valuesSource(name, typed, given) : entry.values;
    } else if (kind == "ref/resource") {
        const std::string uri = text(ref, "uri");
        const auto resource = m_resourceService->findResource(uri);
        if (!resource || resource->type != "template")
            return fail("Resource template not found: " + uri);
        if (resource->valuesSource)
            offered = resource->valuesSource(name, typed, given);
        else if (auto it = resource->completions.find(name); it != resource->completions.end())
            offered = it->second;
    } else {
        return fail("Unknown completion reference type: " + kind);
    }
    return MCPServerMessage::createResponse(*context.message, completionResult(offered, typed));
}

JSONValue MCPServer::completionResult(const std::vector<std::string> &offered, const std::string &typed)
{
    // What starts with what was typed, ignoring ASCII case; at most 100, as the protocol allows.
    auto lowered = [](std::string value) {
        for (char &c : value)
            if (c >= 'A' && c <= 'Z')
                c = static_cast<char>(c - 'A' + 'a');
        return value;
    };
    const std::string prefix = lowered(typed);
    JSONValue::ArrayType values;
    size_t total = 0;
    for (const std::string &value : offered) {
        if (!lowered(value).starts_with(prefix))
            continue;
        if (++total <= 100)
            values.emplace_back(value);
    }
    JSONValue result;
    result["completion"]["values"] = JSONValue(std::move(values));
    result["completion"]["total"] = JSONValue(static_cast<double>(total));
    result["completion"]["hasMore"] = JSONValue(total > 100);
    return result;
}

// ---- subscriptions ----

void MCPServer::addSubscriptionRoutes()
{
    m_router.addRoute("resources/subscribe", [this](const MCPContext &context) { return handleSubscription(context, true); });
    m_router.addRoute("resources/unsubscribe",
                      [this](const MCPContext &context) { return handleSubscription(context, false); });
}

std::shared_ptr<MCPMessage> MCPServer::handleSubscription(const MCPContext &context, bool subscribe)
{
    const RequestId &id = context.message->id;
    const char *const method = subscribe ? "resources/subscribe" : "resources/unsubscribe";
    auto fail = [&](int32_t code, const std::string &text, JSONValue data = JSONValue()) {
        log(LogMessageType::Error, LogCode::Info, text);
        return MCPServerMessage::createError(id, text, code, std::move(data));
    };
    const JSONValue &params = context.params;
    if (!params.isObject() || !params.contains("uri") || !params.at("uri").isString() || params.at("uri").asString().empty())
        return fail(RPCCode::InvalidParams, std::string(method) + " needs a 'uri'");
    const std::string &uri = params.at("uri").asString();
    // The updates go to the session's stream; a request without a session has none.
    const auto session = context.message->inSession ? m_transport->session(context.sessionId) : nullptr;
    if (!session)
        return fail(RPCCode::InvalidRequest, std::string(method) + " needs a session (initialize and send Mcp-Session-Id)");
    if (subscribe) {
        auto found = m_resourceService->findResource(uri);
        if (!found)
            found = m_resourceService->matchTemplate(uri);
        if (!found) {
            JSONValue data;
            data["uri"] = JSONValue(uri);
            return fail(RPCCode::ResourceUnknown, "Resource object for '" + uri + "' not found", std::move(data));
        }
        m_subscriptions.subscribe(session->id(), uri, found->type);
    } else {
        m_subscriptions.unsubscribe(session->id(), uri);
    }
    log(LogMessageType::Info, LogCode::Info, std::string(subscribe ? "Subscribed to " : "Unsubscribed from ") + uri);
    return MCPServerMessage::createResponse(*context.message, JSONValue(JSONValue::ObjectType{}));
}

void MCPServer::resourceChanged(const std::string &uri)
{
    const std::vector<std::string> sessions = m_subscriptions.listeners(uri);
    if (sessions.empty())
        return;
    JSONValue params;
    params["uri"] = JSONValue(uri);
    const std::string line = MCPServerMessage::notificationLine("notifications/resources/updated", params);
    for (const std::string &session : sessions)
        m_transport->sendToSession(session, line);
}

// ---- prompts ----

std::shared_ptr<MCPMessage> MCPServer::handlePromptsList(const MCPContext &context)
{
    const auto [text, count] = cachedList(m_promptList, m_promptService->revision(),
                                          [this] { return listReply("prompts", m_promptService->listPrompts()); });
    if (logs(LogMessageType::Info))
        log(LogMessageType::Info, LogCode::Info, "Prompts list requested - count: " + std::to_string(count));
    auto response = MCPServerMessage::createResponse(*context.message, JSONValue());
    response->resultText = text;
    return response;
}

std::shared_ptr<MCPMessage> MCPServer::handlePromptsGet(const MCPContext &context)
{
    const RequestId &id = context.message->id;
    auto fail = [&](int32_t code) {
        const std::string text = "Prompt name must not be empty";
        log(LogMessageType::Error, LogCode::PromptGetFailed, text);
        return MCPServerMessage::createError(id, text, code);
    };
    const JSONValue &params = context.params;
    if (params.isArray())
        return fail(RPCCode::InvalidParams);
    if (!params.isObject())
        return fail(RPCCode::PromptParamsNotObject);
    if (!params.contains("name"))
        return fail(RPCCode::PromptMissingName);
    const JSONValue &nameValue = params.at("name");
    if (!nameValue.isString() || nameValue.asString().empty())
        return fail(RPCCode::PromptEmptyName);
    const std::string &name = nameValue.asString();
    log(LogMessageType::Info, LogCode::Info, "Rendering prompt: " + name);
    // A prompt with a template is filled in here; one without goes to its renderer.
    std::string text;
    const std::optional<PromptDefinition> prompt = m_promptService->findPrompt(name);
    const JSONValue noValues;
    const JSONValue &values = params.contains("arguments") ? params.at("arguments") : noValues;
    if (!prompt) {
        const std::string message = "Prompt not found: " + name;
        log(LogMessageType::Error, LogCode::PromptGetFailed, message);
        return MCPServerMessage::createError(id, message, RPCCode::InvalidParams);
    }
    {
        if (const std::optional<std::string> missing = PromptTemplate::missingRequired(prompt->arguments, values)) {
            const std::string message = "Missing required argument '" + *missing + "' for prompt '" + name + "'";
            log(LogMessageType::Error, LogCode::PromptGetFailed, message);
            return MCPServerMessage::createError(id, message, RPCCode::InvalidParams);
        }
    }
    // A prompt with messages: the template, when there is one, as the first user message,
    // then the messages. Without: the template's (or the renderer's) one user message.
    const bool hasMessages = prompt->messages.isArray() && !prompt->messages.asArray().empty();
    JSONValue::ArrayType messages;
    if (!hasMessages || !prompt->template_.empty()) {
        if (!prompt->template_.empty())
            text = PromptTemplate::render(prompt->template_, prompt->arguments, values);
        else
            text = m_promptService->renderPrompt(name, params);
        JSONValue message;
        message["role"] = JSONValue("user");
        message["content"]["type"] = JSONValue("text");
        message["content"]["text"] = JSONValue(std::move(text));
        messages.push_back(std::move(message));
    }
    if (hasMessages) {
        JSONValue rendered = PromptTemplate::renderMessages(prompt->messages, prompt->arguments, values);
        for (JSONValue &message : rendered.asArray())
            messages.push_back(std::move(message));
    }
    JSONValue result;
    result["description"] = JSONValue("Rendered prompt");
    result["messages"] = JSONValue(std::move(messages));
    return MCPServerMessage::createResponse(*context.message, std::move(result));
}

}  // namespace MCP
