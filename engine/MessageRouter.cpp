#include "engine/MessageRouter.h"

#include "engine/MCPCodes.h"

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
            return MCPServerMessage::createError(message.id, "Middleware rejected request", RPCCode::MiddlewareRejected);
    }
    auto it = m_routes.find(message.method);
    if (it == m_routes.end())
        return MCPServerMessage::createError(message.id, "Method not found: " + message.method, RPCCode::MethodNotFound);
    try {
        return it->second(context);
    } catch (const std::exception &e) {
        return MCPServerMessage::createError(message.id, std::string("Internal error: ") + e.what(), RPCCode::InternalError);
    }
}

}  // namespace MCP
