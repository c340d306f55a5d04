#pragma once

#include "engine/ClientRequests.h"
#include "engine/JSONValue.h"

#include <chrono>
#include <optional>
#include <string>

namespace MCP {

// What one tool call tells its client before the answer (progress and log messages) and
// what it asks the client (elicitation, sampling). The server makes one per request and
// hands it to the handler in its ToolCallContext.
//
// Threads: any thread may call it while the handler runs (a script's worker, a plug-in's
// thread); once the call has been answered or cancelled every method does nothing, so a
// late report from a thread that outlived its call is harmless. Only request() waits on the
// peer, and only as long as its caller lets it.
class CallReporter {
public:
    virtual ~CallReporter() = default;

    // notifications/progress for the request's _meta.progressToken; nothing when the
    // request carried none. progress should grow from call to call; total is left out of
    // the message when unknown, and so is an empty message.
    virtual void progress(double progress, std::optional<double> total, const std::string &message) = 0;

    // notifications/message when `level` (an RFC 5424 name the protocol uses: "debug",
    // "info", "notice", "warning", "error", "critical", "alert", "emergency") is at or
    // above the level the client's session set with logging/setLevel. logger may be empty.
    virtual void log(const std::string &level, const JSONValue &data, const std::string &logger) = 0;

    // True when progress() would send something (the request carried a token).
    virtual bool wantsProgress() const = 0;

    // Ends the stream that carries these messages to the client now, asking it to come back
    // after `retry` for the rest and the answer (HTTP with a session whose client resumes
    // streams). The call goes on; what it says from here waits for the client. False, and
    // nothing changes, where the client cannot resume or the call is over.
    virtual bool closeStream(std::chrono::milliseconds retry)
    {
        (void)retry;
        return false;
    }
    // Whether the calling client declared this capability ("elicitation", "sampling") when
    // it initialized its session. A client without a session declared nothing.
    virtual bool clientSupports(const std::string &capability) const
    {
        (void)capability;
        return false;
    }
    // Sends a request to the calling client and waits for its response: until it comes, the
    // call is cancelled, the client's session ends, or `stop` (asked every so often) gives a
    // reason. The reply says which. The caller checks clientSupports first.
    virtual ClientRequests::Reply request(const std::string &method, const JSONValue &params,
                                          const ClientRequests::StopCheck &stop)
    {
        (void)method;
        (void)params;
        (void)stop;
        ClientRequests::Reply reply;
        reply.error = "no client to ask";
        return reply;
    }
};

}  // namespace MCP
