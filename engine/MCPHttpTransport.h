#pragma once

#include "engine/IMCPTransport.h"
#include "engine/LogMessageType.h"
#include "engine/MCPHttpPolicy.h"

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

namespace MCP {

// The engine's HTTP/1.1 listener on raw sockets: one request per connection, one JSON
// body back, then close (keep-alive when the policy says so). Any path serves.
//
// Sessions: an `initialize` request without Mcp-Session-Id is answered with a new one (128
// random bits from the kernel, in hex). A request carrying it belongs to that session; an
// unknown, deleted or expired id gets 404 with a JSON-RPC error body. A request without
// the header is served statelessly, byte for byte as before sessions. DELETE with the
// header ends the session (200). A GET with the header and `Accept: text/event-stream`
// opens the session's stream: messages not tied to a request (list changes, and what a
// call says while its client takes only JSON), each with an event id; a new GET replaces
// the stream, and with Last-Event-ID replays what came after that id from a bounded
// backlog (without it, what no stream has written yet). Idle streams get ": ping" comments.
// A GET without a session gets 405.
//
// A POST whose call says something before its answer is answered as text/event-stream
// from its first such message on, when its Accept names text/event-stream: the messages,
// then the answer, then the connection closes. Otherwise they go to the session's stream,
// or, for a stateless request, are dropped.
//
// In a session such a stream can be resumed. Its events have ids "<stream>-<n>" (the
// session's GET stream keeps plain numbers), and the session keeps them until the answer
// has reached the client. For a session that settled on 2025-11-25 or later, the stream
// begins with a priming event (its id, empty data), and closeStream may end it early with
// a `retry:` hint while the call runs; a GET with that session and Last-Event-ID
// "<stream>-<n>" then receives the call's events after n, up to and including the answer,
// and closes. An id of a stream the session no longer holds (answered and delivered, or
// never issued) gets 400 with a JSON-RPC error body.
//
// Where the protocol leaves the choice open: a request for which the handler produces no
// response (a valid cancel notification) is answered "202 Accepted" with an empty body
// and closed at once; a content-length that is not a decimal number fails the read (code
// 1005); a request still being read when stop comes is closed without an answer.
//
// Every request passes the policy (see MCPHttpPolicy) before anything of it runs: who asks
// (repeated Origin, Host, Authorization or framing headers, origin, host, token) is settled
// on the head alone, before a byte of the body is read; a refused request is answered 400,
// 401, 403, 408, 413, 431 or 503 with a JSON-RPC error body and closed, and logged at most
// once an interval for each reason, with the count of the others. Bodies count against a
// budget across all connections while they are held, and each peer address against its own
// cap of connections. A request within the policy sees exactly the bytes above.
//
// Without keep-alive, nothing behind a request's declared end is read: a request pipelined
// behind it is not taken for its body, and the connection closes after the one answer.
//
// Worker threads accept for themselves and serve what they accepted; one of them is always
// waiting for the next connection (a new thread starts when the last one takes a
// connection), up to the policy's cap of open connections, so a slow tool blocks only its
// own connection. Workers idle for two seconds end while another one waits. Workers keep the state they need alive
// through a shared pointer, and the destructor waits until the last of them is gone, so
// no worker ever touches a dead transport.
class MCPHttpTransport : public IMCPTransport {
public:
    MCPHttpTransport();
    ~MCPHttpTransport() override;

    MCPHttpTransport(const MCPHttpTransport &) = delete;
    MCPHttpTransport &operator=(const MCPHttpTransport &) = delete;

    bool start(int port, bool listenAtAll) override;
    void stop() override;
    bool isRunning() const override;
    bool waitUntilIdle(std::chrono::milliseconds limit) override;
    void setMessageHandler(MessageHandler handler) override;
    void sendResponse(const std::string &connectionId, std::shared_ptr<MCPMessage> message) override;
    void notify(const std::string &connectionId, const std::string &text) override;
    void broadcast(const std::string &text) override;
    std::shared_ptr<MCPSession> session(const std::string &connectionId) override;
    void sendToSession(const std::string &sessionId, const std::string &text) override;
    void setSessionEndedHandler(std::function<void(const std::string &)> handler) override;
    // Ends the event stream of the request on this connection now, with a `retry:` hint;
    // what the call says from here on, and its answer, wait in its session for the client
    // to resume. False (and nothing changes) for a request without a session, a session
    // below 2025-11-25, a client that takes only JSON, or a request already answered.
    bool closeStream(const std::string &connectionId, std::chrono::milliseconds retry) override;
    // Sessions open now (expired ones count until they are next looked at).
    size_t sessionCount() const;

    // With no callback, lines go to stderr with the prefix "[MCPTransport] ".
    void setLogCallback(LogCallback callback) override;
    // Default: all lines.
    void setLogLevel(LogMessageType level) override;
    // Applies to connections accepted from now on; the connection cap is fixed at start.
    void setPolicy(MCPHttpPolicy policy);
    MCPHttpPolicy policy() const;

    // The port listened on: the system's choice when started with port 0.
    int port() const { return m_port; }
    int listeningPort() const override { return m_port; }
    std::string startFailure() const override;
    // Connections waiting for their response (handed to the handler, not yet answered).
    size_t pendingConnectionCount() const;
    // Connections accepted and not yet closed (counted against the cap).
    size_t openConnectionCount() const;
    // Bytes of requests held now across all connections (counted against the budget).
    size_t bufferedByteCount() const;

    // The complete response text: status line, the fixed header lines with the CORS
    // lines and "Connection: close", a blank line, the body.
    static std::string buildResponse(int status, std::string_view contentType, std::string_view body);
    // extraHeaders: whole header lines, each ending in CRLF, put before the blank line;
    // keepAlive says "Connection: keep-alive" in place of "Connection: close".
    static std::string buildResponse(int status, std::string_view contentType, std::string_view body,
                                     std::string_view extraHeaders, bool keepAlive = false);
    // {"jsonrpc":"2.0","id":null,"error":{"code":-32000,"message":...}}: the body of a refusal.
    // The status line and headers of buildResponse for a body of contentLength bytes sent
    // apart; reserveBody makes room to append that body.
    static std::string buildResponseHead(int status, std::string_view contentType, size_t contentLength,
                                         std::string_view extraHeaders = {}, bool keepAlive = false,
                                         size_t reserveBody = 0);
    // The answer to a browser's CORS preflight of an admitted origin.
    static std::string buildPreflightResponse(bool keepAlive = false);
    static std::string refusalBody(std::string_view message);
    static const char *reasonPhrase(int status);

    struct Shared;
    struct Listener;
    struct HttpSession;
    struct CallStream;
    // A request handed to the handler and not yet taken back by its worker.
    struct Pending {
        int fd = -1;
        bool keepOpen = false;  // the connection stays open after the answer
        bool answered = false;  // sendResponse wrote the answer (only kept when keepOpen)
        bool stopped = false;   // stop shut the connection down (only kept when keepOpen or streaming)
        bool acceptsStream = false;  // the client's Accept names text/event-stream
        bool streaming = false;      // the answer has begun as an event stream
        bool issued = false;         // the answer carries the new session's id
        uint64_t events = 0;         // events written on a stream without a session
        std::string sessionId;       // empty for a stateless request
        std::shared_ptr<HttpSession> session;  // the session's state, when it has one
        std::shared_ptr<CallStream> call;      // the resumable stream, once streaming in a session
    };

private:
    std::shared_ptr<Listener> m_listener;  // while running; under m_lifecycleMutex
    int m_port = 0;
    std::string m_startFailure;  // under m_lifecycleMutex
    std::shared_ptr<Shared> m_shared;
    mutable std::mutex m_lifecycleMutex;  // start and stop from different threads take turns
};

}  // namespace MCP
