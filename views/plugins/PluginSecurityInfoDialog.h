#pragma once

#include "tools/plugins/Plugin.h"

#include <QDialog>

class PluginController;
class QPushButton;

// The security information sheet of one plug-in: what holds for every plug-in here, and
// its descriptor and state.
class PluginSecurityInfoDialog : public QDialog {
    Q_OBJECT

public:
    PluginSecurityInfoDialog(PluginController *controller, const Plugin &plugin, QWidget *parent = nullptr);

    QPushButton *doneButton() const { return m_done; }

protected:
    void reject() override;

private:
    PluginController *m_controller;
    QPushButton *m_done;
};
