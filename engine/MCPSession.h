#pragma once

#include "engine/ClientRequests.h"
#include "engine/JSONValue.h"

#include <atomic>
#include <mutex>
#include <string>
#include <string_view>

namespace MCP {

// What the server remembers of one client between its requests: the protocol revision
// `initialize` settled on, the capabilities the client declared there, the least severe log
// level it wants to hear, and the requests the server has sent it and waits on. A transport
// keeps one per session (HTTP: per Mcp-Session-Id; stdio: the one peer) and closes its
// requests when the session ends.
class MCPSession {
public:
    // The protocol's log levels, least severe first (RFC 5424 names).
    static constexpr std::string_view kLevels[] = {"debug", "info", "notice", "warning",
                                                   "error", "critical", "alert", "emergency"};
    static constexpr int kDefaultLogLevel = 1;  // "info" until the client says otherwise

    // The index of a level's name in kLevels, or -1 for a name that is none of them.
    static constexpr int levelIndex(std::string_view name)
    {
        for (int i = 0; i < int(std::size(kLevels)); ++i) {
            if (kLevels[i] == name)
                return i;
        }
        return -1;
    }

    explicit MCPSession(std::string id) : m_id(std::move(id)) {}

    const std::string &id() const { return m_id; }

    int logLevel() const { return m_logLevel.load(std::memory_order_relaxed); }
    void setLogLevel(int level)
    {
        m_logLevel.store(level, std::memory_order_relaxed);
        m_levelChosen.store(true, std::memory_order_relaxed);
    }
    // Whether the client has chosen a level with logging/setLevel. The server's own lines
    // about a call go only to clients that did; a tool's own messages go to every client.
    bool levelChosen() const { return m_levelChosen.load(std::memory_order_relaxed); }
    // Whether a message at this level (an index into kLevels) reaches the client.
    bool hears(int level) const { return level >= logLevel(); }

    std::string protocolVersion() const
    {
        std::lock_guard lock(m_mutex);
        return m_protocolVersion;
    }
    void setProtocolVersion(std::string version)
    {
        std::lock_guard lock(m_mutex);
        m_protocolVersion = std::move(version);
    }

    // The client's `capabilities` from initialize (Null before it).
    JSONValue clientCapabilities() const
    {
        std::lock_guard lock(m_mutex);
        return m_clientCapabilities;
    }
    void setClientCapabilities(JSONValue capabilities)
    {
        std::lock_guard lock(m_mutex);
        m_clientCapabilities = std::move(capabilities);
    }
    // Whether the client declared this capability ("elicitation", "sampling"). The server
    // asks only with forms: a client whose elicitation names its modes must name "form"
    // (an empty object is forms alone).
    bool clientSupports(std::string_view capability) const
    {
        std::lock_guard lock(m_mutex);
        if (!m_clientCapabilities.isObject() || !m_clientCapabilities.contains(capability))
            return false;
        const JSONValue &declared = m_clientCapabilities.at(capability);
        if (!declared.isObject())
            return false;
        return capability != "elicitation" || declared.asObject().empty() || declared.contains("form");
    }

    ClientRequests &clientRequests() { return m_clientRequests; }

private:
    const std::string m_id;
    std::atomic<int> m_logLevel{kDefaultLogLevel};
    std::atomic<bool> m_levelChosen{false};
    mutable std::mutex m_mutex;
    std::string m_protocolVersion;
    JSONValue m_clientCapabilities;
    ClientRequests m_clientRequests;
};

}  // namespace MCP
