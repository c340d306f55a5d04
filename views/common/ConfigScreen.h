#pragma once

#include "app/UserDefaultsKeys.h"
#include "views/common/DestinationScreen.h"

#include <functional>
#include <utility>
#include <vector>

class QLineEdit;
class QListWidget;
class QListWidgetItem;
class QPushButton;
class QSplitter;
class QStackedWidget;
class StoreBackedController;
class StoreRecord;

// What the Tools, Resources and Prompts screens share: the header with title, lead text and
// help button, the filter above the list of records, the form of the selected record beside
// it, named buttons, File ▸ New and Save on the controller, the list's keyboard copy, paste
// and delete, the delete confirmation, and keeping the view in step with the controller's
// change signals. A screen supplies its form (and toolbar) through build() and fills
// rebuildList() and showSelection().
class ConfigScreen : public DestinationScreen {
    Q_OBJECT

public:
    AbstractController *activeController() const override;
    bool handlesCommand(MenuCommand command) const override;
    void performCommand(MenuCommand command) override;

    QListWidget *list() const { return m_list; }
    QLineEdit *filterField() const { return m_filter; }
    QPushButton *button(const QString &name) const;
    // The list and the form on either side of a divider kept under the screen's pane key.
    QSplitter *splitter() const { return m_split; }

    // A button that the screen finds again by name.
    static QPushButton *makeButton(QWidget *parent, const QString &name, const QString &text,
                                   const char *shortcut = nullptr);
    // A warning box with "Delete" and "Cancel", window-modal, deleted when closed.
    static void confirm(QWidget *parent, const QString &name, const QString &title, const QString &text,
                        std::function<void()> onDelete, std::function<void()> onCancel);
    // A confirmation of that name still on screen (an answered one may wait for deletion).
    bool openBox(const QString &name) const;
    // Several windows may show screens over the same controller: the one that presents its
    // questions and sheets is the visible one in the active window, else the first visible one.
    bool presentsForController() const;

protected:
    // Del on the list: the delete command, refused while a record is being added, as the
    // list's delete button is.
    void deleteIfAllowed(const std::function<void()> &command);
    // Writes a free-text field on every keystroke, so that an edit is pending at once (Save
    // lights up, closing asks), and once more when the field is left.
    void commitAsTyped(QLineEdit *field, std::function<void()> commit);

    // What one screen's construction varies in.
    struct Parts {
        QString objectName;
        QString title, lead, helpFile, helpTitle;  // the header
        QString filterName, filterPlaceholder;
        QString listName;
        int listWidth = 220;  // the list's least width
        int listFocus = 0;  // the list's value in the controller's focus enumeration
        // Made after the header and shown between it and the list, when given.
        std::function<QLayout *()> toolbar{};
        // A row of buttons under the list: object name and text.
        std::vector<std::pair<const char *, const char *>> listButtons{};
        // Where the divider between the list and the form is kept.
        UserDefaultsKeys paneKey = UserDefaultsKeys::spToolConfigView;
        // The layout of the selected record's page; made after the list.
        std::function<QLayout *()> form{};
        QString emptyText;  // in place of the form while nothing is selected
        bool emptyTextWraps = false;
        // The "delete" button and the Delete key; the confirmation's title and text.
        std::function<void()> deleteCommand;
        QString deleteTitle;
        std::function<QString()> deleteText;
    };

    // A controller without a parent belongs to the screen.
    ConfigScreen(StoreBackedController *controller, QWidget *parent);
    ~ConfigScreen() override;

    // Makes the screen and connects the shared buttons ("add", "delete", "copy", "paste",
    // "save", "revert": the toolbar, list buttons or form makes them), the filter, the list
    // and the controller. The screen lists its records once its own parts are connected.
    void build(const Parts &parts);

    // "Revert" and "Save" at the right, for a form that has them at its foot.
    QLayout *saveRow();
    // Adds the record's row to the list; the selected record's row becomes the current one.
    void addRow(const QString &text, StoreRecord *record);
    static StoreRecord *recordOf(const QListWidgetItem *item);
    // Makes the selected record's row the list's current one.
    void showCurrentRow();
    // The form while a record is selected, and the shared buttons enabled as the controller
    // answers.
    void showCommonState();

    virtual void rebuildList() = 0;
    virtual void showSelection() = 0;
    // The filter's text changed; by default the list is made again.
    virtual void applyFilter() { rebuildList(); }

    // Set while the view writes to its widgets, so their change signals are not edits.
    bool m_showing = false;

private:
    QLayout *makeHeader(const Parts &parts);
    void bindController(const Parts &parts);

    StoreBackedController *m_base;
    QLineEdit *m_filter = nullptr;
    QListWidget *m_list = nullptr;
    QStackedWidget *m_detail = nullptr;
    QSplitter *m_split = nullptr;
};
