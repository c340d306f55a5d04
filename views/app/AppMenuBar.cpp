#include "views/app/AppMenuBar.h"

#include "app/MenuCommandDispatcher.h"

#include <QAction>
#include <QMenu>

namespace {
QString groupTitle(MenuGroup group)
{
    switch (group) {
    case MenuGroup::File:
        return QStringLiteral("&File");
    case MenuGroup::Edit:
        return QStringLiteral("&Edit");
    case MenuGroup::View:
        return QStringLiteral("&View");
    case MenuGroup::Script:
        return QStringLiteral("&Script");
    case MenuGroup::Help:
        return QStringLiteral("&Help");
    }
    return QString();
}
}  // namespace

AppMenuBar::AppMenuBar(ContextProvider context, QWidget *parent) : QMenuBar(parent), m_context(std::move(context))
{
    setObjectName(QStringLiteral("appMenuBar"));
    for (MenuGroup group : {MenuGroup::File, MenuGroup::Edit, MenuGroup::View, MenuGroup::Script, MenuGroup::Help}) {
        QMenu *menu = addMenu(groupTitle(group));
        m_menus.insert(group, menu);
        for (const MenuCommandInfo &info : MenuCommands::group(group)) {
            if (info.separatorBefore && !menu->isEmpty())
                menu->addSeparator();
            QAction *action = menu->addAction(info.title);
            if (!info.shortcut.isEmpty())
                action->setShortcut(QKeySequence::fromString(info.shortcut, QKeySequence::PortableText));
            // Shortcuts work in the whole window, also while the menu is closed.
            action->setShortcutContext(Qt::WindowShortcut);
            const MenuCommand command = info.command;
            connect(action, &QAction::triggered, this, [this, command] { trigger(command); });
            m_actions.insert(command, action);
        }
        // Shown items can change while the user looks, e.g. a save that just became possible.
        connect(menu, &QMenu::aboutToShow, this, &AppMenuBar::refresh);
    }
    connect(MenuCommandDispatcher::shared(), &MenuCommandDispatcher::handlersChanged, this, &AppMenuBar::refresh);
    refresh();
}

void AppMenuBar::refresh()
{
    const MenuCommandContext context = m_context ? m_context() : MenuCommandContext();
    const MenuCommandDispatcher *dispatcher = MenuCommandDispatcher::shared();
    for (auto it = m_actions.cbegin(); it != m_actions.cend(); ++it) {
        const MenuCommandDispatcher::State state = dispatcher->state(it.key(), context);
        QAction *action = it.value();
        action->setVisible(state.visible);
        action->setEnabled(state.enabled);
        if (action->text() != state.title)
            action->setText(state.title);
    }
    for (QMenu *menu : std::as_const(m_menus)) {
        bool any = false;
        for (QAction *action : menu->actions())
            any = any || (!action->isSeparator() && action->isVisible());
        menu->menuAction()->setVisible(any);
    }
}

void AppMenuBar::trigger(MenuCommand command)
{
    const MenuCommandContext context = m_context ? m_context() : MenuCommandContext();
    MenuCommandDispatcher::shared()->perform(command, context);
    refresh();
}
