#pragma once

#include <QObject>
#include <QStringList>

// The script editor's recent files: at most 10, newest first, kept in the user defaults
// under "ScriptEditor.fileHistory" (as bookmarks, which on this platform are the paths).
// Files that no longer exist are dropped when the list is read. Main thread only.
class FileHistoryManager : public QObject {
    Q_OBJECT

public:
    static constexpr int maxEntries = 10;
    static inline const QString userDefaultsKey = QStringLiteral("ScriptEditor.fileHistory");

    static FileHistoryManager *shared();
    explicit FileHistoryManager(QObject *parent = nullptr);

    const QStringList &entries() const { return m_entries; }
    // Moves the file to the front (an equal entry leaves its place) and writes the list.
    void add(const QString &path);
    void clear();

signals:
    void entriesChanged();

private:
    void write();
    QStringList m_entries;
};
