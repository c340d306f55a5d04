#include "chat/session/XcodeBridgeService.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QSettings>
#include <QStandardPaths>
#include <QStringList>

QString XcodeBridgeService::storePath()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
           QStringLiteral("/group.org.tamsel.apps.conf");
}

QString XcodeBridgeService::readRequest()
{
    return QSettings(storePath(), QSettings::IniFormat).value(requestKey).toString();
}

QString XcodeBridgeService::readResponse()
{
    return QSettings(storePath(), QSettings::IniFormat).value(responseKey).toString();
}

void XcodeBridgeService::writeResponse(const QString &text)
{
    QSettings store(storePath(), QSettings::IniFormat);
    store.setValue(responseKey, text);
    store.sync();
    signal(QStringLiteral("response"));
}

void XcodeBridgeService::writeRequest(const QString &text)
{
    QSettings store(storePath(), QSettings::IniFormat);
    store.setValue(requestKey, text);
    store.sync();
    signal(QStringLiteral("request"));
}

QString XcodeBridgeService::normalisedRequest(const QString &text)
{
    const QString trimmed = text.trimmed();
    if (trimmed.isEmpty())
        return QString();
    QStringList lines = trimmed.split(u'\n');
    for (QString &line : lines) {
        if (line.trimmed().isEmpty())
            line.clear();
    }
    return lines.join(u'\n');
}

bool XcodeBridgeService::subscribe(const QString &member, QObject *receiver, const char *slot)
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected() || !bus.connect(QString(), signalPath, signalInterface, member, receiver, slot))
        return false;
    settle();
    return true;
}

void XcodeBridgeService::signal(const QString &member)
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return;  // no session bus: the other side reads the file when it asks
    bus.send(QDBusMessage::createSignal(signalPath, signalInterface, member));
    settle();  // a process that ends next must not take the signal with it
}

void XcodeBridgeService::settle()
{
    QDBusConnection::sessionBus().interface()->isServiceRegistered(QStringLiteral("org.freedesktop.DBus"));
}
