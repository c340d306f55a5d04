#pragma once

#include <QString>

#include <atomic>

// Shows a desktop notification through org.freedesktop.Notifications on the session bus.
// Without a session bus, or when no notification service answers, nothing is shown and
// nothing is said: a notification is a courtesy, never a failure. The call does not wait
// for the service.
class DesktopNotifier {
public:
    virtual ~DesktopNotifier();

    // The process-wide notifier; tests put their own in its place.
    static DesktopNotifier *shared();
    static void setShared(DesktopNotifier *notifier);

    // title and body as given; actionLabel, when not empty, is offered as the default action.
    // A new notification takes the place of the one shown before, so only the latest stays.
    virtual void notify(const QString &title, const QString &body, const QString &actionLabel = QString());

private:
    std::atomic<uint> m_lastId{0};
};
