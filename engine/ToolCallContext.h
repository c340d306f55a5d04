#pragma once

#include "engine/CallReporter.h"
#include "engine/CancellationToken.h"

#include <memory>

#include <string>

namespace MCP {

// What a tool handler learns about the call beside the client's arguments: the call's
// connection and request, and its cancellation token. Kept apart from the arguments so that
// a tool may have parameters of any name.
struct ToolCallContext {
    std::string sessionId;  // the transport's connection id
    std::string requestId;  // the request's id as the client wrote it (digits or text)
    const CancellationToken *token = nullptr;  // null for a call made outside a request
    std::shared_ptr<CallReporter> reporter;    // null for a call made outside a request
};

}  // namespace MCP
