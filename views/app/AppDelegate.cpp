#include "views/app/AppDelegate.h"

#include "base/AppPaths.h"
#include "app/SettingsManager.h"
#include "base/SystemLog.h"

#include <QCoreApplication>
#include <QEvent>
#include <QGuiApplication>
#include <QScreen>
#include <QSysInfo>
#include <QTimer>
#include <QWidget>

AppDelegate::AppDelegate(QObject *parent)
    : QObject(parent), m_settingsManager(new SettingsManager(UserDefaultsKeys::windowState, this))
{
    if (auto *app = QCoreApplication::instance())
        m_notificationObservers.append(
            connect(app, &QCoreApplication::aboutToQuit, this, &AppDelegate::applicationWillTerminate));
}

AppDelegate::~AppDelegate() { applicationWillTerminate(); }

QString AppDelegate::launchLine()
{
    return QStringLiteral("[AppDelegete] ") + AppPaths::displayName() + QLatin1Char(' ') + AppPaths::bundleIdentifier()
           + QStringLiteral(" Linux ") + QSysInfo::kernelVersion() + QStringLiteral(" (") + QSysInfo::prettyProductName()
           + QLatin1Char(')');
}

void AppDelegate::didFinishLaunching(QWidget *window)
{
    SystemLog::write(launchLine());
    if (!window)
        return;
    m_window = window;
    applyFramePlan(window, framePlan(window));
    // Observed from here on, so the restore itself is not taken for a user's change.
    QTimer::singleShot(0, this, [this] {
        if (m_window)
            m_window->installEventFilter(this);
    });
    m_notificationObservers.append(connect(window, &QObject::destroyed, this, [this] { m_window = nullptr; }));
}

WindowFramePlan AppDelegate::framePlan(QWidget *window) const
{
    QScreen *screen = window && window->screen() ? window->screen() : QGuiApplication::primaryScreen();
    const QRect available = screen ? screen->availableGeometry() : QRect(0, 0, 1920, 1080);
    const QSize scene = window ? window->size() : QSize(int(WindowState::defaultWidth), int(WindowState::defaultHeight));
    return WindowFramePlan::make(m_settingsManager->windowState(), scene, available);
}

void AppDelegate::applyFramePlan(QWidget *window, const WindowFramePlan &plan)
{
    window->resize(plan.size);
    window->move(plan.origin);
    Qt::WindowStates states = window->windowState();
    if (plan.zoom && !(states & Qt::WindowMaximized))
        states |= Qt::WindowMaximized;
    if (plan.minimize)
        states |= Qt::WindowMinimized;
    if (plan.fullScreen && !(states & Qt::WindowFullScreen))
        states |= Qt::WindowFullScreen;
    window->setWindowState(states);
}

bool AppDelegate::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_window) {
        switch (event->type()) {
        case QEvent::Resize:
        case QEvent::Move:
        case QEvent::WindowStateChange:
            saveFrame();
            break;
        default:
            break;
        }
    }
    return QObject::eventFilter(watched, event);
}

void AppDelegate::saveFrame()
{
    if (!m_window)
        return;
    const Qt::WindowStates states = m_window->windowState();
    // While maximized, full screen or minimized the normal frame is what comes back later.
    const bool special = states & (Qt::WindowMaximized | Qt::WindowFullScreen | Qt::WindowMinimized);
    const QRect frame = special && m_window->normalGeometry().isValid()
                            ? m_window->normalGeometry()
                            : QRect(m_window->pos(), m_window->size());
    WindowState state;
    state.windowOriginX = frame.x();
    state.windowOriginY = frame.y();
    state.windowWidth = frame.width();
    state.windowHeight = frame.height();
    state.isZoomed = states & Qt::WindowMaximized;
    state.isMiniaturized = states & Qt::WindowMinimized;
    state.isFullscreen = states & Qt::WindowFullScreen;
    state.isValid = true;
    m_settingsManager->saveWindowState(state);
}

void AppDelegate::openURLs(const QList<QUrl> &urls)
{
    QStringList texts;
    for (const QUrl &url : urls)
        texts.append(url.toString());
    SystemLog::write(QStringLiteral("[AppDelegate] open: ") + texts.join(QStringLiteral(", ")));
}

bool AppDelegate::openFile(const QString &path)
{
    SystemLog::write(QStringLiteral("[AppDelegate] openFile: ") + path);
    return true;
}

bool AppDelegate::openFileWithoutUI(const QString &path)
{
    SystemLog::write(QStringLiteral("[AppDelegate] openFileWithoutUI: ") + path);
    return true;
}

void AppDelegate::applicationWillTerminate()
{
    for (const QMetaObject::Connection &connection : std::as_const(m_notificationObservers))
        disconnect(connection);
    m_notificationObservers.clear();
    if (m_window)
        m_window->removeEventFilter(this);
}
