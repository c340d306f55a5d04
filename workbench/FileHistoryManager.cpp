#include "workbench/FileHistoryManager.h"

#include "base/UserDefaults.h"

#include <QFileInfo>

FileHistoryManager *FileHistoryManager::shared()
{
    static auto *manager = new FileHistoryManager();
    return manager;
}

FileHistoryManager::FileHistoryManager(QObject *parent) : QObject(parent)
{
    for (const QString &path : UserDefaults::standard()->value(userDefaultsKey).toStringList()) {
        // A bookmark that no longer resolves is dropped.
        if (QFileInfo::exists(path) && !m_entries.contains(path) && m_entries.size() < maxEntries)
            m_entries.append(path);
    }
}

void FileHistoryManager::add(const QString &path)
{
    const QString absolute = QFileInfo(path).absoluteFilePath();
    m_entries.removeAll(absolute);
    m_entries.prepend(absolute);
    while (m_entries.size() > maxEntries)
        m_entries.removeLast();
    write();
    emit entriesChanged();
}

void FileHistoryManager::clear()
{
    m_entries.clear();
    write();
    emit entriesChanged();
}

void FileHistoryManager::write()
{
    UserDefaults::standard()->setValue(userDefaultsKey, m_entries);
}
