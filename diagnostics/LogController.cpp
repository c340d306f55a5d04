#include "diagnostics/LogController.h"

#include "base/AtomicFile.h"
#include "base/MainThread.h"
#include "base/UserDefaults.h"
#include "engine/bridge/MainThreadQueue.h"

#include <QCoreApplication>
#include <QMutexLocker>
#include <QPointer>
#include <QThread>

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

LogController::LogController(QObject *parent) : AbstractController(parent), m_filterTimer(this)
{
    m_filterTimer.setSingleShot(true);
    m_filterTimer.setInterval(filterDebounceMs);
    connect(&m_filterTimer, &QTimer::timeout, this, &LogController::applyFilter);

    const auto defaults = UserDefaults::standard();
    const QVariant stored = defaults->value(searchTextDefaultsKey);
    if (stored.isValid()) {
        const QString text = stored.toString();
        QMetaObject::invokeMethod(
            this, [this, text] { setSearchText(text); }, Qt::QueuedConnection);
    }

    // The first filter pass runs once the debounce has passed, as for any later change.
    QMetaObject::invokeMethod(
        this, [this] { scheduleFilter(); }, Qt::QueuedConnection);

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

JSONToolResult LogController::toolError(const QString &message, int code, MCPLogMessageType level,
                                        const QVariantMap &extra)
{
    log(message, code, level);
    JSONToolResult result =
        JSONToolResult::errorResult(QStringLiteral("Error ") + QString::number(code) + QLatin1Char(' ') + message);
    for (auto it = extra.cbegin(); it != extra.cend(); ++it) {
        if (auto value = AnyCodable::fromVariant(it.value()))
            result.structuredContent.insert(it.key(), *value);
    }
    result.structuredContent.insert(QStringLiteral("success"), AnyCodable(false));
    result.structuredContent.insert(QStringLiteral("error_message"), AnyCodable(message));
    result.structuredContent.insert(QStringLiteral("error_code"), AnyCodable(code));
    return result;
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
    scheduleFilter();
}

void LogController::clear()
{
    m_logEntries.clear();
    m_textBytes = 0;
    entriesDidChange();
    setSearchText(QString());
    // Stored afterwards, with the value the search text has by then.
    QMetaObject::invokeMethod(
        this, [this] { UserDefaults::standard()->setValue(searchTextDefaultsKey, m_searchText); },
        Qt::QueuedConnection);
}

void LogController::toggleExpanded(const QUuid &id)
{
    for (LogEntry &entry : m_logEntries) {
        if (entry.id == id) {
            entry.isExpanded = !entry.isExpanded;
            entriesDidChange();
            return;
        }
    }
}

void LogController::setExpanded(const QSet<QUuid> &ids, bool expanded)
{
    bool any = false;
    for (LogEntry &entry : m_logEntries) {
        if (ids.contains(entry.id) && entry.isExpanded != expanded) {
            entry.isExpanded = expanded;
            any = true;
        }
    }
    if (any)
        entriesDidChange();
}

void LogController::collapseAll()
{
    bool any = false;
    for (LogEntry &entry : m_logEntries) {
        if (entry.isExpanded) {
            entry.isExpanded = false;
            any = true;
        }
    }
    if (any)
        entriesDidChange();
}

bool LogController::anyExpanded() const
{
    return std::any_of(m_logEntries.cbegin(), m_logEntries.cend(), [](const LogEntry &e) { return e.isExpanded; });
}

QString LogController::exportText() const
{
    QStringList lines;
    lines.reserve(m_logEntries.size());
    for (const LogEntry &entry : m_logEntries)
        lines.append(entry.exportLine());
    return lines.join(QLatin1Char('\n'));
}

QString LogController::exportText(const QSet<QUuid> &ids) const
{
    QStringList lines;
    for (const LogEntry &entry : m_filteredEntries) {
        if (ids.contains(entry.id))
            lines.append(entry.exportLine());
    }
    return lines.join(QLatin1Char('\n'));
}

QString LogController::exportFileName(const QDateTime &when)
{
    return QStringLiteral("mcp_server_logs_") + when.toString(QStringLiteral("yyyy-MM-dd_HHmmss")) +
           QStringLiteral(".txt");
}

QString LogController::entryExportFileName(const QDateTime &when)
{
    return QStringLiteral("log_entry_") + when.toString(QStringLiteral("yyyy-MM-dd_HHmmss")) + QStringLiteral(".txt");
}

std::optional<QString> LogController::writeTextFile(const QString &path, const QString &text)
{
    return AtomicFile::write(path, text.toUtf8());
}

bool LogController::exportToFile(const QString &path)
{
    if (auto error = writeTextFile(path, exportText())) {
        showAlert(QStringLiteral("Error"), *error);
        return false;
    }
    return true;
}

bool LogController::exportEntryToFile(const QUuid &id, const QString &path)
{
    const std::optional<LogEntry> found = entry(id);
    if (!found)
        return false;
    if (auto error = writeTextFile(path, found->message)) {
        showAlert(QStringLiteral("Error"), *error);
        return false;
    }
    return true;
}

std::optional<LogEntry> LogController::entry(const QUuid &id) const
{
    for (const LogEntry &entry : m_logEntries) {
        if (entry.id == id)
            return entry;
    }
    return std::nullopt;
}

void LogController::setSearchText(const QString &text)
{
    if (m_searchText == text)
        return;
    m_searchText = text;
    emit searchTextChanged();
    emit changed();
    scheduleFilter();
}

void LogController::setAutoScrollEnabled(bool enabled)
{
    if (m_autoScrollEnabled == enabled)
        return;
    m_autoScrollEnabled = enabled;
    emit autoScrollEnabledChanged();
    emit changed();
}

void LogController::scheduleFilter()
{
    // Each change restarts the wait, so a burst of lines costs one filter pass.
    m_filterTimer.start();
}

QList<LogEntry> LogController::filterEntries(const QList<LogEntry> &entries, const QString &searchText)
{
    if (searchText.isEmpty())
        return entries;
    const QLocale locale;
    const QString needle = locale.toLower(searchText);
    auto containsText = [&](const QString &haystack) {
        return haystack.contains(searchText, Qt::CaseInsensitive) || locale.toLower(haystack).contains(needle);
    };
    QList<LogEntry> result;
    for (const LogEntry &entry : entries) {
        if (containsText(entry.displayText()) || containsText(entry.label()) ||
            (entry.code >= 1 && QString::number(entry.code).contains(searchText)))
            result.append(entry);
    }
    return result;
}

void LogController::applyFilter()
{
    m_filteredEntries = filterEntries(m_logEntries, m_searchText);
    const bool multiLine = std::any_of(m_filteredEntries.cbegin(), m_filteredEntries.cend(), [](const LogEntry &e) {
        return e.message.contains(QLatin1Char('\n')) || e.message.contains(QLatin1Char('\r'));
    });
    emit filteredEntriesChanged();
    if (multiLine != m_hasMultiLine) {
        m_hasMultiLine = multiLine;
        emit hasMultiLineChanged();
    }
    emit changed();
}
