#pragma once

#include <QString>
#include <optional>

// Where the MCP server of a running Kelvara listens, kept in the shared settings file
// while it runs, so that a `kelvara serve --stdio` refused by the store's lock can relay to
// it. The record names its process: one left behind by a process that died is recognised
// by the caller comparing it with the store lock's holder.
class RunningServer {
public:
    static inline const QString pidKey = QStringLiteral("mcp.server.running.pid");
    static inline const QString portKey = QStringLiteral("mcp.server.running.port");

    struct Record {
        qint64 pid = 0;
        int port = 0;
    };

    // This process serves on port.
    static void publish(int port);
    // This process no longer serves; another process's record stays.
    static void withdraw();
    static std::optional<Record> read();
};
