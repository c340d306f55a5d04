#pragma once

#include <QObject>
#include <QStringList>

// One Kelvara per desktop session: the first process owns the session-bus name
// "org.tamsel.kelvara"; a later start (the launcher's "New Window", a file opened with
// Kelvara) hands its arguments to that process and ends. Without a session bus every
// process runs on its own.
class DesktopInstance : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.tamsel.kelvara.Desktop")

public:
    static inline const QString serviceName = QStringLiteral("org.tamsel.kelvara");
    static inline const QString objectPath = QStringLiteral("/org/tamsel/kelvara");
    static inline const QString interfaceName = QStringLiteral("org.tamsel.kelvara.Desktop");

    explicit DesktopInstance(QObject *parent = nullptr);
    ~DesktopInstance() override;

    enum class Role { Primary, Secondary, Alone };
    // Takes the bus name: Primary when this process got it, Secondary when another
    // Kelvara holds it, Alone when there is no session bus to ask.
    Role claim();

    // Hands the arguments to the primary process; tells whether it took them.
    static bool forward(const QStringList &arguments);

public slots:
    // Called over the bus by a later start.
    Q_SCRIPTABLE void Activate(const QStringList &arguments);

signals:
    void activationRequested(const QStringList &arguments);

private:
    bool m_registered = false;
};
