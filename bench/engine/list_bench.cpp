// tools/list with many tools: the first reply after a change (built) and the ones after it
// (answered from the kept text), in-process, with the resident memory it takes.
#include "engine/MCPServer.h"
#include "engine/MCPMessage.h"

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

}  // namespace

int main()
{
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
    return 0;
}
