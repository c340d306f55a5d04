#include "app/MenuVisibility.h"

#include <QCoreApplication>

MenuVisibility *MenuVisibility::shared()
{
    static MenuVisibility *instance = new MenuVisibility(QCoreApplication::instance());
    return instance;
}

MenuVisibility::MenuVisibility(QObject *parent) : QObject(parent) {}

void MenuVisibility::setActiveDestination(std::optional<MenuDestination> destination)
{
    if (m_activeDestination == destination)
        return;
    m_activeDestination = destination;
    emit activeDestinationChanged();
}

void MenuVisibility::setRequestedDestination(std::optional<MenuDestination> destination)
{
    // A repeated request is news too: the window may have moved on since the last one.
    m_requestedDestination = destination;
    emit requestedDestinationChanged();
}

std::optional<MenuDestination> MenuVisibility::takeRequestedDestination()
{
    std::optional<MenuDestination> request = m_requestedDestination;
    if (request) {
        m_requestedDestination.reset();
        emit requestedDestinationChanged();
    }
    return request;
}

void MenuVisibility::setAppWindowId(int number)
{
    if (number < 1) {
        const std::optional<int> main = m_mainWindowNumber ? m_mainWindowNumber() : std::nullopt;
        number = main.value_or(noMainWindowId);
    }
    if (m_appWindowId == number)
        return;
    m_appWindowId = number;
    emit appWindowIdChanged();
}

void MenuVisibility::setMainWindowNumberProvider(std::function<std::optional<int>()> provider)
{
    m_mainWindowNumber = std::move(provider);
}

void MenuVisibility::setStartOnboarding(bool flag)
{
    if (m_startOnboarding == flag)
        return;
    m_startOnboarding = flag;
    emit startOnboardingChanged();
}
