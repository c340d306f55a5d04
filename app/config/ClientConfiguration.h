#pragma once

#include <QJsonObject>
#include <QString>
#include <optional>

// What MCP clients are configured with to reach Kelvara: the entry that launches
// `kelvara serve --stdio`, or the one that names the HTTP address and the token, alone or
// inside the {"mcpServers": {"kelvara": …}} document most clients read. `kelvara mcp-config`
// prints it and the Server screen copies it, so both always agree.
class ClientConfiguration {
public:
    static inline const QString serverKey = QStringLiteral("kelvara");

    // {"command": executable, "args": ["serve", "--stdio"]}
    static QJsonObject stdioEntry(const QString &executable);
    // {"type": type, "url": "http://HOST:PORT/mcp", "headers": {"Authorization": "Bearer T"}};
    // no headers without a token. Clients differ in the type they expect: "http" for most,
    // "streamable-http" for MCP Inspector.
    static QJsonObject httpEntry(const QString &host, int port, const std::optional<QString> &token,
                                 const QString &type = QStringLiteral("http"));
    // {"mcpServers": {"kelvara": entry}}
    static QJsonObject document(const QJsonObject &entry);

    // The host a client uses: loopback, or this machine's reachable address while the
    // server listens on all interfaces.
    static QString clientHost(bool listenAtAll);
    // 0.0.0.0 is where a server listens, not an address anyone can reach: others use an
    // address of this machine, the first IPv4 address of an interface that is up and not
    // loopback, else 127.0.0.1.
    static QString reachableHost();
};
