#include "app/log/LogViewController.h"

#include "base/AtomicFile.h"
#include "base/UserDefaults.h"
#include "diagnostics/LogController.h"

#include <QLocale>

#include <algorithm>

LogViewController *LogViewController::of(LogController *log)
{
    if (!log)
        return nullptr;
    if (auto *existing = log->findChild<LogViewController *>(QString(), Qt::FindDirectChildrenOnly))
        return existing;
    return new LogViewController(log, log);
}

LogViewController::LogViewController(LogController *log, QObject *parent)
    : AbstractController(parent), m_log(log), m_filterTimer(this)
{
    m_filterTimer.setSingleShot(true);
    m_filterTimer.setInterval(filterDebounceMs);
    connect(&m_filterTimer, &QTimer::timeout, this, &LogViewController::applyFilter);
    if (m_log) {
        connect(m_log, &LogController::logEntriesChanged, this, &LogViewController::entriesDidChange);
        connect(m_log, &LogController::cleared, this, &LogViewController::logWasCleared);
    }

    const QVariant stored = UserDefaults::standard()->value(searchTextDefaultsKey);
    if (stored.isValid()) {
        const QString text = stored.toString();
        QMetaObject::invokeMethod(
            this, [this, text] { setSearchText(text); }, Qt::QueuedConnection);
    }
    // The first filter pass runs once the debounce has passed, as for any later change.
    QMetaObject::invokeMethod(
        this, [this] { scheduleFilter(); }, Qt::QueuedConnection);
}

LogViewController::~LogViewController() = default;

QList<LogEntry> LogViewController::logEntries() const
{
    return m_log ? m_log->logEntries() : QList<LogEntry>();
}

std::optional<LogEntry> LogViewController::entry(const QUuid &id) const
{
    return m_log ? m_log->entry(id) : std::nullopt;
}

void LogViewController::clear()
{
    if (m_log)
        m_log->clear();
}

void LogViewController::entriesDidChange()
{
    // Rows that left the log leave the expanded set with them.
    if (!m_expanded.isEmpty()) {
        QSet<QUuid> kept;
        for (const LogEntry &entry : m_log->logEntries()) {
            if (m_expanded.contains(entry.id))
                kept.insert(entry.id);
        }
        setExpandedIds(std::move(kept));
    }
    emit changed();
    scheduleFilter();
}

void LogViewController::logWasCleared()
{
    setSearchText(QString());
    // Stored afterwards, with the value the search text has by then.
    QMetaObject::invokeMethod(
        this, [this] { UserDefaults::standard()->setValue(searchTextDefaultsKey, m_searchText); },
        Qt::QueuedConnection);
}

void LogViewController::setSearchText(const QString &text)
{
    if (m_searchText == text)
        return;
    m_searchText = text;
    emit searchTextChanged();
    emit changed();
    scheduleFilter();
}

void LogViewController::setAutoScrollEnabled(bool enabled)
{
    if (m_autoScrollEnabled == enabled)
        return;
    m_autoScrollEnabled = enabled;
    emit autoScrollEnabledChanged();
    emit changed();
}

// ---- Expanded rows ----

void LogViewController::setExpandedIds(QSet<QUuid> ids)
{
    if (ids == m_expanded)
        return;
    m_expanded = std::move(ids);
    emit expansionChanged();
    emit changed();
}

void LogViewController::toggleExpanded(const QUuid &id)
{
    if (!entry(id))
        return;
    QSet<QUuid> ids = m_expanded;
    if (!ids.remove(id))
        ids.insert(id);
    setExpandedIds(std::move(ids));
}

void LogViewController::setExpanded(const QSet<QUuid> &ids, bool expanded)
{
    QSet<QUuid> next = m_expanded;
    if (expanded) {
        for (const LogEntry &entry : logEntries()) {
            if (ids.contains(entry.id))
                next.insert(entry.id);
        }
    } else {
        next.subtract(ids);
    }
    setExpandedIds(std::move(next));
}

void LogViewController::collapseAll()
{
    setExpandedIds({});
}

// ---- Export ----

QString LogViewController::exportText() const
{
    const QList<LogEntry> entries = logEntries();
    QStringList lines;
    lines.reserve(entries.size());
    for (const LogEntry &entry : entries)
        lines.append(entry.exportLine());
    return lines.join(QLatin1Char('\n'));
}

QString LogViewController::exportText(const QSet<QUuid> &ids) const
{
    QStringList lines;
    for (const LogEntry &entry : m_filteredEntries) {
        if (ids.contains(entry.id))
            lines.append(entry.exportLine());
    }
    return lines.join(QLatin1Char('\n'));
}

QString LogViewController::exportFileName(const QDateTime &when)
{
    return QStringLiteral("mcp_server_logs_") + when.toString(QStringLiteral("yyyy-MM-dd_HHmmss")) +
           QStringLiteral(".txt");
}

QString LogViewController::entryExportFileName(const QDateTime &when)
{
    return QStringLiteral("log_entry_") + when.toString(QStringLiteral("yyyy-MM-dd_HHmmss")) + QStringLiteral(".txt");
}

std::optional<QString> LogViewController::writeTextFile(const QString &path, const QString &text)
{
    return AtomicFile::write(path, text.toUtf8());
}

bool LogViewController::exportToFile(const QString &path)
{
    if (auto error = writeTextFile(path, exportText())) {
        showAlert(QStringLiteral("Error"), *error);
        return false;
    }
    return true;
}

bool LogViewController::exportEntryToFile(const QUuid &id, const QString &path)
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

// ---- The filter ----

void LogViewController::scheduleFilter()
{
    // Each change restarts the wait, so a burst of lines costs one filter pass.
    m_filterTimer.start();
}

QList<LogEntry> LogViewController::filterEntries(const QList<LogEntry> &entries, const QString &searchText)
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

void LogViewController::applyFilter()
{
    m_filteredEntries = filterEntries(logEntries(), m_searchText);
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
