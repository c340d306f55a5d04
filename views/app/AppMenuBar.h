#pragma once

#include "app/MenuCommand.h"
#include "app/MenuCommandContext.h"

#include <QHash>
#include <QMenuBar>
#include <functional>

class QAction;
class QMenu;

// A window's menu bar, made from the menu table: File, Edit, View, Script and Help. Each
// item shows, hides, enables and names itself from the window's focused values when they
// change, so that shortcuts follow too; a menu with nothing to offer is hidden.
class AppMenuBar : public QMenuBar {
    Q_OBJECT

public:
    using ContextProvider = std::function<MenuCommandContext()>;

    AppMenuBar(ContextProvider context, QWidget *parent = nullptr);

    QAction *action(MenuCommand command) const { return m_actions.value(command); }
    QMenu *menu(MenuGroup group) const { return m_menus.value(group); }

    // Re-reads the focused values and updates every item.
    void refresh();

private:
    void trigger(MenuCommand command);

    ContextProvider m_context;
    QHash<MenuCommand, QAction *> m_actions;
    QHash<MenuGroup, QMenu *> m_menus;
};
