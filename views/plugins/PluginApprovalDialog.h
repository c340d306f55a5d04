#pragma once

#include "tools/plugins/Plugin.h"

#include <QDialog>

class PluginManagerController;
class QPushButton;

// The approval sheet over the controller's pending plug-in: its descriptor, and the two
// answers. The controller closes the sheet by clearing its flag; closing the window is a
// denial.
class PluginApprovalDialog : public QDialog {
    Q_OBJECT

public:
    PluginApprovalDialog(PluginManagerController *controller, const Plugin &plugin, QWidget *parent = nullptr);

    QPushButton *approveButton() const { return m_approve; }
    QPushButton *denyButton() const { return m_deny; }

protected:
    void reject() override;

private:
    PluginManagerController *m_controller;
    QPushButton *m_approve;
    QPushButton *m_deny;
};
