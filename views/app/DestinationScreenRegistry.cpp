#include "views/app/DestinationScreenRegistry.h"

#include "views/common/DestinationScreen.h"

#include <QHash>

namespace DestinationScreenRegistry {

namespace {
QHash<MenuDestination, Factory> &factories()
{
    static QHash<MenuDestination, Factory> table;
    return table;
}
}  // namespace

void registerScreen(MenuDestination destination, Factory factory) { factories().insert(destination, std::move(factory)); }

void unregisterScreen(MenuDestination destination) { factories().remove(destination); }

bool hasScreen(MenuDestination destination) { return factories().contains(destination); }

DestinationScreen *create(MenuDestination destination, QWidget *parent)
{
    const auto it = factories().constFind(destination);
    return it == factories().cend() ? nullptr : (*it)(parent);
}

}  // namespace DestinationScreenRegistry
