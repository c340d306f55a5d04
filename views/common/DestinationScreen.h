#pragma once

#include "app/MenuCommandTarget.h"

#include <QWidget>

// The screen of one destination in the detail area of a main window. It answers the
// menus for its destination: the focused controller and the commands it carries out.
class DestinationScreen : public QWidget, public MenuCommandTarget {
    Q_OBJECT

public:
    explicit DestinationScreen(QWidget *parent = nullptr) : QWidget(parent) {}

    AbstractController *activeController() const override { return nullptr; }
    bool handlesCommand(MenuCommand) const override { return false; }
    void performCommand(MenuCommand) override {}

    // Called each time the screen comes to the front of its window.
    virtual void screenDidAppear() {}

signals:
    // Something the menus read may have changed (the focused controller, its can* answers).
    void commandStateChanged();
};
