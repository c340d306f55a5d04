#pragma once

#include "diagnostics/LogEntry.h"

#include <QAbstractListModel>
#include <QList>
#include <QPointer>
#include <QUuid>

class LogViewController;

// The log pane's rows: the view controller's filtered entries. New lines at the end and
// old ones leaving at the front arrive as row inserts and removals, so the selection and the
// scroll position of the rows that stay are kept; a row expanded or collapsed is a change of
// its data.
class LogListModel : public QAbstractListModel {
    Q_OBJECT

public:
    enum Role {
        IdRole = Qt::UserRole + 1,
        TimeRole,
        LabelRole,
        CodeRole,
        TypeRole,
        MessageRole,
        ExpandedRole,
        TruncatedRole,
        ExpandableRole,
    };

    explicit LogListModel(LogViewController *controller, QObject *parent = nullptr);

    int rowCount(const QModelIndex &parent = QModelIndex()) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    Qt::ItemFlags flags(const QModelIndex &index) const override;

    const LogEntry &entryAt(int row) const { return m_entries.at(row); }
    int rowOf(const QUuid &id) const;

    // Re-reads the controller's filtered entries.
    void refresh();

private:
    // Reads which rows are expanded and reports the rows that changed.
    void refreshExpansion();

    QPointer<LogViewController> m_controller;
    QList<LogEntry> m_entries;
    QList<bool> m_expanded;  // per row
};
