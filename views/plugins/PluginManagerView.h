#pragma once

#include "tools/plugins/Plugin.h"
#include "views/common/DestinationScreen.h"

#include <QPointer>
#include <optional>

class PluginManagerController;
class QDialog;
class QLabel;
class QMessageBox;
class QPushButton;
class QTableWidget;

// The Plugin Manager: the registered native plug-ins with a switch each, and the sheets of
// the controller (approval, security information, enable wizard, uninstall confirmation),
// each shown while its flag is set. The File menu's new-item command ("Add Plugin") and
// the register button open the panel for a plug-in file.
//
// Several windows may show this screen over the one controller; a sheet shows once, over
// the window in front.
class PluginManagerView : public DestinationScreen {
    Q_OBJECT

public:
    enum Column { EnabledColumn = 0, NameColumn, VersionColumn, AuthorColumn, PathColumn, InfoColumn };

    explicit PluginManagerView(PluginManagerController *controller, QWidget *parent = nullptr);
    ~PluginManagerView() override;

    AbstractController *activeController() const override;
    bool handlesCommand(MenuCommand command) const override;
    void performCommand(MenuCommand command) override;

    PluginManagerController *controller() const { return m_controller; }
    QTableWidget *table() const { return m_table; }
    QPushButton *registerButton() const { return m_register; }
    QPushButton *uninstallButton() const { return m_uninstall; }
    QLabel *loadingLabel() const { return m_loading; }
    QLabel *emptyLabel() const { return m_empty; }

    // The plug-in of the selected row, if any.
    std::optional<Plugin> selectedPlugin() const;
    // The sheets on screen now (whichever view opened them).
    QDialog *approvalDialog() const;
    QDialog *securityInfoDialog() const;
    QDialog *enableWizard() const;
    QMessageBox *uninstallConfirmation() const;

private:
    void rebuild();
    void refreshState();
    void rowSwitched(int row);
    void presentSheets();

    PluginManagerController *m_controller;
    QLabel *m_loading;
    QLabel *m_empty;
    QTableWidget *m_table;
    QPushButton *m_register;
    QPushButton *m_uninstall;
    QList<Plugin> m_rows;
    bool m_filling = false;
};
