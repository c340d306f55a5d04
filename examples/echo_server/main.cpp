// echo_server: the MCP engine on its own. Serves one tool `echo` (gives back its `text`
// argument), one resource and one prompt over HTTP until SIGINT or SIGTERM, or over
// standard input and output until the input ends.
//
//   echo_server --port N [--listen-all] [--keep-alive] [--reporting] [--verbose]
//   echo_server --stdio [--reporting] [--verbose]
//
// --reporting adds two tools that show what a server says on its own: `count` reports its
// progress and log messages at several levels before it answers, and `add_tool` registers
// one more tool (clients that listen hear that the list changed).

#include "engine/JSONValue.h"
#include "engine/MCPHttpTransport.h"
#include "engine/MCPServer.h"
#include "engine/MCPStdioTransport.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <mutex>
#include <pthread.h>
#include <string>
#include <thread>
#include <unistd.h>

using namespace MCP;

namespace {

const char *kUsage = "usage: echo_server --port N [--listen-all] [--keep-alive] [--reporting] [--verbose]\n"
                     "       echo_server --stdio [--reporting] [--verbose]\n";

// The result object that an MCP client expects: text content for people and the same
// value as structured content, which the tool's output schema describes.
std::optional<JSONValue> echoTool(const JSONValue &arguments, const ToolCallContext &)
{
    std::string text;
    if (arguments.contains("text") && arguments.at("text").isString())
        text = arguments.at("text").asString();
    JSONValue item;
    item["type"] = JSONValue("text");
    item["text"] = JSONValue(text);
    JSONValue result;
    result["content"] = JSONValue(JSONValue::ArrayType{item});
    result["structuredContent"]["text"] = JSONValue(text);
    return result;
}

void registerEcho(IMCPServer &server)
{
    ToolDefinition echo;
    echo.name = "echo";
    echo.title = "Echo";
    echo.description = "Returns the text it is given.";
    // The router requires where a call goes; this server has a single built-in handler.
    echo.toolType = "BuiltinTool";
    echo.execHandler = "echo";
    echo.execMethod = "echo";
    echo.annotations.audience = {"user", "assistant"};
    echo.annotations.priority = 0.9;
    echo.inputSchema.properties["text"] = ToolSchemaProperty{"string", "The text to echo", std::nullopt, std::nullopt, std::nullopt};
    echo.inputSchema.required = std::vector<std::string>{"text"};
    echo.outputSchema.properties["text"] = ToolSchemaProperty{"string", "The same text", std::nullopt, std::nullopt, std::nullopt};
    echo.outputSchema.required = std::vector<std::string>{"text"};
    echo.handler = echoTool;
    server.getToolService()->registerTool(echo);

    ResourceDefinition readme;
    readme.uri = "echo://readme";
    readme.name = "readme";
    readme.description = "What this server does";
    readme.mimeType = "text/plain";
    readme.type = "text";
    readme.metadata = {"", "", "echo_server", "1.0"};
    readme.data.format = "text/plain";
    readme.provider = [](const ResourceDefinition &definition) {
        ResourceDefinition filled = definition;
        filled.data.content = "echo_server serves the tool 'echo', this resource and the prompt 'greeting'.";
        filled.data.size = std::to_string(filled.data.content.size());
        return filled;
    };
    server.getResourceService()->registerResource(readme);

    PromptDefinition greeting;
    greeting.name = "greeting";
    greeting.description = "Greets someone by name";
    greeting.arguments = {{"name", "Who to greet", true}};
    greeting.template_ = "Say hello to {{name}}.";
    greeting.renderer = [](const JSONValue &params) {
        std::string name = "world";
        if (params.contains("arguments") && params.at("arguments").contains("name")
            && params.at("arguments").at("name").isString())
            name = params.at("arguments").at("name").asString();
        return "Say hello to " + name + ".";
    };
    server.getPromptService()->registerPrompt(greeting);
}

ToolDefinition plainTool(const std::string &name, const std::string &description)
{
    ToolDefinition tool;
    tool.name = name;
    tool.description = description;
    tool.toolType = "BuiltinTool";
    tool.execHandler = "echo_server";
    tool.execMethod = name;
    return tool;
}

std::optional<JSONValue> textResult(const std::string &text)
{
    JSONValue item;
    item["type"] = JSONValue("text");
    item["text"] = JSONValue(text);
    JSONValue result;
    result["content"] = JSONValue(JSONValue::ArrayType{item});
    return result;
}

void registerReporting(IMCPServer &server)
{
    ToolDefinition count = plainTool("count", "Counts to 'steps' (3), reporting each step, and logs at several levels; "
                                              "'pause_ms' is the work each step takes (0).");
    count.handler = [](const JSONValue &arguments, const ToolCallContext &call) {
        int steps = 3;
        if (arguments.contains("steps") && arguments.at("steps").isNumber())
            steps = std::clamp(static_cast<int>(arguments.at("steps").asNumber()), 0, 100);
        int pause = 0;
        if (arguments.contains("pause_ms") && arguments.at("pause_ms").isNumber())
            pause = std::clamp(static_cast<int>(arguments.at("pause_ms").asNumber()), 0, 1000);
        if (call.reporter) {
            for (const char *level : {"debug", "info", "warning", "error"})
                call.reporter->log(level, JSONValue(std::string("count says ") + level), "count");
            for (int i = 1; i <= steps; ++i) {
                std::this_thread::sleep_for(std::chrono::milliseconds(pause));
                call.reporter->progress(i, steps, "step " + std::to_string(i));
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(pause));
        }
        return textResult("counted to " + std::to_string(steps));
    };
    server.getToolService()->registerTool(count);

    ToolDefinition add = plainTool("add_tool", "Registers one more tool named 'name'.");
    IMCPServer *target = &server;
    add.handler = [target](const JSONValue &arguments, const ToolCallContext &) {
        const std::string name = arguments.contains("name") && arguments.at("name").isString() ? arguments.at("name").asString()
                                                                                              : std::string("added");
        ToolDefinition added = plainTool(name, "Added while the server runs.");
        added.handler = [name](const JSONValue &, const ToolCallContext &) { return textResult(name); };
        target->getToolService()->registerTool(added);
        return textResult("added " + name);
    };
    server.getToolService()->registerTool(add);
}

}  // namespace

int main(int argc, char **argv)
{
    int port = -1;
    bool listenAll = false;
    bool verbose = false;
    bool stdio = false;
    bool keepAlive = false;
    bool reporting = false;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--port" && i + 1 < argc) {
            char *end = nullptr;
            const long value = std::strtol(argv[++i], &end, 10);
            if (!end || *end != '\0' || value < 1 || value > 65535) {
                std::fprintf(stderr, "echo_server: invalid port '%s'\n%s", argv[i], kUsage);
                return 2;
            }
            port = static_cast<int>(value);
        } else if (arg == "--listen-all") {
            listenAll = true;
        } else if (arg == "--keep-alive") {
            keepAlive = true;
        } else if (arg == "--reporting") {
            reporting = true;
        } else if (arg == "--stdio") {
            stdio = true;
        } else if (arg == "--verbose") {
            verbose = true;
        } else if (arg == "--help" || arg == "-h") {
            std::fputs(kUsage, stdout);
            return 0;
        } else {
            std::fprintf(stderr, "echo_server: unknown argument '%s'\n%s", arg.c_str(), kUsage);
            return 2;
        }
    }
    if ((port < 0) == !stdio) {
        std::fputs(kUsage, stderr);
        return 2;
    }

    // Block the stop signals before any thread starts, so that every thread inherits the
    // mask and only sigwait below receives them.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

    // Over stdio the transport is plugged in from here; standard output then carries the
    // protocol alone, and the end of input stops the server as a signal would.
    std::unique_ptr<IMCPTransport> transport;
    if (!stdio) {
        // HTTP keeps the defaults of the engine's policy; --keep-alive keeps connections open.
        auto http = std::make_unique<MCPHttpTransport>();
        MCPHttpPolicy policy;
        policy.keepAlive = keepAlive;
        http->setPolicy(policy);
        transport = std::move(http);
    } else {
        auto stdioTransport = std::make_unique<MCPStdioTransport>();
        stdioTransport->setClosedHandler([] { ::kill(::getpid(), SIGTERM); });
        transport = std::move(stdioTransport);
    }
    MCPServer server(std::move(transport));
    std::mutex logMutex;
    server.setLogCallback([&logMutex](LogMessageType type, int32_t code, const std::string &message) {
        static const char *names[] = {"critical", "error", "warning", "info", "debug"};
        std::lock_guard lock(logMutex);
        std::fprintf(stderr, "[%s] %d %s\n", names[static_cast<int>(type)], code, message.c_str());
    });
    // Per-request lines cost time under load: by default only warnings and failures are
    // printed; --verbose prints everything, the traffic included.
    server.setLogLevel(verbose ? LogMessageType::Debug : LogMessageType::Warning);

    MCPServerConfig config;
    config.port = static_cast<uint16_t>(stdio ? 0 : port);
    config.name = "echo_server";
    config.title = "Echo Server";
    config.version = "1.0.0";
    config.instructions = "Call the tool 'echo' with a 'text' argument.";
    config.listenAtAll = listenAll;
    server.setConfiguration(config);
    registerEcho(server);
    if (reporting)
        registerReporting(server);

    if (!server.start(stdio ? 0 : port, listenAll))
        return 1;
    std::FILE *status = stdio ? stderr : stdout;
    if (stdio)
        std::fprintf(status, "echo_server serving on standard input and output\n");
    else
        std::fprintf(status, "echo_server listening on %s:%d\n", listenAll ? "0.0.0.0" : "127.0.0.1", port);
    std::fflush(status);

    int signal = 0;
    sigwait(&stopSignals, &signal);
    server.stop();
    std::fprintf(status, "echo_server stopped\n");
    return 0;
}
