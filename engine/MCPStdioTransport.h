#pragma once

#include "engine/IMCPTransport.h"
#include "engine/LogMessageType.h"

#include <atomic>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace MCP {

// MCP's stdio transport: newline-delimited JSON-RPC messages read from one file descriptor
// (standard input by default) and answers written to another (standard output), one line
// each and nothing else. Hosts that launch their servers as child processes speak it.
//
// A reader thread reads lines as they arrive and hands each message to the handler on a
// thread of its own, so a slow tool does not hold up a ping or the cancel that ends it;
// answers are written whole, one at a time, in the order they are finished. A line that is
// not a JSON-RPC message is answered with a parse error (-32700, id null) and reading goes
// on. Notifications ("notifications/...") are handled on the reader thread, in order, and
// never answered. End of input (or a read error) waits for the answers still being made, then calls the
// closed handler once, on the reader thread. The transport ignores SIGPIPE while it runs
// (a host that goes away must not kill the process); a write to a closed output is dropped.
// The server's own messages (progress, log messages, list changes) are lines like the
// answers, each written whole under the same lock; the one peer is the one session.
class MCPStdioTransport : public IMCPTransport {
public:
    // The largest line read; a longer one is answered with an error and skipped.
    static constexpr size_t kDefaultMaxMessageBytes = 32 * 1024 * 1024;

    explicit MCPStdioTransport(int inputFd = 0, int outputFd = 1);
    ~MCPStdioTransport() override;

    MCPStdioTransport(const MCPStdioTransport &) = delete;
    MCPStdioTransport &operator=(const MCPStdioTransport &) = delete;

    // port and listenAtAll are ignored. False when already running.
    bool start(int port, bool listenAtAll) override;
    // Stops reading (a line being read is dropped) and waits for running handlers.
    void stop() override;
    bool isRunning() const override;
    bool waitUntilIdle(std::chrono::milliseconds limit) override;
    void setMessageHandler(MessageHandler handler) override;
    void sendResponse(const std::string &connectionId, std::shared_ptr<MCPMessage> message) override;
    // With no callback, lines go to stderr with the prefix "[MCPStdio] ".
    void setLogCallback(LogCallback callback) override;
    void setLogLevel(LogMessageType level) override;
    void notify(const std::string &connectionId, const std::string &text) override;
    void broadcast(const std::string &text) override;
    std::shared_ptr<MCPSession> session(const std::string &connectionId) override;
    // The one session: the line goes out like a broadcast.
    void sendToSession(const std::string &sessionId, const std::string &text) override;

    // Called once when the input has ended and every request read before has been answered;
    // set while stopped.
    void setClosedHandler(std::function<void()> handler);
    void setMaxMessageBytes(size_t bytes);

    // The one-line form of a message: its text without the layout's line breaks.
    static std::string lineOf(const MCPMessage &message);

private:
    bool waitForWorkers(std::chrono::milliseconds limit);
    void readLoop();
    void handleLine(std::string line);
    void writeLine(const std::string &line);
    void log(LogMessageType type, int32_t code, const std::string &text) const;

    const int m_inputFd;
    const int m_outputFd;
    int m_wakePipe[2] = {-1, -1};
    std::atomic<bool> m_running{false};
    std::atomic<bool> m_stopping{false};
    std::thread m_reader;
    MessageHandler m_handler;
    std::function<void()> m_closedHandler;
    LogCallback m_logCallback;
    LogMessageType m_logLevel = LogMessageType::Debug;
    size_t m_maxMessageBytes = kDefaultMaxMessageBytes;

    const std::shared_ptr<MCPSession> m_session = std::make_shared<MCPSession>("stdio");
    std::mutex m_writeMutex;
    bool m_outputClosed = false;

    // Handlers under way; stop and end of input wait for them.
    std::mutex m_workersMutex;
    std::condition_variable m_workersDone;
    int m_workers = 0;
    uint64_t m_nextConnection = 0;
};

}  // namespace MCP
