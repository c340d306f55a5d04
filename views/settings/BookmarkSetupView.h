#pragma once

#include <QWidget>

class BookmarkSetupViewModel;
class QLabel;
class QPushButton;
class QStackedWidget;
class QTableWidget;

// The security scopes assistant: an introduction, then the table of locations Kelvara may
// use outside its own folder, each with a tick, a name and its path. "Finish" applies the
// table to the stored choices. Shown as the "Security Scopes" section of the settings and
// as a sheet from the About screen.
class BookmarkSetupView : public QWidget {
    Q_OBJECT

public:
    // With showsClose the view has a "Close" button that sends closeRequested.
    explicit BookmarkSetupView(BookmarkSetupViewModel *model, bool showsClose = false, QWidget *parent = nullptr);

    BookmarkSetupViewModel *model() const { return m_model; }
    QTableWidget *table() const { return m_table; }
    QLabel *statusLabel() const { return m_status; }

signals:
    void closeRequested();

private:
    void showPage();
    void rebuildTable();
    void updateStatus();
    void removeSelected();

    BookmarkSetupViewModel *m_model;
    QStackedWidget *m_pages;
    QTableWidget *m_table;
    QLabel *m_status;
    QLabel *m_statusDetail;
    QPushButton *m_remove;
    QPushButton *m_back;
    QPushButton *m_next;
    QPushButton *m_finish;
    bool m_rebuilding = false;
};
