// A server for the transport's tests that need one in a process of its own: so that the
// test's many client sockets do not count against its open-file limit, and so that its
// memory can be read apart from the test's. It serves pings on a port of the system's
// choice with a receive limit of one second, prints the port on standard output and runs
// until it is killed.
//
//   engine_server_process [--open-files N] [--token TOKEN]
#include "engine/MCPHttpTransport.h"
#include "engine/MCPServerMessage.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/resource.h>
#include <unistd.h>

using namespace MCP;

int main(int argc, char **argv)
{
    MCPHttpPolicy policy;
    policy.receiveTimeout = std::chrono::seconds(1);
    for (int i = 1; i + 1 < argc; i += 2) {
        if (std::strcmp(argv[i], "--open-files") == 0) {
            const rlimit low{std::strtoul(argv[i + 1], nullptr, 10), std::strtoul(argv[i + 1], nullptr, 10)};
            if (::setrlimit(RLIMIT_NOFILE, &low) != 0)
                return 1;
        } else if (std::strcmp(argv[i], "--token") == 0) {
            policy.bearerToken = argv[i + 1];
        } else {
            return 2;
        }
    }
    MCPHttpTransport server;
    server.setLogCallback([](LogMessageType, int32_t, const std::string &) {});
    server.setPolicy(policy);
    server.setMessageHandler([&server](const std::string &id, std::shared_ptr<MCPMessage> message) {
        server.sendResponse(id, MCPServerMessage::createResponse(*message, JSONValue(JSONValue::ObjectType{})));
    });
    if (!server.start(0, false))
        return 1;
    std::printf("%d\n", server.port());
    std::fflush(stdout);
    for (;;)
        ::pause();
}
