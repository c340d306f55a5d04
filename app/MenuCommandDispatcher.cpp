#include "app/MenuCommandDispatcher.h"

#include "app/MenuCommandTarget.h"
#include "app/MenuVisibility.h"
#include "base/AbstractController.h"

#include <QCoreApplication>
#include <QPointer>

MenuCommandDispatcher *MenuCommandDispatcher::shared()
{
    static MenuCommandDispatcher *instance = new MenuCommandDispatcher(QCoreApplication::instance());
    return instance;
}

MenuCommandDispatcher::MenuCommandDispatcher(QObject *parent) : QObject(parent) {}

void MenuCommandDispatcher::registerHandler(MenuCommand command, Handler handler)
{
    m_handlers.insert(command, std::move(handler));
    emit handlersChanged();
}

void MenuCommandDispatcher::unregisterHandler(MenuCommand command)
{
    if (m_handlers.remove(command))
        emit handlersChanged();
}

bool MenuCommandDispatcher::isConfigurationDestination(std::optional<MenuDestination> destination)
{
    return destination == MenuDestination::menuPromptConfig || destination == MenuDestination::menuResourceConfig
           || destination == MenuDestination::menuToolConfig;
}

MenuCommandDispatcher::State MenuCommandDispatcher::state(MenuCommand command, const MenuCommandContext &context) const
{
    const MenuCommandInfo &info = MenuCommands::info(command);
    State s;
    s.title = info.title;
    const AbstractController *controller = context.controller;
    const bool screenHandles = context.target && context.target->handlesCommand(command);

    switch (command) {
    case MenuCommand::NewItem:
        // Every built destination shows the item under its own label; only a screen that
        // adds items enables it.
        s.title = MenuDestinations::newItemLabel(context.destination.value_or(MenuDestination::menuAbout));
        s.visible = context.target && context.target->isFeatureBuilt();
        s.enabled = screenHandles && controller && controller->canAdd();
        break;
    case MenuCommand::Save:
    case MenuCommand::SaveAs:
        s.visible = screenHandles;
        s.enabled = controller && controller->canSave();
        break;
    case MenuCommand::Duplicate:
        s.visible = isConfigurationDestination(context.destination) && controller;
        s.enabled = controller && controller->canCopy();
        break;
    case MenuCommand::Find:
    case MenuCommand::FindNext:
    case MenuCommand::FindPrevious:
    case MenuCommand::Replace:
    case MenuCommand::EditorSettings:
    case MenuCommand::RunScript:
        s.visible = context.destination == MenuDestination::menuScriptEditor && screenHandles;
        s.enabled = true;
        break;
    case MenuCommand::ShowServer:
    case MenuCommand::ShowPrompts:
    case MenuCommand::ShowResources:
    case MenuCommand::ShowTools:
    case MenuCommand::ShowScripts:
    case MenuCommand::ShowPlugins:
    case MenuCommand::ShowAIChat:
    case MenuCommand::About:
        s.visible = true;
        s.enabled = true;
        break;
    default:
        // Application-wide commands: offered once their feature has registered.
        s.visible = screenHandles || m_handlers.contains(command);
        s.enabled = true;
        break;
    }
    if (s.visible && screenHandles)
        s.enabled = s.enabled && context.target->isCommandEnabled(command);
    if (!s.visible)
        s.enabled = false;
    return s;
}

bool MenuCommandDispatcher::perform(MenuCommand command, const MenuCommandContext &context)
{
    const State s = state(command, context);
    if (!s.visible || !s.enabled)
        return false;

    if (context.target && context.target->handlesCommand(command)) {
        context.target->performCommand(command);
        return true;
    }
    const MenuCommandInfo &info = MenuCommands::info(command);
    switch (command) {
    case MenuCommand::Duplicate: {
        AbstractController *controller = context.controller;
        controller->copySelectedItem();
        controller->pasteItem();
        QPointer<AbstractController> weak(controller);
        QMetaObject::invokeMethod(
            controller, [weak] { if (weak) weak->notifyChange(); }, Qt::QueuedConnection);
        return true;
    }
    case MenuCommand::ShowServer:
    case MenuCommand::ShowPrompts:
    case MenuCommand::ShowResources:
    case MenuCommand::ShowTools:
    case MenuCommand::ShowScripts:
    case MenuCommand::ShowPlugins:
    case MenuCommand::ShowAIChat:
    case MenuCommand::About:
        MenuVisibility::shared()->setRequestedDestination(info.destination);
        return true;
    default:
        break;
    }
    const auto handler = m_handlers.constFind(command);
    if (handler == m_handlers.cend())
        return false;
    // A copy: the handler may register or unregister commands while it runs.
    const Handler run = *handler;
    run(context);
    return true;
}
