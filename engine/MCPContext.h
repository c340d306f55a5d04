#pragma once

#include "engine/JSONValue.h"
#include "engine/MCPMessage.h"

#include <memory>
#include <string>

namespace MCP {

// Built once per request and handed to the route.
struct MCPContext {
    std::string sessionId;  // the transport's connection id: a fresh UUID per HTTP request
    std::shared_ptr<MCPMessage> message;
    JSONValue params;
};

}  // namespace MCP
