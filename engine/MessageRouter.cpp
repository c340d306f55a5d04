#include "engine/MessageRouter.h"

#include "engine/MCPServerMessage.h"

#include <exception>

namespace MCP {

void MessageRouter::addRoute(const std::string &method, Route route)
{
    m_routes.insert_or_assign(method, std::move(route));
}

void MessageRouter::addMiddleware(Middleware middleware)
{
    m_middleware.push_back(std::move(middleware));
}

bool MessageRouter::hasRoute(const std::string &method) const
{
    return m_routes.contains(method);
}

std::shared_ptr<MCPMessage> MessageRouter::dispatch(const MCPContext &context) const
{
    const MCPMessage &message = *context.message;
    for (const auto &middleware : m_middleware) {
        if (!middleware(message.method, message.params))
            return MCPServerMessage::createError(message.id, "Middleware rejected request", -32000);
    }
    auto it = m_routes.find(message.method);
    if (it == m_routes.end())
        return MCPServerMessage::createError(message.id, "Method not found: " + message.method, -32601);
    try {
        return it->second(context);
    } catch (const std::exception &e) {
        return MCPServerMessage::createError(message.id, std::string("Internal error: ") + e.what(), -32603);
    }
}

}  // namespace MCP
