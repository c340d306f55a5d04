#include "views/app/DesktopApp.h"

#include "base/AppPaths.h"
#include "app/ApplicationServices.h"
#include "app/AuthorizedNotifier.h"
#include "app/DesktopInstance.h"
#include "app/MenuVisibility.h"
#include "app/security/AccessPanel.h"
#include "diagnostics/LogController.h"
#include "app/ServeCommand.h"
#include "tools/scripting/ScriptWatchdog.h"
#include "tools/security/BookmarkController.h"
#include "views/app/AppDelegate.h"
#include "views/common/AppIcons.h"
#include "views/app/AppMainWindow.h"
#include "views/app/AppStyle.h"
#include "views/common/ColorScheme.h"
#include "views/app/BuiltinFeatures.h"
#include "views/app/NewAppWindow.h"
#include "views/common/QtFileDialogs.h"
#include "views/app/ScreenshotTour.h"
#include "views/app/StartupQuestions.h"
#include "views/app/ChatScreenshotStep.h"
#include "views/app/ScriptScreenshotStep.h"
#include "views/app/ServerScreenshotStep.h"
#include "views/app/ToolsScreenshotStep.h"

#include <QApplication>
#include <QFileInfo>
#include <QPointer>
#include <QUrl>
#include <cstdio>
#include <cstdlib>

namespace {

struct Options {
    bool newWindow = false;
    QString screenshotDir;
    QStringList openRequests;
    QStringList unknown;
};

Options parse(const QStringList &arguments)
{
    Options options;
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        const QString &argument = arguments.at(i);
        if (argument == QLatin1String("--new-window")) {
            options.newWindow = true;
        } else if (argument == QLatin1String("--screenshot-dir") && i + 1 < arguments.size()) {
            options.screenshotDir = arguments.at(++i);
        } else if (argument.startsWith(QLatin1String("--screenshot-dir="))) {
            options.screenshotDir = argument.section(QLatin1Char('='), 1);
        } else if (argument.startsWith(QLatin1Char('-'))) {
            options.unknown.append(argument);
        } else {
            options.openRequests.append(argument);
        }
    }
    return options;
}

// An open request is a URL when it has a scheme other than "file", else a path.
void handleOpenRequests(AppDelegate &delegate, const QStringList &requests)
{
    QList<QUrl> urls;
    for (const QString &request : requests) {
        const QUrl url(request);
        if (url.isValid() && !url.scheme().isEmpty() && url.scheme() != QLatin1String("file") && url.scheme().size() > 1)
            urls.append(url);
        else
            delegate.openFile(url.isLocalFile() ? url.toLocalFile() : QFileInfo(request).absoluteFilePath());
    }
    if (!urls.isEmpty())
        delegate.openURLs(urls);
}

}  // namespace

int runDesktop(int argc, char **argv)
{
    QApplication::setApplicationName(AppPaths::displayName());
    QApplication::setApplicationVersion(AppPaths::version());
    QApplication::setDesktopFileName(QStringLiteral("kelvara"));
    QApplication app(argc, argv);
    app.setStyle(new AppStyle);
    // Light or dark as the desktop prefers, before the first window is made.
    ColorScheme::shared()->apply();
    app.setWindowIcon(AppIcons::applicationIcon());

    const QStringList arguments = app.arguments().mid(1);
    const Options options = parse(arguments);
    for (const QString &unknown : options.unknown)
        std::fprintf(stderr, "kelvara: unknown option %s (ignored)\n", unknown.toLocal8Bit().constData());

    // A Kelvara that already runs in this session opens the window or takes the files.
    DesktopInstance instance;
    if (options.screenshotDir.isEmpty() && instance.claim() == DesktopInstance::Role::Secondary) {
        QStringList forwarded = arguments;
        if (forwarded.isEmpty())
            forwarded.append(QStringLiteral("--new-window"));
        if (DesktopInstance::forward(forwarded))
            return 0;
    }

    // The services first (the store among them), then the delegate, then the menus' state.
    ApplicationServices services;
    ServerConfigController *server = services.server();
    AppDelegate delegate;
    MenuVisibility *menus = MenuVisibility::shared();
    menus->setMainWindowNumberProvider([]() -> std::optional<int> {
        const QList<AppMainWindow *> windows = AppMainWindow::windows();
        if (windows.isEmpty())
            return std::nullopt;
        int lowest = windows.first()->windowNumber();
        for (AppMainWindow *window : windows)
            lowest = std::min(lowest, window->windowNumber());
        return lowest;
    });
    // The user's granted locations are loaded and opened before any window asks for one.
    BookmarkController::shared();
    AccessPanel::setPresenter(QtFileDialogs::instance());
    static AuthorizedNotifier notifier;
    DesktopNotifier::setShared(&notifier);
    BuiltinFeatures::registerAll(services);
    AppMainWindow::setLaunchFinishedHandler(&StartupQuestions::ask);

    auto *window = new AppMainWindow(server);
    delegate.didFinishLaunching(window);
    window->show();
    handleOpenRequests(delegate, options.openRequests);

    QObject::connect(&instance, &DesktopInstance::activationRequested, &app, [&delegate, server](const QStringList &forwarded) {
        const Options later = parse(forwarded);
        handleOpenRequests(delegate, later.openRequests);
        if (later.newWindow) {
            NewAppWindow::open(server, MenuDestination::menuAbout);
        } else if (AppMainWindow *front = AppMainWindow::frontWindow()) {
            front->raise();
            front->activateWindow();
        }
    });

    std::unique_ptr<ScreenshotTour> tour;
    if (!options.screenshotDir.isEmpty()) {
        ScreenshotTour::addStep(ServerScreenshotStep::step());
        ScreenshotTour::addStep(ChatScreenshotStep::step());
        ScreenshotTour::addStep(ChatScreenshotStep::transcriptStep());
        ScreenshotTour::addStep(ToolsScreenshotStep::step());
        ScreenshotTour::addStep(ScriptScreenshotStep::step());
        tour = std::make_unique<ScreenshotTour>(options.screenshotDir, window);
        tour->start();
    }
    const int code = app.exec();
    // Before Qt's own teardown: no request reaches the engine any more, running scripts end,
    // and a line a late worker still logs goes nowhere instead of to objects of a main loop
    // that is gone.
    ScriptWatchdog::terminateAll();
    const bool idle = services.finish(ServeCommand::stopWaitLimit);
    services.log()->setLogHandler(nullptr);
    // The windows, closed at quit, go before the services they were handed.
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    const QList<AppMainWindow *> left = AppMainWindow::windows();
    qDeleteAll(left);
    if (!idle) {
        // A handler that does not return (a plug-in stuck in a call) still uses the services:
        // leave without destroying them.
        std::fflush(stdout);
        std::_Exit(code);
    }
    if (tour && tour->failures() > 0)
        return 1;
    return code;
}
