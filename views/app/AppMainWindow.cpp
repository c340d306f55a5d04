#include "views/app/AppMainWindow.h"

#include "views/monitor/SystemStatsToolbarView.h"

#include "app/AppLaunchState.h"
#include "app/AppLaunchViewModel.h"
#include "app/MenuVisibility.h"
#include "app/OnBoardingController.h"
#include "app/SettingsManager.h"
#include "app/config/ServerConfigController.h"
#include "base/AppPaths.h"
#include "base/AbstractController.h"
#include "store/StoreContext.h"
#include "views/about/AboutView.h"
#include "views/common/AppIcons.h"
#include "views/app/AppMenuBar.h"
#include "views/app/DestinationScreenRegistry.h"
#include "views/app/EmptyStateScreen.h"
#include "views/app/OnBoardingBubble.h"
#include "views/app/SplashScreenView.h"

#include <QApplication>
#include <QCloseEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QPointer>
#include <QEvent>
#include <QMessageBox>
#include <QListWidget>
#include <QPushButton>
#include <QSplitter>
#include <QStatusBar>
#include <QStackedWidget>

namespace {

QList<AppMainWindow *> &openWindows()
{
    static QList<AppMainWindow *> list;
    return list;
}

int &windowCounter()
{
    static int counter = 0;
    return counter;
}

AppMainWindow::LaunchFinishedHandler &launchFinishedHandler()
{
    static AppMainWindow::LaunchFinishedHandler handler;
    return handler;
}

}  // namespace

void AppMainWindow::setLaunchFinishedHandler(LaunchFinishedHandler handler)
{
    launchFinishedHandler() = std::move(handler);
}

QList<AppMainWindow *> AppMainWindow::windows() { return openWindows(); }

AppMainWindow *AppMainWindow::frontWindow() { return openWindows().isEmpty() ? nullptr : openWindows().first(); }

AppMainWindow::AppMainWindow(ServerConfigController *server, std::optional<MenuDestination> destination, QWidget *parent)
    : QMainWindow(parent), m_windowNumber(++windowCounter()), m_initialDestination(destination), m_server(server)
{
    setObjectName(QStringLiteral("mainWindow%1").arg(m_windowNumber));
    setAttribute(Qt::WA_DeleteOnClose);
    setWindowTitle(AppPaths::displayName());
    setWindowIcon(AppIcons::applicationIcon());
    setMinimumSize(760, 480);
    resize(int(WindowState::defaultWidth), int(WindowState::defaultHeight));

    m_launch = new AppLaunchViewModel(nullptr, this);
    m_menuSelection = new SettingsManager(UserDefaultsKeys::menuSelection, this);

    m_sidebar = new QListWidget(this);
    m_sidebar->setObjectName(QStringLiteral("sidebar"));
    m_sidebar->setFrameShape(QFrame::NoFrame);
    m_sidebar->setIconSize(QSize(20, 20));
    m_sidebar->setSpacing(1);
    m_sidebar->setUniformItemSizes(true);
    m_sidebar->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    m_sidebar->setMinimumWidth(170);
    m_sidebar->setAutoFillBackground(true);
    QPalette sidebarPalette = m_sidebar->palette();
    sidebarPalette.setColor(QPalette::Base, palette().color(QPalette::Window));
    m_sidebar->setPalette(sidebarPalette);
    m_sidebar->setStyleSheet(QStringLiteral(
        "QListWidget#sidebar { padding: 8px 6px; }"
        "QListWidget#sidebar::item { padding: 6px 6px; border-radius: 6px; }"
        "QListWidget#sidebar::item:selected { background: palette(highlight); color: palette(highlighted-text); }"
        "QListWidget#sidebar::item:hover:!selected { background: palette(midlight); }"));
    for (MenuDestination d : MenuDestinations::all()) {
        const QIcon icon = AppIcons::withSelectedColor(AppIcons::destinationIcon(d),
                                                       palette().color(QPalette::HighlightedText), QSize(20, 20));
        auto *item = new QListWidgetItem(icon, MenuDestinations::title(d), m_sidebar);
        item->setData(Qt::UserRole, int(d));
        item->setToolTip(MenuDestinations::title(d));
    }

    m_detail = new QStackedWidget(this);
    m_detail->setObjectName(QStringLiteral("detailArea"));
    m_detail->addWidget(new QWidget(m_detail));  // empty until the launch has finished

    auto *split = new QSplitter(Qt::Horizontal, this);
    split->setObjectName(QStringLiteral("mainSplit"));
    split->addWidget(m_sidebar);
    split->addWidget(m_detail);
    split->setStretchFactor(0, 0);
    split->setStretchFactor(1, 1);
    split->setCollapsible(1, false);
    split->setSizes({190, 834});
    setCentralWidget(split);
    // The machine's load, refreshed each second while the window shows it.
    addServerState();
    statusBar()->addPermanentWidget(new SystemStatsToolbarView(this));
    statusBar()->setSizeGripEnabled(false);
    addOutdatedServerNotice();

    m_menuBar = new AppMenuBar([this] { return commandContext(); }, this);
    setMenuBar(m_menuBar);

    connect(m_sidebar, &QListWidget::currentRowChanged, this, [this](int row) {
        if (auto d = MenuDestinations::fromNumber(m_sidebar->item(row) ? m_sidebar->item(row)->data(Qt::UserRole).toInt() : -1))
            navigate(*d, true);
    });
    connect(MenuVisibility::shared(), &MenuVisibility::requestedDestinationChanged, this,
            &AppMainWindow::takeRequestedDestination);
    connect(AppLaunchState::shared(), &AppLaunchState::launchFinishedChanged, this, &AppMainWindow::launchDidFinish);

    m_bubble = new OnBoardingBubble(this, [this](int index) { return onboardingAnchor(index); });
    connect(MenuVisibility::shared(), &MenuVisibility::startOnboardingChanged, this, &AppMainWindow::takeOnboardingRequest);

    openWindows().prepend(this);
}

void AppMainWindow::addServerState()
{
    // Whatever screen is in front, the status bar says whether the server runs and where.
    ServerConfigController *server = m_server;
    m_serverState = new QLabel(this);
    m_serverState->setObjectName(QStringLiteral("serverStateLabel"));
    auto show = [this, server] {
        QString text = server->serverStatusMessage();
        if (server->isServerRunning() && server->listeningPort() > 0)
            text += QStringLiteral(" on port %1").arg(server->listeningPort());
        m_serverState->setToolTip(text);
        // A start failure's reason can be long; the Server screen shows it whole.
        m_serverState->setText(m_serverState->fontMetrics().elidedText(text, Qt::ElideRight, 280));
        // Muted when stopped, but in a role each scheme keeps readable ("mid" is near the
        // window's own colour in dark ones).
        m_serverState->setForegroundRole(server->isServerRunning() ? QPalette::WindowText : QPalette::PlaceholderText);
    };
    statusBar()->addPermanentWidget(m_serverState);
    show();
    connect(server, &ServerConfigController::serverStatusMessageChanged, m_serverState, show);
    connect(server, &ServerConfigController::isServerRunningChanged, m_serverState, show);
}

void AppMainWindow::addOutdatedServerNotice()
{
    // Whatever screen is in front, the status bar tells when the running server is behind
    // the saved configuration, with the action that brings it up to date.
    ServerConfigController *server = m_server;
    auto *notice = new QWidget(this);
    notice->setObjectName(QStringLiteral("outdatedServerNotice"));
    auto *text = new QLabel(ServerConfigController::outdatedText, notice);
    auto *apply = new QPushButton(ServerConfigController::applyAndRestartText, notice);
    apply->setObjectName(QStringLiteral("applyAndRestartButton"));
    auto *row = new QHBoxLayout(notice);
    row->setContentsMargins(6, 0, 0, 0);
    row->addWidget(text);
    row->addWidget(apply);
    statusBar()->addWidget(notice);
    notice->setVisible(server->servesOutdatedConfiguration());
    connect(apply, &QPushButton::clicked, server, &ServerConfigController::applyAndRestart);
    connect(server, &ServerConfigController::servedConfigurationChanged, notice,
            [notice, server] { notice->setVisible(server->servesOutdatedConfiguration()); });
    m_outdatedNotice = notice;
}

OnBoardingController *AppMainWindow::currentTour() const
{
    return m_destination ? m_tours.value(*m_destination) : nullptr;
}

std::optional<QRect> AppMainWindow::onboardingAnchor(int index) const
{
    auto inWindow = [this](const QWidget *widget, const QRect &rect) -> std::optional<QRect> {
        if (!widget || !widget->isVisible())
            return std::nullopt;
        return QRect(widget->mapTo(this, rect.topLeft()), rect.size());
    };
    // 10 to 80: the sidebar entries, in their order.
    if (index >= 10 && index <= 80 && index % 10 == 0) {
        QListWidgetItem *item = m_sidebar->item(index / 10 - 1);
        return item ? inWindow(m_sidebar->viewport(), m_sidebar->visualItemRect(item)) : std::nullopt;
    }
    auto *about = qobject_cast<AboutView *>(currentScreen());
    if (!about)
        return std::nullopt;
    switch (index) {
    case 90: return inWindow(about, about->rect());
    case 91: return inWindow(about->securityScopesButton(), about->securityScopesButton()->rect());
    case 92: return inWindow(about->importButton(), about->importButton()->rect());
    case 93: return inWindow(about->installToolSdkButton(), about->installToolSdkButton()->rect());
    default: return std::nullopt;
    }
}

void AppMainWindow::holdTour()
{
    if (m_tourHolds++ == 0)
        m_bubble->setController(nullptr);
}

void AppMainWindow::releaseTour()
{
    if (m_tourHolds == 0 || --m_tourHolds > 0)
        return;
    m_bubble->setController(currentTour());
}

void AppMainWindow::takeOnboardingRequest()
{
    // Help ▸ Show onboarding: the front window replays the tour of its screen, and the
    // request falls back so that the next one is seen.
    MenuVisibility *menus = MenuVisibility::shared();
    if (!menus->startOnboarding() || frontWindow() != this)
        return;
    menus->setStartOnboarding(false);
    if (OnBoardingController *tour = currentTour())
        tour->replay();
}

AppMainWindow::~AppMainWindow()
{
    openWindows().removeAll(this);
    if (AppMainWindow *front = frontWindow())
        MenuVisibility::shared()->setActiveDestination(front->destination());
}

void AppMainWindow::showEvent(QShowEvent *event)
{
    QMainWindow::showEvent(event);
    if (m_appeared)
        return;
    m_appeared = true;
    if (!AppLaunchState::shared()->launchFinished()) {
        m_showingSplash = true;
        m_sidebar->setEnabled(false);
        m_splash = new SplashScreenView(m_launch, centralWidget());
        m_splash->show();
        m_splash->raise();
        m_launch->start();
    } else {
        navigate(m_initialDestination.value_or(MenuDestination::menuAbout));
    }
}

void AppMainWindow::launchDidFinish()
{
    if (!m_appeared)
        return;
    // 1. The sheet goes; no tour's bubble until it has gone.
    m_showingSplash = false;
    m_sidebar->setEnabled(true);
    holdTour();
    if (m_splash) {
        connect(m_splash, &SplashScreenView::dismissed, this, &AppMainWindow::releaseTour, Qt::SingleShotConnection);
        m_splash->dismiss();
    } else {
        releaseTour();
    }
    // 2. The first window tells the menus its number.
    if (m_windowNumber == 1) {
        const int number = m_windowNumber;
        QMetaObject::invokeMethod(this, [number] { MenuVisibility::shared()->setAppWindowId(number); },
                                  Qt::QueuedConnection);
    }
    // 3 to 5. Notifications, the home folder, personal data.
    if (launchFinishedHandler())
        launchFinishedHandler()(this);
    // 6. The destination: the one this window was opened on, else the stored one.
    if (m_initialDestination) {
        navigate(*m_initialDestination);
        return;
    }
    const MenuDestination stored = m_menuSelection->storedDestination();
    QMetaObject::invokeMethod(
        this, [stored] { MenuVisibility::shared()->setRequestedDestination(stored); }, Qt::QueuedConnection);
}

void AppMainWindow::takeRequestedDestination()
{
    MenuVisibility *menus = MenuVisibility::shared();
    if (!menus->requestedDestination() || frontWindow() != this)
        return;
    const std::optional<MenuDestination> request = menus->takeRequestedDestination();
    if (request)
        navigate(*request, true);
}

void AppMainWindow::navigate(MenuDestination destination, bool store)
{
    const bool changed = m_destination != destination;
    m_destination = destination;
    const int row = int(destination);
    if (m_sidebar->currentRow() != row) {
        const QSignalBlocker block(m_sidebar);
        m_sidebar->setCurrentRow(row);
    }
    DestinationScreen *shown = screenFor(destination);
    m_detail->setCurrentWidget(shown);
    watchActiveController();
    if (store)
        m_menuSelection->saveDestination(destination);
    if (frontWindow() == this)
        MenuVisibility::shared()->setActiveDestination(destination);
    shown->screenDidAppear();
    // A screen's tour is made with it, and starts by itself unless it is done.
    if (!m_tours.contains(destination)) {
        auto *tour = new OnBoardingController(OnBoardingStep::applicationSteps(), destination, nullptr, this);
        // A step whose control this screen does not show (the About panel's, elsewhere) is passed over.
        tour->setAvailability([this](int index) { return onboardingAnchor(index).has_value(); });
        m_tours.insert(destination, tour);
    }
    m_bubble->setController(isTourHeld() ? nullptr : m_tours.value(destination));
    m_menuBar->refresh();
    if (changed)
        emit destinationChanged();
}

DestinationScreen *AppMainWindow::currentScreen() const
{
    return m_destination ? m_screens.value(*m_destination) : nullptr;
}

DestinationScreen *AppMainWindow::screenFor(MenuDestination destination)
{
    if (DestinationScreen *existing = m_screens.value(destination))
        return existing;
    DestinationScreen *made = DestinationScreenRegistry::create(destination, m_detail);
    if (!made && destination == MenuDestination::menuAbout)
        made = new AboutView(m_detail);
    if (!made)
        made = new EmptyStateScreen(destination, m_detail);
    m_detail->addWidget(made);
    m_screens.insert(destination, made);
    connect(made, &DestinationScreen::commandStateChanged, this, [this, made] {
        if (currentScreen() == made) {
            watchActiveController();
            m_menuBar->refresh();
        }
    });
    return made;
}

void AppMainWindow::watchActiveController()
{
    disconnect(m_controllerConnection);
    DestinationScreen *current = currentScreen();
    if (AbstractController *controller = current ? current->activeController() : nullptr)
        m_controllerConnection = connect(controller, &AbstractController::changed, m_menuBar, &AppMenuBar::refresh);
}

MenuCommandContext AppMainWindow::commandContext() const
{
    MenuCommandContext context;
    context.destination = m_destination;
    context.window = const_cast<AppMainWindow *>(this);
    if (DestinationScreen *current = currentScreen()) {
        context.target = current;
        context.controller = current->activeController();
    }
    return context;
}

void AppMainWindow::changeEvent(QEvent *event)
{
    QMainWindow::changeEvent(event);
    if (event->type() == QEvent::ActivationChange && isActiveWindow())
        becameFront();
}

void AppMainWindow::becameFront()
{
    QList<AppMainWindow *> &list = openWindows();
    list.removeAll(this);
    list.prepend(this);
    if (m_destination)
        MenuVisibility::shared()->setActiveDestination(m_destination);
}

void AppMainWindow::closeEvent(QCloseEvent *event)
{
    // Pending edits live in the one store context that every window shares: only the last
    // window asks, and it stays open until the user has answered.
    // The field being edited is written first (leaving it commits it), so that what was
    // typed counts as a pending change; Cancel gives the focus back.
    QPointer<QWidget> editing = QApplication::focusWidget();
    if (editing && isAncestorOf(editing))
        editing->clearFocus();
    else
        editing = nullptr;
    int open = 0;
    for (AppMainWindow *window : windows())
        open += window->isVisible() ? 1 : 0;
    StoreContext *context = m_server->context();
    if (open > 1 || m_closeAnswered || !context || !context->hasChanges()) {
        QMainWindow::closeEvent(event);
        return;
    }
    event->ignore();
    // One question at a time; an answered one may still wait for its deletion.
    if (QMessageBox *asking = findChild<QMessageBox *>(QStringLiteral("unsavedChangesQuestion")); asking && asking->isVisible())
        return;
    auto *box = new QMessageBox(QMessageBox::Warning, QStringLiteral("Unsaved Changes"),
                                QStringLiteral("Do you want to save the changes you made?"), QMessageBox::NoButton, this);
    box->setObjectName(QStringLiteral("unsavedChangesQuestion"));
    box->setInformativeText(QStringLiteral("Your changes to tools, resources or prompts are not saved yet. If you "
                                           "don't save them, they are lost."));
    box->setAttribute(Qt::WA_DeleteOnClose);
    QPushButton *save = box->addButton(QStringLiteral("Save"), QMessageBox::AcceptRole);
    QPushButton *discard = box->addButton(QStringLiteral("Don't Save"), QMessageBox::DestructiveRole);
    box->addButton(QStringLiteral("Cancel"), QMessageBox::RejectRole);
    box->setDefaultButton(save);
    connect(box, &QMessageBox::finished, this, [this, box, save, discard, context, editing] {
        if (box->clickedButton() == save) {
            if (const Result<void> saved = context->save(); !saved) {
                QMessageBox::warning(this, QStringLiteral("Error"), saved.error().description);
                return;
            }
        } else if (box->clickedButton() == discard) {
            context->rollback();
        } else {
            if (editing)
                editing->setFocus();
            return;
        }
        m_closeAnswered = true;
        close();
    });
    box->setWindowModality(Qt::WindowModal);
    box->open();
}
