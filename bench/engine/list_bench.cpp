// tools/list with many tools: the first reply after a change (built) and the ones after it
// (answered from the kept text), in-process, with the resident memory it takes; then the
// same cached reply over HTTP on a raw loopback socket (connect, request, read to the close).
#include "engine/MCPServer.h"
#include "engine/MCPMessage.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <malloc.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

using namespace MCP;

namespace {

long residentKiB()
{
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line))
        if (line.rfind("VmRSS:", 0) == 0)
            return std::stol(line.substr(6));
    return 0;
}

ToolDefinition tool(int i)
{
    ToolDefinition definition;
    definition.name = "tool_" + std::to_string(i);
    definition.description = "A tool of the benchmark, number " + std::to_string(i) + ", with a description of some length.";
    definition.toolType = "BuiltinTool";
    definition.execHandler = "FileAccessHandler";
    definition.execMethod = "readFile";
    definition.inputSchema.properties["file_path"] = {.type = "string", .description = "The file to read"};
    definition.inputSchema.properties["encoding"] = {.type = "string", .description = "Its encoding"};
    definition.inputSchema.required = {"file_path"};
    definition.outputSchema.properties["content"] = {.type = "string", .description = "The text"};
    definition.outputSchema.properties["success"] = {.type = "boolean", .description = "Whether it was read"};
    return definition;
}

double millisecondsOf(MCPServer &server, int id, size_t *bytes)
{
    const auto request = MCPMessage::parse(R"({"jsonrpc":"2.0","id":)" + std::to_string(id) + R"(,"method":"tools/list"})");
    const auto start = std::chrono::steady_clock::now();
    const auto response = server.process("bench", request);
    const std::string text = response->toString();  // what the transport sends
    const auto end = std::chrono::steady_clock::now();
    *bytes = text.size();
    return std::chrono::duration<double, std::milli>(end - start).count();
}

// One tools/list over a fresh connection, read to the server's close; milliseconds, and the
// bytes received through `bytes`.
double httpMilliseconds(int port, size_t *bytes)
{
    static const std::string body = R"({"jsonrpc":"2.0","id":1,"method":"tools/list"})";
    static const std::string request = "POST /mcp HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Type: application/json\r\n"
                                       "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
    const auto start = std::chrono::steady_clock::now();
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(uint16_t(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    size_t received = 0;
    if (::connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0 &&
        ::send(fd, request.data(), request.size(), MSG_NOSIGNAL) == ssize_t(request.size())) {
        static char buffer[1 << 16];
        for (ssize_t n; (n = ::recv(fd, buffer, sizeof buffer, 0)) > 0;)
            received += size_t(n);
    }
    ::close(fd);
    const auto end = std::chrono::steady_clock::now();
    *bytes = received;
    return std::chrono::duration<double, std::milli>(end - start).count();
}

}  // namespace

int main()
{
    // As kelvara does: buffers over 1 MiB are mappings of their own, so a copy of a large
    // answer costs page faults too.
    mallopt(M_MMAP_THRESHOLD, 1 << 20);
    std::printf("%-8s %12s %14s %14s %12s\n", "tools", "reply bytes", "first (ms)", "cached (ms)", "RSS (MiB)");
    for (const int count : {1000, 10000}) {
        MCPServer server;
        server.setLogLevel(LogMessageType::Info);
        for (int i = 0; i < count; ++i)
            server.getToolService()->registerTool(tool(i));
        size_t bytes = 0;
        const double first = millisecondsOf(server, 1, &bytes);
        std::vector<double> cached;
        for (int i = 0; i < 50; ++i)
            cached.push_back(millisecondsOf(server, 2 + i, &bytes));
        std::sort(cached.begin(), cached.end());
        std::printf("%-8d %12zu %14.2f %14.2f %12.1f\n", count, bytes, first, cached[cached.size() / 2], residentKiB() / 1024.0);
    }

    std::printf("\n%-8s %12s %14s %14s\n", "tools", "HTTP bytes", "HTTP p50 (ms)", "HTTP p90 (ms)");
    for (const int count : {1000, 10000}) {
        MCPServer server;
        server.setLogLevel(LogMessageType::Warning);
        for (int i = 0; i < count; ++i)
            server.getToolService()->registerTool(tool(i));
        if (!server.start(0, false)) {
            std::fprintf(stderr, "list_bench: the server did not start\n");
            return 1;
        }
        const int port = server.transport().listeningPort();
        size_t bytes = 0;
        httpMilliseconds(port, &bytes);  // builds and keeps the list
        std::vector<double> times;
        for (int i = 0; i < 100; ++i)
            times.push_back(httpMilliseconds(port, &bytes));
        std::sort(times.begin(), times.end());
        std::printf("%-8d %12zu %14.2f %14.2f\n", count, bytes, times[times.size() / 2], times[times.size() * 9 / 10]);
        server.stop();
    }
    return 0;
}
