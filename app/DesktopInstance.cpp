#include "app/DesktopInstance.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusReply>

DesktopInstance::DesktopInstance(QObject *parent) : QObject(parent) {}

DesktopInstance::~DesktopInstance()
{
    if (m_registered) {
        QDBusConnection bus = QDBusConnection::sessionBus();
        bus.unregisterObject(objectPath);
        bus.unregisterService(serviceName);
    }
}

DesktopInstance::Role DesktopInstance::claim()
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return Role::Alone;
    QDBusConnectionInterface *names = bus.interface();
    const QDBusReply<QDBusConnectionInterface::RegisterServiceReply> reply =
        names->registerService(serviceName, QDBusConnectionInterface::DontQueueService,
                               QDBusConnectionInterface::DontAllowReplacement);
    if (!reply.isValid())
        return Role::Alone;
    if (reply.value() != QDBusConnectionInterface::ServiceRegistered)
        return Role::Secondary;
    if (!bus.registerObject(objectPath, this, QDBusConnection::ExportScriptableSlots)) {
        bus.unregisterService(serviceName);
        return Role::Alone;
    }
    m_registered = true;
    return Role::Primary;
}

bool DesktopInstance::forward(const QStringList &arguments)
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return false;
    QDBusMessage call = QDBusMessage::createMethodCall(serviceName, objectPath, interfaceName, QStringLiteral("Activate"));
    call << arguments;
    const QDBusMessage answer = bus.call(call, QDBus::Block, 5000);
    return answer.type() == QDBusMessage::ReplyMessage;
}

void DesktopInstance::Activate(const QStringList &arguments) { emit activationRequested(arguments); }
