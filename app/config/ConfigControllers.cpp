#include "app/config/ConfigControllers.h"

#include "app/config/ConfigClipboard.h"
#include "app/config/PromptConfigController.h"
#include "app/config/ResourceConfigController.h"
#include "app/config/ToolsConfigController.h"
#include "store/PersistenceController.h"

#include <QCoreApplication>
#include <QPointer>

namespace {
QPointer<ConfigControllers> &installed()
{
    static QPointer<ConfigControllers> controllers;
    return controllers;
}
}  // namespace

ConfigControllers::ConfigControllers(StoreContext *context, ConfigClipboard *clipboard, QObject *parent)
    : QObject(parent),
      m_tools(new ToolsConfigController(context, clipboard, this)),
      m_resources(new ResourceConfigController(context, clipboard, this)),
      m_prompts(new PromptConfigController(context, clipboard, this))
{
}

ConfigControllers *ConfigControllers::shared()
{
    if (!installed()) {
        // Owned by the application object, so it goes before the store it works on.
        installed() = new ConfigControllers(PersistenceController::shared()->viewContext(), ConfigClipboard::shared(),
                                            QCoreApplication::instance());
    }
    return installed();
}

void ConfigControllers::install(ConfigControllers *controllers)
{
    installed() = controllers;
}
