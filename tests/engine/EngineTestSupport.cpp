#include "EngineTestSupport.h"

#include "engine/JSONParser.h"

#include <algorithm>
#include <stdexcept>
#include <arpa/inet.h>
#include <dirent.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace EngineTest {

namespace {
sockaddr_in loopback(int port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<uint16_t>(port));
    return address;
}

int entriesIn(const char *path)
{
    int count = 0;
    if (DIR *dir = ::opendir(path)) {
        while (const dirent *entry = ::readdir(dir))
            count += entry->d_name[0] != '.';
        ::closedir(dir);
    }
    return count;
}
}  // namespace

int freePort()
{
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address = loopback(0);
    ::bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address);
    socklen_t length = sizeof address;
    ::getsockname(fd, reinterpret_cast<sockaddr *>(&address), &length);
    ::close(fd);
    return ntohs(address.sin_port);
}

int connectTo(int port)
{
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = loopback(port);
    if (::connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) < 0) {
        ::close(fd);
        return -1;
    }
    return fd;
}

std::string readAll(int fd)
{
    std::string out;
    char buffer[4096];
    for (;;) {
        const ssize_t n = ::recv(fd, buffer, sizeof buffer, 0);
        if (n <= 0)
            break;
        out.append(buffer, static_cast<size_t>(n));
    }
    return out;
}

std::string roundTrip(int port, std::string_view raw)
{
    const int fd = sendRaw(port, raw);
    if (fd < 0)
        return {};
    std::string reply = readAll(fd);
    ::close(fd);
    return reply;
}

HttpReply parseReply(const std::string &raw)
{
    HttpReply reply;
    const size_t end = raw.find("\r\n\r\n");
    if (end == std::string::npos)
        return reply;
    reply.head = raw.substr(0, end + 4);
    reply.body = raw.substr(end + 4);
    if (raw.starts_with("HTTP/1.1 ") && raw.size() >= 12)
        reply.status = std::stoi(raw.substr(9, 3));
    return reply;
}

HttpReply post(int port, std::string_view body)
{
    std::string raw = "POST /mcp HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Type: application/json\r\nContent-Length: "
        + std::to_string(body.size()) + "\r\n\r\n";
    raw += body;
    return parseReply(roundTrip(port, raw));
}

int openDescriptorCount()
{
    return entriesIn("/proc/self/fd") - 1;  // the directory stream itself
}

int threadCount()
{
    return entriesIn("/proc/self/task");
}

std::string toolCall(uint64_t id, const std::string &name, const std::string &arguments)
{
    return R"({"jsonrpc":"2.0","id":)" + std::to_string(id) + R"(,"method":"tools/call","params":{"name":")" + name
        + R"(","arguments":)" + arguments + "}}";
}

MCP::ToolDefinition makeTool(const std::string &name, MCP::ToolHandler handler)
{
    MCP::ToolDefinition tool;
    tool.name = name;
    tool.toolType = "BuiltinTool";
    tool.execHandler = "handler";
    tool.execMethod = "method";
    tool.handler = std::move(handler);
    return tool;
}

MCP::ToolDefinition makeTextTool(const std::string &name, TextHandler handler)
{
    return makeTool(name, [handler = std::move(handler)](const MCP::JSONValue &arguments,
                                                        const MCP::ToolCallContext &) -> std::optional<MCP::JSONValue> {
        const std::optional<std::string> text = handler(arguments);
        if (!text)
            return std::nullopt;
        std::string error;
        auto value = MCP::JSONParser::parseDocument(*text, &error);
        if (!value)
            throw std::runtime_error("not JSON: " + error);
        return std::move(*value);
    });
}

int sendRaw(int port, std::string_view raw)
{
    const int fd = connectTo(port);
    if (fd >= 0)
        (void)::send(fd, raw.data(), raw.size(), MSG_NOSIGNAL);
    return fd;
}

bool waitFor(const std::function<bool()> &pred, std::chrono::milliseconds timeout)
{
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!pred()) {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

MCP::LogCallback LogRecorder::callback()
{
    return [this](MCP::LogMessageType type, int32_t code, const std::string &text) {
        std::lock_guard lock(m_mutex);
        m_lines.push_back({type, code, text});
    };
}

std::vector<LogRecorder::Line> LogRecorder::lines() const
{
    std::lock_guard lock(m_mutex);
    return m_lines;
}

bool LogRecorder::contains(int32_t code, std::string_view text) const
{
    const auto all = lines();
    return std::any_of(all.begin(), all.end(), [&](const Line &line) { return line.code == code && line.text == text; });
}

int LogRecorder::count(int32_t code) const
{
    const auto all = lines();
    return static_cast<int>(std::count_if(all.begin(), all.end(), [&](const Line &line) { return line.code == code; }));
}

void LogRecorder::clear()
{
    std::lock_guard lock(m_mutex);
    m_lines.clear();
}

void Latch::open()
{
    std::lock_guard lock(m_mutex);
    m_open = true;
    m_cv.notify_all();
}

bool Latch::wait(std::chrono::milliseconds timeout)
{
    std::unique_lock lock(m_mutex);
    return m_cv.wait_for(lock, timeout, [this] { return m_open; });
}

}  // namespace EngineTest
