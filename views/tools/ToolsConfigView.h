#pragma once

#include "tools/results/JSONToolResult.h"
#include "views/common/ConfigScreen.h"

#include <QJsonObject>
#include <functional>

class PluginController;
class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class ToolsConfig;
class ToolsConfigController;
class ToolResultView;
struct JSONToolConfig;

// The Tools destination: the filtered list of tools beside the form of the selected one
// ("Tool Definition", "Tool Action" by type, "Schema Definition" with the two schema
// editors), and a test run of the tool with what it returned. File ▸ New and Save act on its
// controller.
class ToolsConfigView : public ConfigScreen {
    Q_OBJECT

public:
    explicit ToolsConfigView(ToolsConfigController *controller, PluginController *plugins = nullptr,
                             QWidget *parent = nullptr);

    // How "Run" carries out a plug-in tool: the tool as exported and the arguments typed.
    // A script tool runs as the workbench runs it and a built-in tool through its executor;
    // a plug-in tool needs this (the router), since only it reaches the plug-ins.
    using ToolRunner = std::function<JSONToolResult(const JSONToolConfig &tool, const QJsonObject &arguments)>;
    void setToolRunner(ToolRunner runner) { m_runner = std::move(runner); }
    void runSelectedTool();
    QLineEdit *testArgumentsField() const { return m_testArguments; }
    ToolResultView *resultView() const { return m_result; }

    ToolsConfigController *controller() const { return m_controller; }
    QLineEdit *nameField() const { return m_name; }
    QComboBox *typeChoice() const { return m_type; }
    QComboBox *methodChoice() const { return m_method; }
    QComboBox *pluginChoice() const { return m_plugin; }
    QLabel *scriptLabel() const { return m_script; }
    QLabel *inputCountLabel() const { return m_inputCount; }
    QLineEdit *titleField() const { return m_title; }
    // The four standard hints, in the order of ToolsConfigController::hintKeys; partly
    // checked is a hint left open.
    const QList<QCheckBox *> &hintBoxes() const { return m_hints; }

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
    QLineEdit *m_title;
    QList<QCheckBox *> m_hints;
    QComboBox *m_type;
    QComboBox *m_method;
    QLineEdit *m_handler;
    QComboBox *m_plugin;
    QLabel *m_script;
    QWidget *m_scriptRow;
    QLabel *m_inputCount;
    QLabel *m_outputCount;
    bool m_editorOpen = false;
    QLineEdit *m_testArguments;
    ToolResultView *m_result;
    ToolRunner m_runner;
};
