#pragma once

#include <QDialog>

class QLineEdit;
class QTableWidget;
class RunScriptManager;

// "Check and Run Script": the handler name and the JSON parameter rows (key, type, value),
// "Clear All", "Execute" and "Cancel". Execute with a blank handler name leaves it open.
class RunScriptDialog : public QDialog {
    Q_OBJECT

public:
    using Runner = std::function<void(const QString &, const QJsonObject &)>;

    RunScriptDialog(RunScriptManager *manager, Runner runner, QWidget *parent = nullptr);

    QLineEdit *handlerField() const { return m_handler; }
    QTableWidget *rows() const { return m_rows; }
    void addRow(const QString &key, const QString &type, const QString &value);
    void execute();

private:
    void readRows();

    RunScriptManager *m_manager;
    Runner m_runner;
    QLineEdit *m_handler;
    QTableWidget *m_rows;
};
