#pragma once

#include "app/MenuDestination.h"

#include <QPointer>
#include <optional>

class AppMainWindow;
class ServerConfigController;

// Opens further main windows: titled with the display name, " — " and the destination's
// title, 1024 by 720, centered and in front. Without a destination the About screen.
namespace NewAppWindow {

AppMainWindow *open(ServerConfigController *server, std::optional<MenuDestination> destination);
// The window opened last, while it is open.
AppMainWindow *lastWindow();
QString title(MenuDestination destination);

}  // namespace NewAppWindow
