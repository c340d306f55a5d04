#pragma once

#include "base/AbstractController.h"
#include "diagnostics/LogController.h"
#include "diagnostics/LogEntry.h"

#include <QDateTime>
#include <QList>
#include <QPointer>
#include <QSet>
#include <QString>
#include <QTimer>
#include <QUuid>
#include <optional>

// What the log panes show of a log: the search text and the debounced filter of the entries
// it gives, the expanded rows, auto-scroll, and the export of the log as the pane does it.
// One per log (of()), so every pane of a log shares its search and expanded rows. The
// search text is kept in the user defaults; clearing the log empties it. Main thread.
class LogViewController : public AbstractController {
    Q_OBJECT
    Q_PROPERTY(QList<LogEntry> filteredEntries READ filteredEntries NOTIFY filteredEntriesChanged)
    Q_PROPERTY(QString searchText READ searchText WRITE setSearchText NOTIFY searchTextChanged)
    Q_PROPERTY(bool autoScrollEnabled READ autoScrollEnabled WRITE setAutoScrollEnabled NOTIFY autoScrollEnabledChanged)
    Q_PROPERTY(bool hasMultiLine READ hasMultiLine NOTIFY hasMultiLineChanged)
    Q_PROPERTY(bool anyExpanded READ anyExpanded NOTIFY expansionChanged)

public:
    static constexpr int filterDebounceMs = 50;
    static inline const QString searchTextDefaultsKey = QStringLiteral("logviewSearchText");

    // The view state of this log, made on first use; it lives as long as the log.
    static LogViewController *of(LogController *log);

    // Reads the stored search text as a later step, and runs the first filter pass once the
    // debounce has passed.
    explicit LogViewController(LogController *log, QObject *parent = nullptr);
    ~LogViewController() override;

    LogController *log() const { return m_log; }
    // The log's entries (all of them, unfiltered).
    QList<LogEntry> logEntries() const;
    std::optional<LogEntry> entry(const QUuid &id) const;
    // Empties the log; the search text follows (see the class comment).
    Q_INVOKABLE void clear();

    QList<LogEntry> filteredEntries() const { return m_filteredEntries; }
    QString searchText() const { return m_searchText; }
    void setSearchText(const QString &text);
    bool autoScrollEnabled() const { return m_autoScrollEnabled; }
    void setAutoScrollEnabled(bool enabled);
    bool hasMultiLine() const { return m_hasMultiLine; }

    bool isExpanded(const QUuid &id) const { return m_expanded.contains(id); }
    Q_INVOKABLE void toggleExpanded(const QUuid &id);
    void setExpanded(const QSet<QUuid> &ids, bool expanded);
    Q_INVOKABLE void collapseAll();
    bool anyExpanded() const { return !m_expanded.isEmpty(); }

    // All entries, one exportLine() each, joined with line breaks.
    QString exportText() const;
    // The listed entries whose ids are given, in list order, in the same form.
    QString exportText(const QSet<QUuid> &ids) const;

    // "mcp_server_logs_yyyy-MM-dd_HHmmss.txt" and "log_entry_yyyy-MM-dd_HHmmss.txt".
    static QString exportFileName(const QDateTime &when = QDateTime::currentDateTime());
    static QString entryExportFileName(const QDateTime &when = QDateTime::currentDateTime());
    // Writes text as UTF-8, atomically; on failure gives the reason and leaves any
    // existing file untouched.
    static std::optional<QString> writeTextFile(const QString &path, const QString &text);
    // Writes exportText() (or one entry's message) to path; a failure raises the alert
    // "Error" with the reason. Tells whether the file was written.
    bool exportToFile(const QString &path);
    bool exportEntryToFile(const QUuid &id, const QString &path);

    // The filter itself, without the debounce.
    static QList<LogEntry> filterEntries(const QList<LogEntry> &entries, const QString &searchText);

signals:
    void filteredEntriesChanged();
    void searchTextChanged();
    void autoScrollEnabledChanged();
    void hasMultiLineChanged();
    // Rows were expanded or collapsed.
    void expansionChanged();

private:
    void entriesDidChange();
    void logWasCleared();
    void setExpandedIds(QSet<QUuid> ids);
    void scheduleFilter();
    void applyFilter();

    QPointer<LogController> m_log;
    QList<LogEntry> m_filteredEntries;
    QString m_searchText;
    bool m_autoScrollEnabled = true;
    bool m_hasMultiLine = false;
    QSet<QUuid> m_expanded;  // only ids of entries the log still holds
    QTimer m_filterTimer;
};
