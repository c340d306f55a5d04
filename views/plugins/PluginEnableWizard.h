#pragma once

#include "tools/plugins/Plugin.h"

#include <QDialog>

class PluginManagerController;
class QPushButton;

// The enable wizard: says why the plug-in's file must be picked again, and what an enabled
// plug-in may do, then hands over to the open panel.
class PluginEnableWizard : public QDialog {
    Q_OBJECT

public:
    PluginEnableWizard(PluginManagerController *controller, const Plugin &plugin, QWidget *parent = nullptr);

    QPushButton *chooseButton() const { return m_choose; }
    QPushButton *cancelButton() const { return m_cancel; }

protected:
    void reject() override;

private:
    PluginManagerController *m_controller;
    QPushButton *m_choose;
    QPushButton *m_cancel;
};
