#pragma once

#include "chat/session/PromptPickerModel.h"

#include <QDialog>
#include <functional>

class QLabel;
class QLineEdit;
class QListWidget;
class QPushButton;
class QStackedWidget;
class QVBoxLayout;
class StoreContext;

// "Insert Prompt from Prompt-Config": a searchable list with the template's preview, then the
// template's arguments with "Choose file" and "Choose folder"; "Insert" hands the filled
// template to onInsert and closes.
class PromptPickerSheet : public QDialog {
    Q_OBJECT

public:
    PromptPickerSheet(StoreContext *context, std::function<void(const QString &)> onInsert, QWidget *parent = nullptr);

    PromptPickerModel &model() { return m_model; }
    QListWidget *list() const { return m_list; }
    QLineEdit *searchField() const { return m_search; }
    QPushButton *nextButton() const { return m_next; }
    void goOn();

private:
    void refreshList();
    void showArguments();
    void refreshInsert();

    PromptPickerModel m_model;
    std::function<void(const QString &)> m_onInsert;
    QStackedWidget *m_pages;
    QLineEdit *m_search;
    QListWidget *m_list;
    QLabel *m_preview;
    QVBoxLayout *m_arguments;
    QPushButton *m_next;
};
