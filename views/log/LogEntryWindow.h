#pragma once

#include "diagnostics/LogEntry.h"

#include <QList>
#include <QPointer>
#include <QTextCursor>
#include <QWidget>

class LogViewController;
class QLabel;
class QLineEdit;
class QPlainTextEdit;
class QPushButton;

// The "Log Entry" window: one entry's whole message, with a search that steps through
// its matches ("Next", "Previous") and counts them as "position of total". The message
// can be copied or saved to a file of its own.
class LogEntryWindow : public QWidget {
    Q_OBJECT

public:
    LogEntryWindow(const LogEntry &entry, LogViewController *controller, QWidget *parent = nullptr);

    const LogEntry &entry() const { return m_entry; }
    QLineEdit *searchField() const { return m_search; }
    QPlainTextEdit *textView() const { return m_text; }
    // "2 of 5", "0 of 0" when nothing matches, empty without a search.
    QString matchCountText() const;
    int matchCount() const { return int(m_matches.size()); }
    int currentMatch() const { return m_current; }

    void findNext();
    void findPrevious();
    void copyMessage();
    void saveMessage();

private:
    void search(const QString &text);
    void showCurrent();

    LogEntry m_entry;
    QPointer<LogViewController> m_controller;
    QLineEdit *m_search;
    QPushButton *m_next;
    QPushButton *m_previous;
    QLabel *m_count;
    QPlainTextEdit *m_text;
    QList<QTextCursor> m_matches;
    int m_current = -1;
};
