// A server for the transport's test under a low limit of open files: it lowers its own limit
// to 256, serves pings on a port of the system's choice with a receive limit of one second,
// prints the port on standard output and runs until it is killed. A process of its own, so
// that the test's many client sockets do not count against the limit.
#include "engine/MCPHttpTransport.h"
#include "engine/MCPServerMessage.h"

#include <cstdio>
#include <sys/resource.h>
#include <unistd.h>

using namespace MCP;

int main()
{
    const rlimit low{256, 256};
    if (::setrlimit(RLIMIT_NOFILE, &low) != 0)
        return 1;
    MCPHttpTransport server;
    server.setLogCallback([](LogMessageType, int32_t, const std::string &) {});
    MCPHttpPolicy policy;
    policy.receiveTimeout = std::chrono::seconds(1);
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
