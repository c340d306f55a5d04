#pragma once

#include "app/MenuCommandContext.h"
#include "app/MenuDestination.h"

#include <QHash>
#include <QMainWindow>
#include <QMetaObject>
#include <functional>
#include <optional>

class AppLaunchViewModel;
class AppMenuBar;
class OnBoardingBubble;
class OnBoardingController;
class DestinationScreen;
class QLabel;
class QListWidget;
class QStackedWidget;
class SettingsManager;
class SplashScreenView;

// One main window: the sidebar with the eight destinations, the detail area with the
// screen of the selected one, and the window's own menu bar. The first window of a run
// shows the launch sheet until the launch job has finished; a later one goes straight to
// its destination.
class ServerConfigController;

class AppMainWindow : public QMainWindow {
    Q_OBJECT

public:
    // The start-up questions asked once the launch job has finished (notifications, the
    // home folder check, personal data permissions), in each window open at that moment.
    using LaunchFinishedHandler = std::function<void(AppMainWindow *window)>;
    static void setLaunchFinishedHandler(LaunchFinishedHandler handler);

    // With a destination the window shows it as soon as the launch has finished; without
    // one it shows the stored destination ("menuSelection"). The status bar follows the
    // application's server; the close question asks about its store.
    explicit AppMainWindow(ServerConfigController *server, std::optional<MenuDestination> destination = std::nullopt,
                           QWidget *parent = nullptr);
    ~AppMainWindow() override;

    // The open main windows, the front one first.
    static QList<AppMainWindow *> windows();
    static AppMainWindow *frontWindow();

    ServerConfigController *server() const { return m_server; }
    // 1 for the first window of the run, then counting up.
    int windowNumber() const { return m_windowNumber; }
    std::optional<MenuDestination> destination() const { return m_destination; }
    DestinationScreen *currentScreen() const;
    // The screen of a destination, made on first use.
    DestinationScreen *screenFor(MenuDestination destination);
    // The focused values the menus read.
    MenuCommandContext commandContext() const;

    AppMenuBar *appMenuBar() const { return m_menuBar; }
    QListWidget *sidebar() const { return m_sidebar; }
    SplashScreenView *splash() const { return m_splash; }
    AppLaunchViewModel *launchModel() const { return m_launch; }
    bool isShowingSplashScreen() const { return m_showingSplash; }
    // In the status bar while the running server serves an older configuration.
    QWidget *outdatedServerNotice() const { return m_outdatedNotice; }
    QLabel *serverStateLabel() const { return m_serverState; }

    // Shows the destination; store writes it under "menuSelection" as the user's choice.
    void navigate(MenuDestination destination, bool store = false);

    // The guided tour: its bubble, the tour of the screen in front, and the rectangle (in
    // the window's coordinates) of the control a step index names, if it is on screen.
    OnBoardingBubble *onboardingBubble() const { return m_bubble; }
    OnBoardingController *currentTour() const;
    std::optional<QRect> onboardingAnchor(int index) const;
    // While held (the start-up questions are being asked), no bubble shows; the tour of the
    // screen in front shows once every hold is released. Holds count.
    void holdTour();
    void releaseTour();
    bool isTourHeld() const { return m_tourHolds > 0; }

signals:
    void destinationChanged();

protected:
    void showEvent(QShowEvent *event) override;
    void changeEvent(QEvent *event) override;
    // The last window asks before pending configuration edits would be lost.
    void closeEvent(QCloseEvent *event) override;

private:
    void launchDidFinish();
    void takeRequestedDestination();
    void becameFront();
    void watchActiveController();
    void takeOnboardingRequest();
    void addOutdatedServerNotice();
    void addServerState();

    int m_windowNumber;
    std::optional<MenuDestination> m_initialDestination;
    std::optional<MenuDestination> m_destination;
    ServerConfigController *m_server;
    bool m_appeared = false;
    bool m_showingSplash = false;

    QListWidget *m_sidebar;
    QStackedWidget *m_detail;
    QHash<MenuDestination, DestinationScreen *> m_screens;
    AppMenuBar *m_menuBar;
    SplashScreenView *m_splash = nullptr;
    AppLaunchViewModel *m_launch;
    SettingsManager *m_menuSelection;
    QMetaObject::Connection m_controllerConnection;
    OnBoardingBubble *m_bubble;
    QHash<MenuDestination, OnBoardingController *> m_tours;
    int m_tourHolds = 0;
    bool m_closeAnswered = false;
    QWidget *m_outdatedNotice = nullptr;
    QLabel *m_serverState = nullptr;
};
