#pragma once

#include "views/log/LogEntryWindow.h"

#include <QPointer>
#include <QSet>
#include <QUuid>
#include <QWidget>

class LogController;
class LogViewController;
class LogEntryDelegate;

class LogListModel;
class QLabel;
class QLineEdit;
class QListView;
class QToolButton;

// The log pane: a search field, clear, export and auto-scroll in its header, and the list
// of the log's filtered entries. Several rows can be selected; the context menu copies
// them, selects all, and expands or collapses rows; "Show details" opens a "Log Entry"
// window with the whole message.
class LogPaneView : public QWidget {
    Q_OBJECT

public:
    // Over the log's view state (LogViewController::of), the shared log's by default.
    explicit LogPaneView(LogController *controller = nullptr, QWidget *parent = nullptr);

    LogController *controller() const { return m_controller; }
    LogViewController *viewController() const { return m_view; }
    LogListModel *model() const { return m_model; }
    QListView *listView() const { return m_list; }
    QLineEdit *searchField() const { return m_search; }
    QToolButton *autoScrollButton() const { return m_autoScroll; }
    // The window "Show details" opened last, if it is still open.
    LogEntryWindow *detailWindow() const { return m_detailWindow; }

    // The ids of the selected rows (selectedLogIDs).
    QSet<QUuid> selectedLogIDs() const;

    // The context menu's commands.
    void copySelection();
    void selectAllRows();
    void expandAll();
    void collapseAll();
    void toggleExpanded(const QUuid &id);
    void showDetails(const QUuid &id);
    // The header's commands.
    void clearLog();
    void exportLog();
    void toggleAutoScroll();

    // What the auto-scroll button says: the change a click makes.
    QString autoScrollText() const;

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void syncFromController();
    void updateCount();
    void scrollToNewestIfFollowing();
    void showContextMenu(const QPoint &position);

    LogController *m_controller;
    LogViewController *m_view;
    LogListModel *m_model;
    LogEntryDelegate *m_delegate;
    QListView *m_list;
    QLineEdit *m_search;
    QLabel *m_count;
    QToolButton *m_clear;
    QToolButton *m_export;
    QToolButton *m_autoScroll;
    QPointer<LogEntryWindow> m_detailWindow;
};
