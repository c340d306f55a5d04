#pragma once

#include "engine/CallReporter.h"
#include "engine/CancellationToken.h"

#include <memory>

#include <QString>

// The context of one tool call as the application's handlers get it, beside the client's
// arguments: the connection it came on, the request's id, and its cancellation token (null
// for a call that did not come through the server, such as the script editor's runs).
struct ToolInvocation {
    QString sessionId;
    QString requestId;
    const MCP::CancellationToken *token = nullptr;
    // Progress and log messages for the calling client; null outside a request.
    std::shared_ptr<MCP::CallReporter> reporter;
};
