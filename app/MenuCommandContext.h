#pragma once

#include "app/MenuDestination.h"

#include <QPointer>
#include <optional>

class AbstractController;
class MenuCommandTarget;
class QObject;

// The front window's focused values, read by a command when it runs: its destination, the
// active controller and the screen that handles commands, and the window itself (the
// parent of any dialog the command opens).
struct MenuCommandContext {
    std::optional<MenuDestination> destination;
    AbstractController *controller = nullptr;
    MenuCommandTarget *target = nullptr;
    QObject *window = nullptr;
};
