#pragma once

#include "engine/LogMessageType.h"
#include "engine/MCPMessage.h"
#include "engine/MCPSession.h"

#include <chrono>
#include <functional>
#include <memory>
#include <string>

namespace MCP {

// How messages reach the server and answers leave it. The server owns its transport; the
// transport calls the message handler for every request it receives, each on a thread of
// its own choosing (several at once), and the handler answers through sendResponse before
// it returns. A request it leaves unanswered (a notification) is acknowledged as the
// transport's protocol does it.
//
// Threads: start, stop and the setters are called by the server's owner, never from inside
// the handler; setMessageHandler, setLogCallback and setLogLevel only while stopped.
// sendResponse may be called from any worker at any time, also for a connection that has
// gone away (it is then dropped). stop returns once no new request will reach the handler;
// a stopped transport may be started again.
class IMCPTransport {
public:
    using MessageHandler = std::function<void(const std::string &connectionId, std::shared_ptr<MCPMessage> message)>;

    virtual ~IMCPTransport() = default;
    // port and listenAtAll mean what they say for a network transport; others ignore them.
    // False when the transport cannot start (the reason goes to the log callback).
    virtual bool start(int port, bool listenAtAll) = 0;
    virtual void stop() = 0;
    virtual bool isRunning() const = 0;
    virtual void setMessageHandler(MessageHandler handler) = 0;
    virtual void sendResponse(const std::string &connectionId, std::shared_ptr<MCPMessage> message) = 0;
    // Lines of the transport's own; with no callback a transport may write them to stderr.
    virtual void setLogCallback(LogCallback callback) = 0;
    // Lines less severe than this level are neither built nor delivered.
    virtual void setLogLevel(LogMessageType level) = 0;
    // The port a network transport listens on once started (the system's choice for port
    // 0); -1 for others.
    virtual int listeningPort() const { return -1; }
    // Why the last start failed, in a line for the user; empty when it did not.
    virtual std::string startFailure() const { return {}; }
    // The owner's last act before it tears down what the handler uses: stops, ends threads
    // that wait on peers, and waits at most `limit` until no thread of the transport is
    // left (inside the handler or answering). True when none is; the transport is not
    // started again afterwards.
    virtual bool waitUntilIdle(std::chrono::milliseconds limit)
    {
        (void)limit;
        stop();
        return true;
    }

    // What the server says on its own. `text` is one JSON-RPC message on one line.
    //
    // A message about the request on this connection, sent before its answer while the
    // request is being handled (never after sendResponse for it). A transport that cannot
    // put it before the answer may send it on the request's session instead, or drop it.
    virtual void notify(const std::string &connectionId, const std::string &text)
    {
        (void)connectionId;
        (void)text;
    }
    // Ends the stream that carries the messages of the request on this connection before
    // its answer, telling the client when to come back for the rest (`retry`); the rest
    // then waits for it. False when the transport cannot do that for this request.
    virtual bool closeStream(const std::string &connectionId, std::chrono::milliseconds retry)
    {
        (void)connectionId;
        (void)retry;
        return false;
    }
    // A message for every client that can hear one outside a request (list changes).
    virtual void broadcast(const std::string &text) { (void)text; }
    // The session the request on this connection belongs to; null when it has none.
    virtual std::shared_ptr<MCPSession> session(const std::string &connectionId)
    {
        (void)connectionId;
        return nullptr;
    }
    // A message for one session outside a request (a subscribed resource changed); dropped
    // when the session has ended.
    virtual void sendToSession(const std::string &sessionId, const std::string &text)
    {
        (void)sessionId;
        (void)text;
    }
    // Told the id of each session that ends (deleted or expired), so that what was kept
    // for it goes too. Set while stopped; called on any thread.
    virtual void setSessionEndedHandler(std::function<void(const std::string &sessionId)> handler) { (void)handler; }
};

}  // namespace MCP
