#pragma once

#include "engine/LogMessageType.h"
#include "engine/MCPTypes.h"

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace EngineTest {

// A free TCP port on 127.0.0.1.
int freePort();
// A blocking TCP connection to 127.0.0.1:port, or -1.
int connectTo(int port);
// Sends raw bytes, then reads until the server closes; gives everything read.
std::string roundTrip(int port, std::string_view raw);
// Connects and sends raw bytes; gives the open descriptor, or -1.
int sendRaw(int port, std::string_view raw);
// Reads until the peer closes.
std::string readAll(int fd);

struct HttpReply {
    int status = 0;
    std::string head;
    std::string body;
};
HttpReply parseReply(const std::string &raw);
// POSTs a JSON body with Content-Length and reads the whole reply.
HttpReply post(int port, std::string_view body);

// A JSON-RPC tools/call request text.
std::string toolCall(uint64_t id, const std::string &name, const std::string &arguments = "{}");
// A tool with every execution field set, so that calls reach the handler.
MCP::ToolDefinition makeTool(const std::string &name, MCP::ToolHandler handler);
// A handler that writes its result as JSON text, for brevity; the text is parsed into the
// value the tool gives (a text that is no JSON throws, as a failing tool would).
using TextHandler = std::function<std::optional<std::string>(const MCP::JSONValue &arguments)>;
MCP::ToolDefinition makeTextTool(const std::string &name, TextHandler handler);

// Counts of this process's open descriptors and threads, from /proc/self.
int openDescriptorCount();
int threadCount();

// Polls pred every few milliseconds until it holds or the time is up.
bool waitFor(const std::function<bool()> &pred, std::chrono::milliseconds timeout = std::chrono::seconds(5));

// Collects log lines from any thread.
class LogRecorder {
public:
    struct Line {
        MCP::LogMessageType type;
        int32_t code;
        std::string text;
    };

    MCP::LogCallback callback();
    std::vector<Line> lines() const;
    bool contains(int32_t code, std::string_view text) const;
    int count(int32_t code) const;
    void clear();

private:
    mutable std::mutex m_mutex;
    std::vector<Line> m_lines;
};

// A gate that slow test tools wait on.
class Latch {
public:
    void open();
    // False when the time ran out first.
    bool wait(std::chrono::milliseconds timeout = std::chrono::seconds(10));

private:
    std::mutex m_mutex;
    std::condition_variable m_cv;
    bool m_open = false;
};

}  // namespace EngineTest
