#include "app/AppLaunchState.h"

#include <QCoreApplication>

AppLaunchState *AppLaunchState::shared()
{
    static AppLaunchState *instance = new AppLaunchState(QCoreApplication::instance());
    return instance;
}

AppLaunchState::AppLaunchState(QObject *parent) : QObject(parent) {}

void AppLaunchState::markLaunchFinished()
{
    if (m_launchFinished)
        return;
    m_launchFinished = true;
    emit launchFinishedChanged();
}

void AppLaunchState::setNotificationsAllowed(bool allowed)
{
    if (m_notificationsAllowed == allowed)
        return;
    m_notificationsAllowed = allowed;
    emit notificationsAllowedChanged();
}
