#pragma once

#include <QString>
#include <QStringList>
#include <QVariantMap>
#include <optional>

// The HTTP listener's access rules and limits as the user keeps them in the user defaults,
// and the policy they give the engine. Safe by default: web pages are refused unless their
// origin is allowed, and a server on all interfaces asks every client for a token.
// Any thread (the user defaults are).
class ServerAccessSettings {
public:
    static inline const QString allowedOriginsKey = QStringLiteral("mcp.server.allowedOrigins");
    static inline const QString tokenKey = QStringLiteral("mcp.server.token");
    // Whether a server on all interfaces asks for the token; absent reads as true.
    static inline const QString requireTokenKey = QStringLiteral("mcp.server.requireToken");
    // Whether a loopback-only server asks for it too; absent reads as true, since every
    // other user of this computer can reach 127.0.0.1.
    static inline const QString tokenOnLoopbackKey = QStringLiteral("mcp.server.tokenOnLoopback");
    static inline const QString receiveTimeoutKey = QStringLiteral("mcp.server.receiveTimeout");
    static inline const QString maxConnectionsKey = QStringLiteral("mcp.server.maxConnections");
    static inline const QString maxBodyBytesKey = QStringLiteral("mcp.server.maxBodyBytes");
    // Connections from one address at once (0 when absent: a quarter of maxConnections, at
    // least 8) and the bytes all requests together may hold (256 MiB).
    static inline const QString maxConnectionsPerPeerKey = QStringLiteral("mcp.server.maxConnectionsPerPeer");
    static inline const QString maxBufferedBytesKey = QStringLiteral("mcp.server.maxBufferedBytes");
    // Persistent connections (off when absent), their idle time in seconds (5) and the
    // requests one connection may carry (1000).
    static inline const QString keepAliveKey = QStringLiteral("mcp.server.keepAlive");
    static inline const QString idleTimeoutKey = QStringLiteral("mcp.server.idleTimeout");
    static inline const QString maxRequestsPerConnectionKey = QStringLiteral("mcp.server.maxRequestsPerConnection");
    // Seconds an HTTP session may go without a request before it ends (1800; 0: never).
    static inline const QString sessionIdleTimeoutKey = QStringLiteral("mcp.server.sessionIdleTimeout");
    static constexpr double defaultSessionIdleTimeout = 1800;

    static constexpr double defaultReceiveTimeout = 30;
    static constexpr qint64 defaultMaxBodyBytes = qint64(32) << 20;
    static constexpr qint64 defaultMaxBufferedBytes = qint64(256) << 20;

    static inline const QString tokenOffWarning = QStringLiteral(
        "Without a token, anyone who can reach this computer on the network can call every tool.");
    static inline const QString loopbackTokenOffWarning = QStringLiteral(
        "Without a token, every other user and program on this computer can call every tool, "
        "reading and writing your files as you.");

    static QStringList allowedOrigins();
    // Trims, drops blanks, duplicates and trailing slashes.
    static void setAllowedOrigins(const QStringList &origins);
    // An origin as a browser sends it ("https://app.example:3000"), or "*"; otherwise the
    // reason it is not one.
    static std::optional<QString> originProblem(const QString &origin);

    // The token, made and stored on first use: 32 random bytes, base64url.
    static QString token();
    // A new token replaces the old one, which stops working at the next start.
    static QString renewToken();

    static bool requireToken();
    static void setRequireToken(bool value);
    static bool tokenOnLoopback();
    static void setTokenOnLoopback(bool value);
    // Whether a server that listens so asks for the token; override replaces the stored
    // requirement for one run (kelvara serve --no-token).
    static bool tokenRequired(bool listenAtAll, std::optional<bool> override = std::nullopt);

    static bool keepAlive();
    static void setKeepAlive(bool value);

    // The engine's policy (see MCPServerBridge::setAccessPolicy) for a server that listens
    // so, with extra origins allowed for this run, and this run's choices of the token
    // requirement and of persistent connections.
    static QVariantMap policy(bool listenAtAll, const QStringList &extraOrigins = {},
                              std::optional<bool> tokenOverride = std::nullopt,
                              std::optional<bool> keepAliveOverride = std::nullopt);
};
