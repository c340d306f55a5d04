#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace MCP {

// Who may talk to the HTTP transport and how much a connection may cost it. The defaults
// serve every local client and refuse what a web page or a stranger on the network could
// send: a browser's request carries an Origin, and a DNS-rebinding page a foreign Host.
struct MCPHttpPolicy {
    // Origins served besides the loopback ones (http or https on localhost, 127.0.0.1 or
    // [::1], any port), compared without case and without a trailing slash; "*" allows
    // every origin.
    std::vector<std::string> allowedOrigins;
    // When not empty, every request must carry "Authorization: Bearer <token>".
    std::string bearerToken;

    // Time to receive a whole request, head and body; also the longest a response may
    // wait for a peer that does not read. Zero: no limit.
    std::chrono::milliseconds receiveTimeout{std::chrono::seconds(30)};
    // Connections served at once; beyond it a new connection is answered 503 and closed.
    // Zero: derived from the process's limit of open files.
    size_t maxConnections = 0;
    // Connections served at once from one peer address; beyond it 503. Loopback counts like
    // any address: every local user's client comes from 127.0.0.1. Zero: a quarter of the
    // connection cap, at least 8.
    size_t maxConnectionsPerPeer = 0;
    // Largest body (413 beyond it) and largest request head (431 beyond it).
    size_t maxBodyBytes = 32u << 20;
    size_t maxHeadBytes = 64u << 10;
    // Bytes of requests held at once across all connections, heads and bodies, from their
    // first byte until their answer; a request that would pass it is answered 503. Zero: no
    // limit.
    size_t maxBufferedBytes = 256u << 20;
    // Refused requests and connections are logged once per interval for each reason; the
    // ones in between are counted into the next line.
    std::chrono::milliseconds refusalLogInterval{std::chrono::seconds(1)};

    // Persistent connections: several requests in turn on one connection, answered with
    // "Connection: keep-alive", closed after idleTimeout without a request or after
    // maxRequestsPerConnection requests. Off: one request per connection.
    bool keepAlive = false;
    std::chrono::milliseconds idleTimeout{std::chrono::seconds(5)};
    size_t maxRequestsPerConnection = 1000;

    // A session (issued by initialize as Mcp-Session-Id) ends after this long without a
    // request while no stream of it is open; its id is then answered 404. Zero: never.
    std::chrono::milliseconds sessionIdleTimeout{std::chrono::minutes(30)};

    static bool isLoopbackOrigin(std::string_view origin);
    // A Host header value naming this machine's loopback, with or without a port.
    static bool isLoopbackHost(std::string_view host);

    bool originAllowed(std::string_view origin) const;
    // The Authorization header's value; true when no token is required.
    bool authorizationAccepted(std::string_view authorization) const;
    // maxConnections, or when it is zero a share of the open-file limit that leaves room
    // for what the tools open themselves.
    size_t connectionCap() const;
    // maxConnectionsPerPeer, or when it is zero a quarter of connectionCap(), at least 8.
    size_t peerConnectionCap() const;
};

}  // namespace MCP
