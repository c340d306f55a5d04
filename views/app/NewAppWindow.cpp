#include "views/app/NewAppWindow.h"

#include "base/AppPaths.h"
#include "app/WindowState.h"
#include "views/app/AppMainWindow.h"

#include <QGuiApplication>
#include <QScreen>

namespace NewAppWindow {

namespace {
QPointer<AppMainWindow> &last()
{
    static QPointer<AppMainWindow> window;
    return window;
}
}  // namespace

QString title(MenuDestination destination)
{
    return AppPaths::displayName() + QStringLiteral(" — ") + MenuDestinations::title(destination);
}

AppMainWindow *open(ServerConfigController *server, std::optional<MenuDestination> destination)
{
    const MenuDestination shown = destination.value_or(MenuDestination::menuAbout);
    auto *window = new AppMainWindow(server, shown);
    window->setWindowTitle(title(shown));
    window->resize(int(WindowState::defaultWidth), int(WindowState::defaultHeight));
    AppMainWindow *front = AppMainWindow::frontWindow();
    QScreen *screen = front && front != window && front->screen() ? front->screen() : QGuiApplication::primaryScreen();
    if (screen) {
        const QRect area = screen->availableGeometry();
        const QSize size = window->size().boundedTo(area.size());
        window->resize(size);
        window->move(area.x() + (area.width() - size.width()) / 2, area.y() + (area.height() - size.height()) / 2);
    }
    window->show();
    window->raise();
    window->activateWindow();
    last() = window;
    return window;
}

AppMainWindow *lastWindow() { return last(); }

}  // namespace NewAppWindow
