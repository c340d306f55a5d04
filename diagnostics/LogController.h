#pragma once

#include "diagnostics/LogEntry.h"
#include "diagnostics/MCPLogMessageType.h"
#include "base/AbstractController.h"

#include <QList>
#include <QMutex>
#include <QString>
#include <QUuid>
#include <atomic>
#include <functional>
#include <optional>

// The application's one in-memory log. Lines arrive from any thread and become entries on
// the main thread in the order they arrived there; the list keeps the newest 1000 within a
// byte budget. Nothing reaches the disk unless the user exports. What a log pane shows of
// it (search, expanded rows, export) is the pane's controller's, LogViewController.
class LogController : public AbstractController {
    Q_OBJECT
    Q_PROPERTY(QList<LogEntry> logEntries READ logEntries NOTIFY logEntriesChanged)

public:
    using LogHandler = std::function<void(MCPLogMessageType, int code, const QString &)>;

    static constexpr int maxLogEntries = 1000;
    // What the kept texts (messages and their shortened forms) may hold in all, in bytes.
    static constexpr qsizetype defaultTextBudget = qsizetype(16) << 20;
    // A message over this many characters is kept as its beginning and end with its length
    // stated, once the budget is reached.
    static constexpr qsizetype keptCharactersWhenOver = 2048;

    // Process-wide log, made on first use. Safe to call first from any thread: the object
    // is handed to the main thread before anyone else sees it.
    static LogController *shared();

    explicit LogController(QObject *parent = nullptr);
    ~LogController() override;

    // Sends the line to logHandler: directly on the main thread, else queued there.
    // Without a handler nothing happens. Any thread.
    void log(const QString &message, int code, MCPLogMessageType level);

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

    // Empties the log, then says so with cleared().
    Q_INVOKABLE void clear();

    QList<LogEntry> logEntries() const { return m_logEntries; }
    std::optional<LogEntry> entry(const QUuid &id) const;

signals:
    void logEntriesChanged();
    void cleared();

private:
    void enqueueEntry(MCPLogMessageType level, int code, const QString &message);
    void appendPendingEntries();
    void entriesDidChange();

    static qsizetype textBytesOf(const LogEntry &entry);
    void keepWithinBudget();
    QList<LogEntry> m_logEntries;
    qsizetype m_textBytes = 0;  // of m_logEntries, counted as the budget counts
    qsizetype m_textBudget = defaultTextBudget;

    QMutex m_pendingMutex;
    QList<LogEntry> m_pendingEntries;

    mutable QMutex m_handlerMutex;
    LogHandler m_logHandler;
    std::atomic<int> m_minimumLevel{static_cast<int>(MCPLogMessageType::Debug)};
};
