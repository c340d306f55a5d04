#pragma once

#include "base/AppError.h"
#include "base/Result.h"
#include "store/FetchRequest.h"
#include "store/StoreEntity.h"
#include "store/StoreRecord.h"

#include <QList>
#include <QObject>
#include <QSet>
#include <QString>
#include <array>
#include <memory>
#include <optional>
#include <vector>

// The one main-thread context over the store (`viewContext`). It owns every record it
// made or loaded. Inserts, edits and deletes stay pending until save(), which writes them
// all in one transaction; rollback() discards them all; refresh() turns one record back to
// its stored values. objectsDidChange() is sent for every change.
//
// Tables are read lazily, each as a whole, the first time a fetch or a relationship needs
// them; a fetch of tools with its prefetch therefore never reads the parameter tables.
class StoreContext : public QObject {
    Q_OBJECT

public:
    static inline const QString errorDomain = QStringLiteral("org.tamsel.kelvara.store");
    enum ErrorCode { StoreUnavailable = 1, SaveFailed = 2, FetchFailed = 3 };

    // Works on the open connection of that name; with an unavailable reason every fetch
    // and save fails with it, while records can still be made in memory.
    StoreContext(const QString &connectionName, std::optional<QString> unavailableReason, QObject *parent = nullptr);
    ~StoreContext() override;

    // A new record of the entity, pending until the next save. Its values are the
    // creating code's business: all attributes start missing.
    StoreRecord *insert(StoreEntity entity);
    template <class T>
    T *insert()
    {
        return static_cast<T *>(insert(T::staticEntity));
    }

    // Marks the record and everything it owns deleted, and takes it out of its owner's
    // list. A pending insert simply goes away.
    void deleteObject(StoreRecord *record);

    // Writes every pending change in one transaction. On failure nothing is written, the
    // changes stay pending and the error tells why.
    Result<void> save();
    // Discards every pending change: inserts leave the store, edits and deletes are undone.
    void rollback();
    // Turns one record back to its stored values (mergeChanges false); with mergeChanges
    // its pending edits stay, since nothing newer than them can be in the store.
    void refresh(StoreRecord *record, bool mergeChanges = false);
    bool hasChanges() const;

    // Records of the request's entity that are not deleted: stored ones and pending inserts.
    Result<QList<StoreRecord *>> execute(const FetchRequest &request);
    template <class T>
    Result<QList<T *>> fetch(FetchRequest request)
    {
        request.entity = T::staticEntity;
        const Result<QList<StoreRecord *>> found = execute(request);
        if (!found)
            return found.error();
        QList<T *> typed;
        typed.reserve(found->size());
        for (StoreRecord *record : *found)
            typed.append(static_cast<T *>(record));
        return typed;
    }

    bool isAvailable() const { return !m_unavailable.has_value(); }
    QString unavailableReason() const { return m_unavailable.value_or(QString()); }

    QList<StoreRecord *> insertedObjects() const { return m_inserted.values(); }
    QList<StoreRecord *> updatedObjects() const { return m_updated.values(); }
    QList<StoreRecord *> deletedObjects() const { return m_deleted.values(); }

    // The table of entity has been read (for tests and benchmarks).
    bool isLoaded(StoreEntity entity) const { return m_loaded[int(entity)]; }

signals:
    // Sent after every change of the context: an edit, insert, delete, save, rollback or refresh.
    void objectsDidChange();
    void didSave();

private:
    friend class StoreRecord;

    void recordWillChange(StoreRecord *record);
    void recordDidChange();
    Result<void> ensureLoaded(StoreEntity entity);
    bool loadTable(StoreEntity entity, QString *failure);
    Result<void> prefetch(StoreEntity entity, const QString &relationship);
    std::unique_ptr<StoreRecord> makeRecord(StoreEntity entity, qint64 key, StoreRecord::State state);
    void detach(StoreRecord *record);
    void compactLiveLists();
    bool writePending(QString *failure);
    AppError unavailableError() const;

    QString m_connectionName;
    std::optional<QString> m_unavailable;

    std::vector<std::unique_ptr<StoreRecord>> m_records;        // every record, alive or detached
    std::array<QList<StoreRecord *>, storeEntityCount> m_live;  // per entity: stored, inserted, deleted
    std::array<bool, storeEntityCount> m_loaded{};
    std::array<qint64, storeEntityCount> m_nextKey{};
    QSet<StoreRecord *> m_inserted;
    QSet<StoreRecord *> m_updated;
    QSet<StoreRecord *> m_deleted;
    bool m_needsCompaction = false;
};
