#include "base/DesktopNotifier.h"

#include "base/AppPaths.h"

#include <QDBusConnection>
#include <QDBusError>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QStringList>
#include <QVariantMap>

#include <atomic>
#include <cstdio>

namespace {

const QString kService = QStringLiteral("org.freedesktop.Notifications");
const QString kPath = QStringLiteral("/org/freedesktop/Notifications");

std::atomic<DesktopNotifier *> g_override{nullptr};

// A notification that could not be handed to the desktop leaves one line behind.
void reportFailure(const QString &error)
{
    const QByteArray line = (QStringLiteral("[AppDelegete] Failed to schedule main notification: ") + error).toLocal8Bit();
    std::fprintf(stderr, "%s\n", line.constData());
    std::fflush(stderr);
}

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
    if (!bus.isConnected()) {
        reportFailure(bus.lastError().isValid() ? bus.lastError().message() : QStringLiteral("no session bus"));
        return;
    }
    QDBusMessage message = QDBusMessage::createMethodCall(kService, kPath, kService, QStringLiteral("Notify"));
    QStringList actions;
    if (!actionLabel.isEmpty())
        actions << QStringLiteral("default") << actionLabel;
    // An empty subtitle, the default sound (the server's own) and no badge: the body is the whole message.
    message << AppPaths::displayName() << m_lastId.load() << QStringLiteral("kelvara") << title << body
            << actions << QVariantMap() << int(-1);
    // Sent without waiting. The reply names the notification, which the next one replaces;
    // an error reply (a bus without a notification service) is reported.
    auto *watcher = new QDBusPendingCallWatcher(bus.asyncCall(message));
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, watcher, [this](QDBusPendingCallWatcher *call) {
        const QDBusPendingReply<uint> reply = *call;
        if (reply.isValid())
            m_lastId.store(reply.value());
        else
            reportFailure(reply.error().message());
        call->deleteLater();
    });
}
