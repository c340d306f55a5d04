#include "app/ApplicationServices.h"

#include "app/config/ConfigClipboard.h"
#include "app/config/ConfigControllers.h"
#include "app/config/ServerConfigController.h"
#include "app/plugins/PluginManagerController.h"
#include "base/AppPaths.h"
#include "base/UserDefaults.h"
#include "chat/integrations/MCPIntegrationManager.h"
#include "chat/integrations/StoreIntegrationHost.h"
#include "diagnostics/LogController.h"
#include "engine/bridge/MCPServerBridge.h"
#include "store/ConfigurationController.h"
#include "store/PersistenceController.h"
#include "store/StoredConfigurationLookup.h"
#include "tools/plugins/PluginController.h"
#include "tools/router/MCPServer.h"
#include "tools/security/BookmarkController.h"

#include <QThreadPool>

ApplicationServices::Locations ApplicationServices::Locations::application()
{
    return {AppPaths::storePath(), ConfigurationController::applicationExportRoot(), AppPaths::builtinConfigurationDir()};
}

ApplicationServices::ApplicationServices(const Locations &locations)
    : m_log(LogController::shared()),
      m_store(std::make_unique<PersistenceController>(locations.storePath)),
      m_lookup(std::make_unique<StoredConfigurationLookup>(m_store->viewContext())),
      m_plugins(std::make_unique<PluginController>(BookmarkController::shared(), m_log)),
      m_bridge(std::make_unique<MCPServerBridge>()),
      m_router(std::make_unique<MCPServer>(m_log, m_bridge.get(), m_plugins.get())),
      m_configuration(std::make_unique<ConfigurationController>(m_store->viewContext(), m_router.get(),
                                                                locations.exportRoot, locations.builtinRoot)),
      m_defaults(UserDefaults::standard()),
      m_integrationHost(std::make_unique<StoreIntegrationHost>(m_store->viewContext(), m_router.get())),
      m_integrations(std::make_unique<MCPIntegrationManager>(*m_defaults, *m_integrationHost))
{
    // From now on scripts can read the stored resources and prompts.
    ConfigurationLookup::setShared(m_lookup.get());
}

ApplicationServices::~ApplicationServices()
{
    // The screens' controllers first, then what serves, the engine before the router its
    // handlers lead into, and the store last.
    m_pluginManager.reset();
    m_configControllers.reset();
    m_server.reset();
    m_integrations.reset();
    m_integrationHost.reset();
    m_configuration.reset();
    m_router->releaseBridge();
    m_bridge.reset();
    m_router.reset();
    m_plugins.reset();
    if (ConfigurationLookup::shared() == m_lookup.get())
        ConfigurationLookup::setShared(nullptr);
    m_lookup.reset();
    m_store.reset();
}

StoreContext *ApplicationServices::context() const
{
    return m_store->viewContext();
}

ConfigClipboard *ApplicationServices::clipboard() const
{
    return ConfigClipboard::shared();
}

ServerConfigController *ApplicationServices::server()
{
    if (!m_server)
        m_server = std::make_unique<ServerConfigController>(context(), m_configuration.get(), m_router.get(),
                                                            m_integrations.get());
    return m_server.get();
}

ConfigControllers *ApplicationServices::configControllers()
{
    if (!m_configControllers)
        m_configControllers = std::make_unique<ConfigControllers>(context(), clipboard());
    return m_configControllers.get();
}

PluginManagerController *ApplicationServices::pluginManager()
{
    if (!m_pluginManager)
        m_pluginManager = std::make_unique<PluginManagerController>(m_plugins.get());
    return m_pluginManager.get();
}

bool ApplicationServices::finish(std::chrono::milliseconds limit)
{
    const bool idle = m_bridge->waitUntilIdle(limit) &&
                      QThreadPool::globalInstance()->waitForDone(int(limit.count()));
    m_bridge->setLogHandler(nullptr);
    return idle;
}
