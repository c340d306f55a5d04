#include "app/config/ConfigControllers.h"

#include "app/config/ConfigClipboard.h"
#include "app/config/PromptConfigController.h"
#include "app/config/ResourceConfigController.h"
#include "app/config/ToolsConfigController.h"

ConfigControllers::ConfigControllers(StoreContext *context, ConfigClipboard *clipboard, QObject *parent)
    : QObject(parent),
      m_tools(new ToolsConfigController(context, clipboard, this)),
      m_resources(new ResourceConfigController(context, clipboard, this)),
      m_prompts(new PromptConfigController(context, clipboard, this))
{
}
