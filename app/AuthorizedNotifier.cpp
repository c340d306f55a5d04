#include "app/AuthorizedNotifier.h"

#include "app/AppLaunchState.h"
#include "base/SystemLog.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusError>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QMetaObject>

namespace {

DesktopNotifier *plainNotifier()
{
    static DesktopNotifier notifier;
    return &notifier;
}

}  // namespace

AuthorizedNotifier::AuthorizedNotifier(DesktopNotifier *target, AppLaunchState *state)
    : m_target(target ? target : plainNotifier()), m_state(state ? state : AppLaunchState::shared())
{
}

void AuthorizedNotifier::notify(const QString &title, const QString &body, const QString &actionLabel)
{
    if (m_state->notificationsAllowed())
        m_target->notify(title, body, actionLabel);
}

void AuthorizedNotifier::requestAuthorization(AppLaunchState *state,
                                              std::function<void(bool, std::optional<QString>)> done)
{
    AppLaunchState *flags = state ? state : AppLaunchState::shared();
    auto answer = [flags, done](bool allowed, std::optional<QString> error) {
        if (error)
            SystemLog::write(QStringLiteral("Notification permission error: ") + *error + QLatin1Char(')'));
        flags->setNotificationsAllowed(error ? false : allowed);
        if (done)
            done(error ? false : allowed, error);
    };

    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        const QString reason = bus.lastError().isValid() ? bus.lastError().message()
                                                         : QStringLiteral("No session bus to ask.");
        QMetaObject::invokeMethod(flags, [answer, reason] { answer(false, reason); }, Qt::QueuedConnection);
        return;
    }
    // The desktop has no permission dialog: a notification service that answers is the yes.
    const QDBusMessage call = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.Notifications"), QStringLiteral("/org/freedesktop/Notifications"),
        QStringLiteral("org.freedesktop.Notifications"), QStringLiteral("GetServerInformation"));
    auto *watcher = new QDBusPendingCallWatcher(bus.asyncCall(call, 5000), flags);
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, flags, [answer](QDBusPendingCallWatcher *w) {
        const QDBusMessage reply = w->reply();
        if (reply.type() == QDBusMessage::ErrorMessage)
            answer(false, reply.errorMessage());
        else
            answer(true, std::nullopt);
        w->deleteLater();
    });
}
