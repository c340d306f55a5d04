#pragma once

#include "diagnostics/LogEntry.h"
#include "diagnostics/MCPLogMessageType.h"
#include "base/AbstractController.h"
#include "base/JSONToolResult.h"

#include <QDateTime>
#include <QList>
#include <QMutex>
#include <QSet>
#include <QString>
#include <QTimer>
#include <QUuid>
#include <QVariantMap>
#include <atomic>
#include <functional>
#include <optional>

// The application's one in-memory log. Lines arrive from any thread and become entries on
// the main thread in the order they arrived there; the list keeps the newest 1000 and a
// debounced filter feeds the log pane. Nothing reaches the disk unless the user exports.
class LogController : public AbstractController {
    Q_OBJECT
    Q_PROPERTY(QList<LogEntry> logEntries READ logEntries NOTIFY logEntriesChanged)
    Q_PROPERTY(QList<LogEntry> filteredEntries READ filteredEntries NOTIFY filteredEntriesChanged)
    Q_PROPERTY(QString searchText READ searchText WRITE setSearchText NOTIFY searchTextChanged)
    Q_PROPERTY(bool autoScrollEnabled READ autoScrollEnabled WRITE setAutoScrollEnabled NOTIFY autoScrollEnabledChanged)
    Q_PROPERTY(bool hasMultiLine READ hasMultiLine NOTIFY hasMultiLineChanged)
    Q_PROPERTY(bool anyExpanded READ anyExpanded NOTIFY logEntriesChanged)

public:
    using LogHandler = std::function<void(MCPLogMessageType, int code, const QString &)>;

    static constexpr int maxLogEntries = 1000;
    // What the kept texts (messages and their shortened forms) may hold in all, in bytes.
    static constexpr qsizetype defaultTextBudget = qsizetype(16) << 20;
    // A message over this many characters is kept as its beginning and end with its length
    // stated, once the budget is reached.
    static constexpr qsizetype keptCharactersWhenOver = 2048;
    static constexpr int filterDebounceMs = 50;
    static inline const QString searchTextDefaultsKey = QStringLiteral("logviewSearchText");

    // Process-wide log, made on first use. Safe to call first from any thread: the object
    // is handed to the main thread before anyone else sees it.
    static LogController *shared();

    explicit LogController(QObject *parent = nullptr);
    ~LogController() override;

    // Sends the line to logHandler: directly on the main thread, else queued there.
    // Without a handler nothing happens. Any thread.
    void log(const QString &message, int code, MCPLogMessageType level);
    // Logs the line and gives the error result of a tool: text "Error <code> <message>",
    // extra merged into structuredContent, then success false, error_message, error_code
    // (these three win over same-named extras). Any thread.
    JSONToolResult toolError(const QString &message, int code, MCPLogMessageType level, const QVariantMap &extra = {});

    // The handler every line goes through; by default it makes an entry here.
    LogHandler logHandler() const;
    void setLogHandler(LogHandler handler);
    // The budget of the kept texts (for tests; the default otherwise).
    void setTextBudget(qsizetype bytes);
    qsizetype textBytes() const { return m_textBytes; }
    // "first part … [12345678 characters in all, the middle not kept] … last part"
    static QString keptForBudget(const QString &message);

    // Lines less severe than this are dropped at once (default: all lines are kept).
    void setMinimumLevel(MCPLogMessageType level);
    // "… 12 log lines dropped under load"
    static QString droppedLinesText(size_t count);

    // Empties the log and the search text, and stores the empty search text.
    Q_INVOKABLE void clear();

    Q_INVOKABLE void toggleExpanded(const QUuid &id);
    void setExpanded(const QSet<QUuid> &ids, bool expanded);
    Q_INVOKABLE void collapseAll();
    bool anyExpanded() const;

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

    QList<LogEntry> logEntries() const { return m_logEntries; }
    QList<LogEntry> filteredEntries() const { return m_filteredEntries; }
    QString searchText() const { return m_searchText; }
    void setSearchText(const QString &text);
    bool autoScrollEnabled() const { return m_autoScrollEnabled; }
    void setAutoScrollEnabled(bool enabled);
    bool hasMultiLine() const { return m_hasMultiLine; }
    std::optional<LogEntry> entry(const QUuid &id) const;

    // The filter itself, without the debounce.
    static QList<LogEntry> filterEntries(const QList<LogEntry> &entries, const QString &searchText);

signals:
    void logEntriesChanged();
    void filteredEntriesChanged();
    void searchTextChanged();
    void autoScrollEnabledChanged();
    void hasMultiLineChanged();

private:
    void enqueueEntry(MCPLogMessageType level, int code, const QString &message);
    void appendPendingEntries();
    void entriesDidChange();
    void scheduleFilter();
    void applyFilter();

    static qsizetype textBytesOf(const LogEntry &entry);
    void keepWithinBudget();
    QList<LogEntry> m_logEntries;
    qsizetype m_textBytes = 0;  // of m_logEntries, counted as the budget counts
    qsizetype m_textBudget = defaultTextBudget;
    QList<LogEntry> m_filteredEntries;
    QString m_searchText;
    bool m_autoScrollEnabled = true;
    bool m_hasMultiLine = false;
    QTimer m_filterTimer;

    QMutex m_pendingMutex;
    QList<LogEntry> m_pendingEntries;

    mutable QMutex m_handlerMutex;
    LogHandler m_logHandler;
    std::atomic<int> m_minimumLevel{static_cast<int>(MCPLogMessageType::Debug)};
};
