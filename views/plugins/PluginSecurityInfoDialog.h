#pragma once

#include "tools/plugins/Plugin.h"

#include <QDialog>

class PluginManagerController;
class QPushButton;

// The security information sheet of one plug-in: what holds for every plug-in here, and
// its descriptor and state.
class PluginSecurityInfoDialog : public QDialog {
    Q_OBJECT

public:
    PluginSecurityInfoDialog(PluginManagerController *controller, const Plugin &plugin, QWidget *parent = nullptr);

    QPushButton *doneButton() const { return m_done; }

protected:
    void reject() override;

private:
    PluginManagerController *m_controller;
    QPushButton *m_done;
};
