#pragma once

#include "app/MenuCommand.h"
#include "app/MenuCommandContext.h"

#include <QHash>
#include <QObject>
#include <functional>

// Decides what each menu command shows and does for the front window, and carries it
// out. Screens handle their own commands (MenuCommandTarget); application-wide commands
// (new window, import, export, help pages, onboarding...) are offered once a feature
// registers a handler for them. Main thread.
class MenuCommandDispatcher : public QObject {
    Q_OBJECT

public:
    using Handler = std::function<void(const MenuCommandContext &context)>;

    struct State {
        bool visible = false;
        bool enabled = false;
        QString title;
    };

    static MenuCommandDispatcher *shared();
    explicit MenuCommandDispatcher(QObject *parent = nullptr);

    // Offers an application-wide command; replaces an earlier handler.
    void registerHandler(MenuCommand command, Handler handler);
    void unregisterHandler(MenuCommand command);
    bool hasHandler(MenuCommand command) const { return m_handlers.contains(command); }

    State state(MenuCommand command, const MenuCommandContext &context) const;
    // Carries the command out when its state says it is offered and enabled; tells whether
    // it ran.
    bool perform(MenuCommand command, const MenuCommandContext &context);

    // Destinations whose screens' configuration commands (Duplicate) apply.
    static bool isConfigurationDestination(std::optional<MenuDestination> destination);

signals:
    // The set of registered commands changed; menus rebuild their state.
    void handlersChanged();

private:
    QHash<MenuCommand, Handler> m_handlers;
};
