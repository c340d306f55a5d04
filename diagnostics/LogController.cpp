#include "diagnostics/LogController.h"

#include "base/MainThread.h"
#include "engine/bridge/MainThreadQueue.h"

#include <QCoreApplication>
#include <QMutexLocker>
#include <QPointer>
#include <QThread>

#include <algorithm>
#include <cstdio>
#include <mutex>

LogController *LogController::shared()
{
    static LogController *instance = nullptr;
    static std::once_flag once;
    std::call_once(once, [] {
        auto *controller = new LogController;
        // Made wherever it was first asked for; it lives on the main thread so that its
        // timer and queued steps run there.
        if (auto *app = QCoreApplication::instance(); app && controller->thread() != app->thread())
            controller->moveToThread(app->thread());
        instance = controller;
        // Lines that waited too long for the main thread are dropped, oldest first; the
        // log says how many, where they would have been.
        MainThreadQueue::logLines().setOverflowHandler([](size_t dropped) {
            instance->log(droppedLinesText(dropped), 0, MCPLogMessageType::Warning);
        });
    });
    return instance;
}

LogController::LogController(QObject *parent) : AbstractController(parent)
{
    QPointer<LogController> weak(this);
    m_logHandler = [weak](MCPLogMessageType level, int code, const QString &message) {
        if (LogController *controller = weak.data()) {
            controller->enqueueEntry(level, code, message);
        } else {
            std::fputs(message.toLocal8Bit().constData(), stdout);
            std::fputc('\n', stdout);
            std::fflush(stdout);
        }
    };
}

LogController::~LogController() = default;

LogController::LogHandler LogController::logHandler() const
{
    QMutexLocker lock(&m_handlerMutex);
    return m_logHandler;
}

void LogController::setLogHandler(LogHandler handler)
{
    QMutexLocker lock(&m_handlerMutex);
    m_logHandler = std::move(handler);
}

void LogController::log(const QString &message, int code, MCPLogMessageType level)
{
    if (static_cast<int>(level) > m_minimumLevel.load())
        return;
    LogHandler handler = logHandler();
    if (!handler)
        return;
    if (MainThread::isCurrent())
        handler(level, code, message);
    else
        MainThreadQueue::logLines().post(
            [handler = std::move(handler), level, code, message] { handler(level, code, message); },
            64 + static_cast<size_t>(message.size()) * sizeof(QChar));
}

void LogController::setMinimumLevel(MCPLogMessageType level)
{
    m_minimumLevel.store(static_cast<int>(level));
}

QString LogController::droppedLinesText(size_t count)
{
    return QStringLiteral("… %1 log lines dropped under load").arg(count);
}

void LogController::enqueueEntry(MCPLogMessageType level, int code, const QString &message)
{
    // Always a later step on the main thread, so lines keep the order in which they
    // reached it, also relative to other queued work such as a queued clear. Lines that
    // come while a step is pending join it and are announced together.
    {
        QMutexLocker lock(&m_pendingMutex);
        m_pendingEntries.append(LogEntry::make(message, code, level));
        if (m_pendingEntries.size() > 1)
            return;
    }
    QMetaObject::invokeMethod(this, &LogController::appendPendingEntries, Qt::QueuedConnection);
}

void LogController::appendPendingEntries()
{
    QList<LogEntry> pending;
    {
        QMutexLocker lock(&m_pendingMutex);
        pending.swap(m_pendingEntries);
    }
    if (pending.size() >= maxLogEntries)
        pending.remove(0, pending.size() - maxLogEntries);
    const qsizetype excess = m_logEntries.size() + pending.size() - maxLogEntries;
    if (excess > 0) {
        for (qsizetype i = 0; i < excess; ++i)
            m_textBytes -= textBytesOf(m_logEntries.at(i));
        m_logEntries.remove(0, excess);
    }
    for (const LogEntry &entry : pending)
        m_textBytes += textBytesOf(entry);
    m_logEntries.append(std::move(pending));
    keepWithinBudget();
    entriesDidChange();
}

qsizetype LogController::textBytesOf(const LogEntry &entry)
{
    return (entry.message.size() + entry.truncatedMessage.size()) * qsizetype(sizeof(QChar));
}

QString LogController::keptForBudget(const QString &message)
{
    const qsizetype part = keptCharactersWhenOver / 2;
    return message.left(part) + QStringLiteral(" … [%1 characters in all, the middle not kept] … ")
                                    .arg(message.size()) + message.right(part);
}

void LogController::setTextBudget(qsizetype bytes)
{
    m_textBudget = std::max<qsizetype>(bytes, 1);
    keepWithinBudget();
}

void LogController::keepWithinBudget()
{
    // Oldest first: long texts are shortened to their ends, and only if that is not enough
    // do whole entries go. Texts within the budget stay as they were logged.
    for (qsizetype i = 0; m_textBytes > m_textBudget && i < m_logEntries.size(); ++i) {
        LogEntry &entry = m_logEntries[i];
        if (entry.message.size() <= keptCharactersWhenOver + 100)
            continue;
        m_textBytes -= textBytesOf(entry);
        entry = LogEntry::shortenedCopy(entry, keptForBudget(entry.message));
        m_textBytes += textBytesOf(entry);
    }
    while (m_textBytes > m_textBudget && m_logEntries.size() > 1) {
        m_textBytes -= textBytesOf(m_logEntries.first());
        m_logEntries.removeFirst();
    }
}

void LogController::entriesDidChange()
{
    emit logEntriesChanged();
    emit changed();
}

void LogController::clear()
{
    m_logEntries.clear();
    m_textBytes = 0;
    entriesDidChange();
    emit cleared();
}

std::optional<LogEntry> LogController::entry(const QUuid &id) const
{
    for (const LogEntry &entry : m_logEntries) {
        if (entry.id == id)
            return entry;
    }
    return std::nullopt;
}
