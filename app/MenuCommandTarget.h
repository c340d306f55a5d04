#pragma once

#include "app/MenuCommand.h"

class AbstractController;

// What a destination's screen offers the menus: the controller that has the focus, and
// the commands the screen carries out itself (a new item, save, find, run...). A command
// that no screen handles and no feature has registered is not offered at all.
class MenuCommandTarget {
public:
    virtual ~MenuCommandTarget() = default;

    // The focused controller of the screen, or nullptr.
    virtual AbstractController *activeController() const = 0;
    virtual bool handlesCommand(MenuCommand command) const = 0;
    // Further enabling beyond the controller's can* answers; true by default.
    virtual bool isCommandEnabled(MenuCommand command) const { return true; }
    virtual void performCommand(MenuCommand command) = 0;
    // False for a destination whose screen is not part of the build yet: the menus then
    // leave out even the items a built screen shows disabled.
    virtual bool isFeatureBuilt() const { return true; }
};
