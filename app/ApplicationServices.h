#pragma once

#include <QString>
#include <chrono>
#include <memory>

class ConfigClipboard;
class ConfigControllers;
class ConfigurationController;
class LogController;
class MCPIntegrationHost;
class MCPIntegrationManager;
class MCPServer;
class MCPServerBridge;
class PersistenceController;
class PluginManagerController;
class PluginController;
class QSettings;
class ServerConfigController;
class StoreContext;
class StoredConfigurationLookup;

// The composition root: the one place that makes the application's services and hands them
// to what needs them, through their constructors. The desktop start-up and `kelvara serve`
// each make one on the main thread, after the application object, and keep it until the
// event loop has ended. In order: the log, the store, the tools' plug-in registry and call
// path, the engine bridge, the tool router, the configuration's export and import, the AI
// Chat's integrations (one for the application, shared by every chat window and the
// server screen), then on first use the controllers of the server, configuration and
// plug-in screens.
class ApplicationServices {
public:
    struct Locations {
        QString storePath;    // the SQLite file of the store
        QString exportRoot;   // where Start exports the configuration (empty: export fails)
        QString builtinRoot;  // the built-in configuration bundle
        // The application's own, under AppPaths.
        static Locations application();
    };

    explicit ApplicationServices(const Locations &locations = Locations::application());
    // Stops nothing by itself: the owner stops the server first (finish()).
    ~ApplicationServices();
    ApplicationServices(const ApplicationServices &) = delete;
    ApplicationServices &operator=(const ApplicationServices &) = delete;

    LogController *log() const { return m_log; }
    PersistenceController *store() const { return m_store.get(); }
    StoreContext *context() const;
    PluginController *plugins() const { return m_plugins.get(); }
    MCPServerBridge &bridge() const { return *m_bridge; }
    MCPServer &router() const { return *m_router; }
    ConfigurationController *configuration() const { return m_configuration.get(); }
    MCPIntegrationManager *integrations() const { return m_integrations.get(); }
    ConfigClipboard *clipboard() const;
    // Made on first use: `kelvara serve` makes it once its imports are done.
    ServerConfigController *server();
    ConfigControllers *configControllers();
    PluginManagerController *pluginManager();

    // The run's last act with the server: stops it and waits at most `limit` for the calls
    // still running and the engine's stop. True when none is left; then the services may be
    // destroyed. Afterwards the engine's lines go nowhere.
    bool finish(std::chrono::milliseconds limit);

private:
    LogController *m_log;
    std::unique_ptr<PersistenceController> m_store;
    std::unique_ptr<StoredConfigurationLookup> m_lookup;
    std::unique_ptr<PluginController> m_plugins;
    std::unique_ptr<MCPServerBridge> m_bridge;
    std::unique_ptr<MCPServer> m_router;
    std::unique_ptr<ConfigurationController> m_configuration;
    std::unique_ptr<QSettings> m_defaults;
    std::unique_ptr<MCPIntegrationHost> m_integrationHost;
    std::unique_ptr<MCPIntegrationManager> m_integrations;
    std::unique_ptr<ServerConfigController> m_server;
    std::unique_ptr<ConfigControllers> m_configControllers;
    std::unique_ptr<PluginManagerController> m_pluginManager;
};
