#pragma once

#include <QObject>

// The two process-wide flags of the shell: whether the first launch job has finished (a
// window opened later shows no splash and asks no start-up questions), and whether the
// desktop lets the application show notifications. Main thread.
class AppLaunchState : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool launchFinished READ launchFinished NOTIFY launchFinishedChanged)
    Q_PROPERTY(bool notificationsAllowed READ notificationsAllowed WRITE setNotificationsAllowed NOTIFY notificationsAllowedChanged)

public:
    static AppLaunchState *shared();
    // The process-wide instance is shared(); others are for tests.
    explicit AppLaunchState(QObject *parent = nullptr);

    bool launchFinished() const { return m_launchFinished; }
    // Sets the flag; it never returns to false.
    void markLaunchFinished();

    bool notificationsAllowed() const { return m_notificationsAllowed; }
    void setNotificationsAllowed(bool allowed);

signals:
    void launchFinishedChanged();
    void notificationsAllowedChanged();

private:
    bool m_launchFinished = false;
    bool m_notificationsAllowed = false;
};
