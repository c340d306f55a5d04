#pragma once

#include "engine/JSONValue.h"
#include "engine/RequestId.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>

namespace MCP {

class MCPMessage;

// The requests the server has sent to one client (elicitation, sampling) and is waiting on.
// A session holds one: the ids it gives are unique within the session, and the client's
// response, whichever connection carries it, is matched to its waiter by id.
//
// Threads: open and wait run on the thread of the call that asks (wait blocks it); answer
// comes from the thread that read the response, close from the one that ends the session.
class ClientRequests {
public:
    // What became of one request.
    struct Reply {
        bool answered = false;    // the client sent a result (which may still say "decline")
        JSONValue result;         // the result, when answered
        std::string error;        // why not: the client's error, or why the wait ended
        int32_t code = 0;         // the client's error code; 0 when the wait ended on our side
    };
    // Asked while waiting: a reason to stop waiting now, or nothing to go on.
    using StopCheck = std::function<std::optional<std::string>()>;

    // How often a waiter asks its StopCheck.
    static constexpr std::chrono::milliseconds kLookInterval{100};

    // A fresh id for a request about to be sent; its answer is kept for wait. Nothing once
    // closed (the session has ended).
    std::optional<uint64_t> open();
    // The client's response (a message without a method): true when a request waited under
    // its id, which then gets it; false for an unknown or already answered id.
    bool answer(const MCPMessage &response);
    // Waits for the answer to an opened id until it comes, the table is closed, or stop
    // gives a reason. The id is forgotten whatever the outcome.
    Reply wait(uint64_t id, const StopCheck &stop);
    // Forgets an id whose request could not be sent.
    void abandon(uint64_t id);
    // Ends every wait with this reason, now and for requests opened later.
    void close(const std::string &reason);
    // Takes requests again after close (a transport started anew).
    void reopen();

    // Requests waiting now.
    size_t waiting() const;

private:
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    uint64_t m_nextId = 1;
    std::unordered_map<std::string, std::optional<Reply>> m_open;  // by RequestId::key
    std::optional<std::string> m_closed;
};

}  // namespace MCP
