#pragma once

#include "views/common/ConfigScreen.h"

class PluginController;
class QComboBox;
class QLabel;
class QLineEdit;
class ToolsConfig;
class ToolsConfigController;

// The Tools destination: the filtered list of tools beside the form of the selected one
// ("Tool Definition", "Tool Action" by type, "Schema Definition" with the two schema
// editors). File ▸ New and Save act on its controller.
class ToolsConfigView : public ConfigScreen {
    Q_OBJECT

public:
    explicit ToolsConfigView(ToolsConfigController *controller, PluginController *plugins = nullptr,
                             QWidget *parent = nullptr);

    ToolsConfigController *controller() const { return m_controller; }
    QLineEdit *nameField() const { return m_name; }
    QComboBox *typeChoice() const { return m_type; }
    QComboBox *methodChoice() const { return m_method; }
    QComboBox *pluginChoice() const { return m_plugin; }
    QLabel *scriptLabel() const { return m_script; }
    QLabel *inputCountLabel() const { return m_inputCount; }

private:
    QLayout *makeToolbar();
    QLayout *makeForm();
    // What the list, the form's fields and the schema commands do.
    void bindForm();
    void bindSchemaCommands();
    static QString rowText(const ToolsConfig *tool);
    void refreshSelectedRow();
    void rebuildList() override;
    void applyFilter() override;
    void showSelection() override;
    void openSchemaEditors();
    void confirmDeletes();
    void chooseScript();

    ToolsConfigController *m_controller;
    PluginController *m_plugins;  // the plug-ins a custom tool may name; may be null
    QLineEdit *m_name;
    QLineEdit *m_description;
    QComboBox *m_type;
    QComboBox *m_method;
    QLineEdit *m_handler;
    QComboBox *m_plugin;
    QLabel *m_script;
    QWidget *m_scriptRow;
    QLabel *m_inputCount;
    QLabel *m_outputCount;
    bool m_editorOpen = false;
};
