#pragma once

#include "engine/CancellationToken.h"
#include "engine/IMCPServer.h"
#include "engine/IMCPTransport.h"
#include "engine/LogMessageType.h"
#include "engine/MCPContext.h"
#include "engine/MessageRouter.h"
#include "engine/ResourceSubscriptions.h"

#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <string>
#include <unordered_map>

namespace MCP {

class MCPToolService;
class MCPResourceService;
class MCPPromptService;

// The MCP server: owns the transport, the three registries, the router and the table of
// cancellable tool calls, and turns each request into its response. Every request stands
// alone; `initialize` is answered but not required. A tool call the client can hear about
// before its answer gets a reporter for progress and log messages; while running, a change
// of a registry's list is told to every client that listens, once per burst of changes.
class MCPServer : public IMCPServer {
public:
    // Serves over the given transport; without one, over HTTP (MCPHttpTransport).
    explicit MCPServer(std::unique_ptr<IMCPTransport> transport = nullptr);
    ~MCPServer() override;

    MCPServer(const MCPServer &) = delete;
    MCPServer &operator=(const MCPServer &) = delete;

    bool start(int port, bool listenAtAll) override;
    void stop() override;
    bool isRunning() const override;
    IMCPToolService *getToolService() override;
    IMCPResourceService *getResourceService() override;
    IMCPPromptService *getPromptService() override;
    void setConfiguration(const MCPServerConfig &config) override;
    MCPServerConfig getConfiguration() const override;
    void setListenAtAll(bool listenAtAll) override;
    void setServerName(const std::string &name) override;
    void setServerVersion(const std::string &version) override;
    std::string getServerName() const override;
    std::string getServerVersion() const override;

    // Stores the callback and hands a copy to the transport. Called on worker threads.
    void setLogCallback(LogCallback callback);
    // Lines less severe than this level are neither built nor delivered (default: all).
    // A server under load that only wants its warnings skips the per-request text.
    void setLogLevel(LogMessageType level);
    // Where list-changed callbacks run; with none set they run on the calling thread.
    void setMainQueuePoster(MainQueuePoster poster);

    // Middleware must be added before the server starts.
    void addMiddleware(MessageRouter::Middleware middleware);

    // The transport's message handler: context, log lines, dispatch, response.
    void handleMessage(const std::string &connectionId, std::shared_ptr<MCPMessage> message);
    // The same without the transport: gives the response, or an empty pointer for none.
    std::shared_ptr<MCPMessage> process(const std::string &sessionId, std::shared_ptr<MCPMessage> message);

    // Resource subscriptions: the watch hears when a URI gains its first subscriber and loses
    // its last one (unsubscribe, the session's end, the server's stop); whoever watches the
    // source calls resourceChanged, from any thread, and each subscribed session is told.
    void setResourceWatch(ResourceSubscriptions::Watch watch) { m_subscriptions.setWatch(std::move(watch)); }
    void resourceChanged(const std::string &uri);
    const ResourceSubscriptions &subscriptions() const { return m_subscriptions; }

    IMCPTransport &transport() { return *m_transport; }
    // Serves over another transport from the next start on. Only while stopped.
    void setTransport(std::unique_ptr<IMCPTransport> transport);

private:
    void setupRoutes();
    bool logs(LogMessageType type) const;
    void log(LogMessageType type, int32_t code, const std::string &text) const;

    std::shared_ptr<CancellationToken> registerRequest(const std::string &key);
    void unregisterRequest(const std::string &key);
    bool cancelRequest(const std::string &key);

    std::shared_ptr<MCPMessage> handleInitialize(const MCPContext &context);
    std::shared_ptr<MCPMessage> handleInitialized(const MCPContext &context);
    std::shared_ptr<MCPMessage> handlePing(const MCPContext &context);
    std::shared_ptr<MCPMessage> handleSetLevel(const MCPContext &context);
    std::shared_ptr<MCPMessage> handleCancelled(const MCPContext &context);
    std::shared_ptr<MCPMessage> handleToolsList(const MCPContext &context);
    std::shared_ptr<MCPMessage> handleToolsCall(const MCPContext &context);
    std::shared_ptr<MCPMessage> handleResourcesList(const MCPContext &context);
    std::shared_ptr<MCPMessage> handleResourcesRead(const MCPContext &context);
    std::shared_ptr<MCPMessage> handlePromptsList(const MCPContext &context);
    std::shared_ptr<MCPMessage> handlePromptsGet(const MCPContext &context);
    // A failed tool result (structured success false, or an executor's {"error": text})
    // gets "isError": true, and the error's text as content when it has none.
    static void markFailure(JSONValue &result);
    // Resource templates and completions, beside the routes above.
    void addContentRoutes();
    std::shared_ptr<MCPMessage> handleResourceTemplatesList(const MCPContext &context);
    std::shared_ptr<MCPMessage> handleCompletion(const MCPContext &context);
    // resources/subscribe and resources/unsubscribe.
    void addSubscriptionRoutes();
    std::shared_ptr<MCPMessage> handleSubscription(const MCPContext &context, bool subscribe);
    // The completion/complete result: the offered values that start with what was typed.
    static JSONValue completionResult(const std::vector<std::string> &offered, const std::string &typed);
    // Why the arguments do not meet the tool's input schema (the first failing path), or nothing.
    static std::optional<std::string> invalidArguments(const ToolDefinition &tool, const JSONValue &arguments);

    // A list reply in its serial form, kept until its registry's revision changes.
    struct ListCache {
        std::mutex mutex;
        uint64_t revision = 0;
        size_t count = 0;
        std::shared_ptr<const std::string> text;
    };
    // The cached text and item count for the revision, built by `build` when stale.
    template <class Build>
    static std::pair<std::shared_ptr<const std::string>, size_t> cachedList(ListCache &cache, uint64_t revision, Build build);

    // List changes: the registries mark what changed, and a thread of the running server
    // tells the clients after a short quiet spell, so a burst is told once.
    enum ListBit : unsigned { ToolsChanged = 1, ResourcesChanged = 2, PromptsChanged = 4 };
    void listChanged(unsigned bits);
    void announceChanges();
    void stopAnnouncing();
    std::mutex m_changesMutex;
    std::condition_variable m_changesCondition;
    unsigned m_changedLists = 0;
    bool m_announcing = false;
    std::thread m_announcer;

    ListCache m_toolList;
    ListCache m_resourceList;
    ListCache m_promptList;
    std::unique_ptr<MCPToolService> m_toolService;
    std::unique_ptr<MCPResourceService> m_resourceService;
    std::unique_ptr<MCPPromptService> m_promptService;
    std::unique_ptr<IMCPTransport> m_transport;
    MessageRouter m_router;
    ResourceSubscriptions m_subscriptions;
    MCPServerConfig m_config;
    bool m_running = false;
    LogCallback m_logCallback;
    LogMessageType m_logLevel = LogMessageType::Debug;
    std::unordered_map<std::string, std::shared_ptr<CancellationToken>> m_activeRequests;
    std::mutex m_activeRequestsMutex;
};

}  // namespace MCP
