#pragma once

#include "engine/IMCPPromptService.h"
#include "engine/IMCPResourceService.h"
#include "engine/IMCPToolService.h"
#include "engine/MCPServerConfig.h"

#include <string>

namespace MCP {

// An MCP server: the three registries behind a transport. start and stop are called by the
// owner from one thread at a time; start while running fails (logged, code 3001). The
// registries may be changed from any thread while the server runs. The configuration
// setters take effect for the answers of later requests (initialize reports them).
class IMCPServer {
public:
    virtual ~IMCPServer() = default;
    virtual bool start(int port, bool listenAtAll) = 0;
    virtual void stop() = 0;
    virtual bool isRunning() const = 0;
    // The server keeps ownership of its services.
    virtual IMCPToolService *getToolService() = 0;
    virtual IMCPResourceService *getResourceService() = 0;
    virtual IMCPPromptService *getPromptService() = 0;
    virtual void setConfiguration(const MCPServerConfig &config) = 0;
    virtual MCPServerConfig getConfiguration() const = 0;
    virtual void setListenAtAll(bool listenAtAll) = 0;
    virtual void setServerName(const std::string &name) = 0;
    virtual void setServerVersion(const std::string &version) = 0;
    virtual std::string getServerName() const = 0;
    virtual std::string getServerVersion() const = 0;
};

}  // namespace MCP
