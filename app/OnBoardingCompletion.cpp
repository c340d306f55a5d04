#include "app/OnBoardingCompletion.h"

#include "base/UserDefaults.h"

namespace {

const MenuDestination kAll[] = {MenuDestination::menuServerConfig, MenuDestination::menuPromptConfig,
                                MenuDestination::menuResourceConfig, MenuDestination::menuToolConfig,
                                MenuDestination::menuScriptEditor,  MenuDestination::menuPluginManager,
                                MenuDestination::menuAIChat,        MenuDestination::menuAbout};

QString itemName(MenuDestination destination)
{
    switch (destination) {
    case MenuDestination::menuServerConfig: return QStringLiteral("menuServerConfig");
    case MenuDestination::menuPromptConfig: return QStringLiteral("menuPromptConfig");
    case MenuDestination::menuResourceConfig: return QStringLiteral("menuResourceConfig");
    case MenuDestination::menuToolConfig: return QStringLiteral("menuToolConfig");
    case MenuDestination::menuScriptEditor: return QStringLiteral("menuScriptEditor");
    case MenuDestination::menuPluginManager: return QStringLiteral("menuPluginManager");
    case MenuDestination::menuAIChat: return QStringLiteral("menuAIChat");
    case MenuDestination::menuAbout: return QStringLiteral("menuAbout");
    }
    return QStringLiteral("menuUnknown");
}

}  // namespace

OnBoardingCompletion *OnBoardingCompletion::shared()
{
    static auto *instance = new OnBoardingCompletion;
    return instance;
}

OnBoardingCompletion::OnBoardingCompletion(QObject *parent) : QObject(parent)
{
    const auto settings = UserDefaults::standard();
    for (MenuDestination destination : kAll)
        m_items.insert(destination, settings->value(keyFor(destination), false).toBool());
}

QString OnBoardingCompletion::keyFor(MenuDestination destination)
{
    return QStringLiteral("ob.completed.") + itemName(destination);
}

void OnBoardingCompletion::setCompleted(MenuDestination destination, bool completed)
{
    m_items.insert(destination, completed);
    auto settings = UserDefaults::standard();
    settings->setValue(keyFor(destination), completed);
    settings->sync();
    emit changed();
}

void OnBoardingCompletion::storeAll()
{
    auto settings = UserDefaults::standard();
    for (MenuDestination destination : kAll)
        settings->setValue(keyFor(destination), m_items.value(destination, false));
    settings->sync();
}

void OnBoardingCompletion::resetAll()
{
    for (MenuDestination destination : kAll)
        m_items.insert(destination, false);
    storeAll();
    emit changed();
}
