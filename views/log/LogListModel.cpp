#include "views/log/LogListModel.h"

#include "diagnostics/LogController.h"

LogListModel::LogListModel(LogController *controller, QObject *parent)
    : QAbstractListModel(parent), m_controller(controller)
{
    if (m_controller) {
        connect(m_controller, &LogController::filteredEntriesChanged, this, &LogListModel::refresh);
        m_entries = m_controller->filteredEntries();
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
        return entry.isExpanded;
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

    if (!incremental) {
        if (m_entries.isEmpty() && next.isEmpty())
            return;
        beginResetModel();
        m_entries = next;
        endResetModel();
        return;
    }
    if (dropped > 0) {
        beginRemoveRows(QModelIndex(), 0, int(dropped) - 1);
        m_entries.remove(0, dropped);
        endRemoveRows();
    }
    for (qsizetype i = 0; i < kept; ++i) {
        if (m_entries.at(i).isExpanded != next.at(i).isExpanded) {
            m_entries[i] = next.at(i);
            emit dataChanged(index(int(i)), index(int(i)));
        }
    }
    if (next.size() > kept) {
        beginInsertRows(QModelIndex(), int(kept), int(next.size()) - 1);
        m_entries.append(next.mid(kept));
        endInsertRows();
    }
}
