#include "base/DesktopNotifier.h"

#include "base/AppPaths.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QStringList>
#include <QVariantMap>

#include <atomic>

namespace {

const QString kService = QStringLiteral("org.freedesktop.Notifications");
const QString kPath = QStringLiteral("/org/freedesktop/Notifications");

std::atomic<DesktopNotifier *> g_override{nullptr};

}  // namespace

DesktopNotifier::~DesktopNotifier() = default;

DesktopNotifier *DesktopNotifier::shared()
{
    if (DesktopNotifier *notifier = g_override.load())
        return notifier;
    static DesktopNotifier instance;
    return &instance;
}

void DesktopNotifier::setShared(DesktopNotifier *notifier)
{
    g_override.store(notifier);
}

void DesktopNotifier::notify(const QString &title, const QString &body, const QString &actionLabel)
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return;
    QDBusMessage message = QDBusMessage::createMethodCall(kService, kPath, kService, QStringLiteral("Notify"));
    QStringList actions;
    if (!actionLabel.isEmpty())
        actions << QStringLiteral("default") << actionLabel;
    // An empty subtitle, the default sound (the server's own) and no badge: the body is the whole message.
    message << AppPaths::displayName() << m_lastId.load() << QStringLiteral("kelvara") << title << body
            << actions << QVariantMap() << int(-1);
    // Sent without waiting. The reply names the notification, which the next one replaces;
    // the error reply of a bus without a notification service is dropped.
    auto *watcher = new QDBusPendingCallWatcher(bus.asyncCall(message));
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, watcher, [this](QDBusPendingCallWatcher *call) {
        const QDBusPendingReply<uint> reply = *call;
        if (reply.isValid())
            m_lastId.store(reply.value());
        call->deleteLater();
    });
}
