#pragma once

#include "engine/MCPMessage.h"

#include <functional>
#include <memory>
#include <string>

namespace MCP {

class IMCPTransport {
public:
    using MessageHandler = std::function<void(const std::string &connectionId, std::shared_ptr<MCPMessage> message)>;

    virtual ~IMCPTransport() = default;
    virtual bool start(int port, bool listenAtAll) = 0;
    virtual void stop() = 0;
    virtual bool isRunning() const = 0;
    // The handler answers through sendResponse before it returns: a request it leaves
    // unanswered (a notification) is acknowledged with 202 Accepted and its socket closed.
    virtual void setMessageHandler(MessageHandler handler) = 0;
    virtual void sendResponse(const std::string &connectionId, std::shared_ptr<MCPMessage> message) = 0;
};

}  // namespace MCP
