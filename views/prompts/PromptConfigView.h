#pragma once

#include "views/common/ConfigScreen.h"

class PromptConfig;
class PromptConfigController;
class QLabel;
class QLineEdit;
class QListWidget;
class QMenu;
class QPlainTextEdit;

// The Prompts destination: the filtered list of prompts beside the form of the selected one
// ("Prompt Definition" and its arguments), with the "Add Argument" and "Edit Argument"
// sheets. File ▸ New and Save act on its controller.
class PromptConfigView : public ConfigScreen {
    Q_OBJECT

public:
    explicit PromptConfigView(PromptConfigController *controller, QWidget *parent = nullptr);

    PromptConfigController *controller() const { return m_controller; }
    QListWidget *argumentList() const { return m_arguments; }
    QLineEdit *nameField() const { return m_name; }
    QPlainTextEdit *templateField() const { return m_template; }
    QPlainTextEdit *messagesField() const { return m_messages; }
    QLabel *messagesProblemLabel() const { return m_messagesProblem; }
    // A list row's menu: "Paste", "Duplicate" and "Remove" for the row's prompt.
    QMenu *makeRowMenu();

private:
    QLayout *makeForm();
    void rebuildList() override;
    void showSelection() override;
    void showArgumentSheet(bool editing);
    void confirmArgumentDeleteIfAsked();
    // The messages editor: the list as JSON text, written as typed, with what is wrong with it.
    QWidget *makeMessagesEditor();
    void showMessages();

    PromptConfigController *m_controller;
    QLineEdit *m_name;
    QLineEdit *m_description;
    QPlainTextEdit *m_template;
    QPlainTextEdit *m_messages = nullptr;
    QLabel *m_messagesProblem = nullptr;
    QLabel *m_argumentsTitle;
    QListWidget *m_arguments;
};
