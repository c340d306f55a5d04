#pragma once

#include "views/app/DestinationScreen.h"

class PromptConfig;
class PromptConfigController;
class QLabel;
class QLineEdit;
class QListWidget;
class QPlainTextEdit;
class QPushButton;
class QStackedWidget;

// The Prompts destination: the filtered list of prompts beside the form of the selected one
// ("Prompt Definition" and its arguments), with the "Add Argument" and "Edit Argument"
// sheets. File ▸ New and Save act on its controller.
class PromptConfigView : public DestinationScreen {
    Q_OBJECT

public:
    explicit PromptConfigView(PromptConfigController *controller = nullptr, QWidget *parent = nullptr);

    AbstractController *activeController() const override;
    bool handlesCommand(MenuCommand command) const override;
    void performCommand(MenuCommand command) override;

    PromptConfigController *controller() const { return m_controller; }
    QListWidget *list() const { return m_list; }
    QListWidget *argumentList() const { return m_arguments; }
    QLineEdit *filterField() const { return m_filter; }
    QLineEdit *nameField() const { return m_name; }
    QPlainTextEdit *templateField() const { return m_template; }
    QPushButton *button(const QString &name) const;

private:
    void rebuildList();
    void showSelection();
    void showArgumentSheet(bool editing);
    void confirmDeleteIfAsked();
    void confirmArgumentDeleteIfAsked();

    PromptConfigController *m_controller;
    QLineEdit *m_filter;
    QListWidget *m_list;
    QStackedWidget *m_detail;
    QLineEdit *m_name;
    QLineEdit *m_description;
    QPlainTextEdit *m_template;
    QLabel *m_argumentsTitle;
    QListWidget *m_arguments;
    bool m_showing = false;
};
