#include "views/log/LogListModel.h"

#include "app/log/LogViewController.h"

LogListModel::LogListModel(LogViewController *controller, QObject *parent)
    : QAbstractListModel(parent), m_controller(controller)
{
    if (m_controller) {
        connect(m_controller, &LogViewController::filteredEntriesChanged, this, &LogListModel::refresh);
        connect(m_controller, &LogViewController::expansionChanged, this, &LogListModel::refreshExpansion);
        m_entries = m_controller->filteredEntries();
        for (const LogEntry &entry : std::as_const(m_entries))
            m_expanded.append(m_controller->isExpanded(entry.id));
    }
}

int LogListModel::rowCount(const QModelIndex &parent) const { return parent.isValid() ? 0 : int(m_entries.size()); }

Qt::ItemFlags LogListModel::flags(const QModelIndex &index) const
{
    return index.isValid() ? Qt::ItemIsEnabled | Qt::ItemIsSelectable : Qt::NoItemFlags;
}

QVariant LogListModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || index.row() >= m_entries.size())
        return {};
    const LogEntry &entry = m_entries.at(index.row());
    switch (role) {
    case Qt::DisplayRole:
        return entry.displayText();
    case Qt::ToolTipRole:
        return entry.wasTruncated ? QStringLiteral("Shortened for display; Show details has the whole message.")
                                  : QVariant();
    case IdRole:
        return entry.id;
    case TimeRole:
        return entry.formattedTimestamp;
    case LabelRole:
        return entry.label();
    case CodeRole:
        return entry.code;
    case TypeRole:
        return int(entry.type);
    case MessageRole:
        return entry.message;
    case ExpandedRole:
        return m_expanded.at(index.row());
    case TruncatedRole:
        return entry.wasTruncated;
    case ExpandableRole:
        return entry.wasTruncated || entry.message.contains(QLatin1Char('\n'));
    default:
        return {};
    }
}

int LogListModel::rowOf(const QUuid &id) const
{
    for (int i = 0; i < m_entries.size(); ++i) {
        if (m_entries.at(i).id == id)
            return i;
    }
    return -1;
}

void LogListModel::refresh()
{
    const QList<LogEntry> next = m_controller ? m_controller->filteredEntries() : QList<LogEntry>();

    // The usual change: some rows gone from the front, some new ones at the end.
    qsizetype dropped = -1;
    if (!m_entries.isEmpty() && !next.isEmpty()) {
        for (qsizetype i = 0; i < m_entries.size(); ++i) {
            if (m_entries.at(i).id == next.first().id) {
                dropped = i;
                break;
            }
        }
    }
    const qsizetype kept = dropped < 0 ? 0 : m_entries.size() - dropped;
    bool incremental = dropped >= 0 && kept <= next.size();
    for (qsizetype i = 0; incremental && i < kept; ++i)
        incremental = m_entries.at(dropped + i).id == next.at(i).id;

    auto expandedFlags = [this](const QList<LogEntry> &entries) {
        QList<bool> flags;
        flags.reserve(entries.size());
        for (const LogEntry &entry : entries)
            flags.append(m_controller && m_controller->isExpanded(entry.id));
        return flags;
    };
    if (!incremental) {
        if (m_entries.isEmpty() && next.isEmpty())
            return;
        beginResetModel();
        m_entries = next;
        m_expanded = expandedFlags(next);
        endResetModel();
        return;
    }
    if (dropped > 0) {
        beginRemoveRows(QModelIndex(), 0, int(dropped) - 1);
        m_entries.remove(0, dropped);
        m_expanded.remove(0, dropped);
        endRemoveRows();
    }
    refreshExpansion();
    if (next.size() > kept) {
        const QList<LogEntry> added = next.mid(kept);
        beginInsertRows(QModelIndex(), int(kept), int(next.size()) - 1);
        m_entries.append(added);
        m_expanded.append(expandedFlags(added));
        endInsertRows();
    }
}

void LogListModel::refreshExpansion()
{
    for (qsizetype i = 0; i < m_entries.size(); ++i) {
        const bool expanded = m_controller && m_controller->isExpanded(m_entries.at(i).id);
        if (m_expanded.at(i) != expanded) {
            m_expanded[i] = expanded;
            emit dataChanged(index(int(i)), index(int(i)));
        }
    }
}
