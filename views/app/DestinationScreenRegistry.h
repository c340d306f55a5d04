#pragma once

#include "app/MenuDestination.h"

#include <functional>

class DestinationScreen;
class QWidget;

// Which screen each destination shows. A feature registers its screen's maker at start-up;
// a destination without one shows an empty state that says what will appear there.
namespace DestinationScreenRegistry {

using Factory = std::function<DestinationScreen *(QWidget *parent)>;

void registerScreen(MenuDestination destination, Factory factory);
void unregisterScreen(MenuDestination destination);
bool hasScreen(MenuDestination destination);
// A new screen of the destination, or nullptr when none is registered.
DestinationScreen *create(MenuDestination destination, QWidget *parent);

}  // namespace DestinationScreenRegistry
