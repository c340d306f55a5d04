#pragma once

#include <atomic>

namespace MCP {

// Cooperative cancellation of one tool call: set by a cancel notification on another
// connection, tested by the call before and after the tool runs.
struct CancellationToken {
    std::atomic<bool> cancelled{false};

    void cancel() { cancelled.store(true); }
    bool isCancelled() const { return cancelled.load(); }
};

}  // namespace MCP
