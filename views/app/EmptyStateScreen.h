#pragma once

#include "app/MenuDestination.h"
#include "views/common/DestinationScreen.h"

// What a destination shows while its screen is not part of the build: its icon, its
// title and a sentence on what will appear there. It offers no commands.
class EmptyStateScreen : public DestinationScreen {
    Q_OBJECT

public:
    explicit EmptyStateScreen(MenuDestination destination, QWidget *parent = nullptr);

    MenuDestination destination() const { return m_destination; }
    bool isFeatureBuilt() const override { return false; }
    // The sentence on what the destination will hold.
    static QString description(MenuDestination destination);
    static QString notBuiltText();

private:
    MenuDestination m_destination;
};
