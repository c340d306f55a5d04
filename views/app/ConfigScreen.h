#pragma once

#include "views/app/DestinationScreen.h"

#include <functional>

class QListWidget;
class QPushButton;
class StoreBackedController;

// What the Tools, Resources and Prompts screens share: the header with title, lead text and
// help button, named buttons, File ▸ New and Save on the controller, the list's keyboard
// copy, paste and delete, the delete confirmation, and keeping the view in step with the
// controller's change signals. A screen builds its own list and form and fills rebuildList()
// and showSelection().
class ConfigScreen : public DestinationScreen {
    Q_OBJECT

public:
    AbstractController *activeController() const override;
    bool handlesCommand(MenuCommand command) const override;
    void performCommand(MenuCommand command) override;

    QPushButton *button(const QString &name) const;

    // A button that the screen finds again by name.
    static QPushButton *makeButton(QWidget *parent, const QString &name, const QString &text,
                                   const char *shortcut = nullptr);
    // A warning box with "Delete" and "Cancel", window-modal, deleted when closed.
    static void confirm(QWidget *parent, const QString &name, const QString &title, const QString &text,
                        std::function<void()> onDelete, std::function<void()> onCancel);
    // A confirmation of that name still on screen (an answered one may wait for deletion).
    bool openBox(const QString &name) const;

protected:
    ConfigScreen(StoreBackedController *controller, QWidget *parent);

    // The title, lead text and "?" that opens the help document.
    QLayout *makeHeader(const QString &title, const QString &lead, const QString &helpFile, const QString &helpTitle);
    // Connects the controller's signals and the list's keys; call once the widgets exist.
    void bindController(QListWidget *list, std::function<void()> deleteCommand, std::function<QString()> deleteTitle,
                        std::function<QString()> deleteText);

    virtual void rebuildList() = 0;
    virtual void showSelection() = 0;

private:
    StoreBackedController *m_base;
};
