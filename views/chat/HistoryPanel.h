#pragma once

#include <QWidget>

class HistoryModel;
class QLabel;
class QLineEdit;
class QListWidget;
class QPushButton;

// The input history beside the chat: the sent prompts, newest first, with "Search history";
// a row is copied, deleted, or dragged out as text (the input takes the drop); a double click
// puts it into the input. "Save history", "Load history" and "Clear history" (after asking)
// work on the whole list. Failures show in a warning box and leave the list as it was.
class HistoryPanel : public QWidget {
    Q_OBJECT

public:
    explicit HistoryPanel(HistoryModel *model, QWidget *parent = nullptr);

    QLineEdit *searchField() const { return m_search; }
    QListWidget *list() const { return m_list; }
    // "No history yet" or "No results" when the list shows no row; hidden otherwise.
    QLabel *emptyLabel() const { return m_empty; }
    QPushButton *button(const QString &objectName) const;

    // The prompt of a shown row (row 0 is the newest match).
    QString prompt(int row) const;
    void copyRow(int row);
    void deleteRow(int row);
    // What "Save history" and "Load history" do once a file is chosen; false after a warning.
    bool saveTo(const QString &path);
    bool loadFrom(const QString &path);
    // Asks first ("confirmClearHistory"); "Clear" empties the list.
    void askToClear();

signals:
    // A row was double-clicked: the prompt to put into the input.
    void promptChosen(const QString &prompt);

private:
    void refresh();
    void warn(const QString &text);
    void chooseSaveFile();
    void chooseLoadFile();

    HistoryModel *m_model;
    QLineEdit *m_search;
    QListWidget *m_list;
    QLabel *m_empty;
};
