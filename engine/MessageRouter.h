#pragma once

#include "engine/MCPContext.h"
#include "engine/MCPMessage.h"

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace MCP {

// Method name to route, plus middleware that may refuse a request. Both tables are
// filled before the server starts and only read afterwards, so dispatch takes no lock.
class MessageRouter {
public:
    // An empty pointer means "no reply".
    using Route = std::function<std::shared_ptr<MCPMessage>(const MCPContext &context)>;
    using Middleware = std::function<bool(std::string method, JSONValue params)>;

    void addRoute(const std::string &method, Route route);
    void addMiddleware(Middleware middleware);
    bool hasRoute(const std::string &method) const;

    // Middleware in order (the first refusal gives -32000), then the route (an unknown
    // method gives -32601, a standard error raised by the route -32603).
    std::shared_ptr<MCPMessage> dispatch(const MCPContext &context) const;

private:
    std::map<std::string, Route> m_routes;
    std::vector<Middleware> m_middleware;
};

}  // namespace MCP
