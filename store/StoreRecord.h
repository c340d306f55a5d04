#pragma once

#include "store/StoreEntity.h"

#include <QDateTime>
#include <QList>
#include <QString>
#include <QUrl>
#include <QUuid>
#include <QVariant>
#include <memory>
#include <optional>

class QSqlQuery;
class StoreContext;

// Base of the nine record classes. A record belongs to the one StoreContext that made or
// loaded it and stays at the same address for the context's whole life, so a view may hold
// a pointer to it. A record that leaves the store (a saved delete, a rolled-back insert)
// is kept, detached, until the context goes away: it can still be read, but it is no
// longer fetched or saved.
class StoreRecord {
public:
    // Conversions between attribute values and column values. A present empty string is
    // written as '' and a missing one as NULL.
    static QVariant toColumn(const std::optional<QString> &value);
    static QVariant toColumn(const std::optional<QUuid> &value);
    static QVariant toColumn(const std::optional<QUrl> &value);
    static QVariant toColumn(const std::optional<double> &value);
    static QVariant toColumn(const std::optional<QDateTime> &value);
    static std::optional<QString> textColumn(const QVariant &value);
    static std::optional<QUuid> uuidColumn(const QVariant &value);
    static std::optional<QUrl> urlColumn(const QVariant &value);
    static std::optional<double> doubleColumn(const QVariant &value);
    static std::optional<QDateTime> dateColumn(const QVariant &value);

    enum class State {
        Inserted,   // new, pending until the next save
        Persisted,  // in the file (possibly with pending edits: isUpdated)
        Deleted,    // deletion pending until the next save
        Detached,   // no longer part of the store
    };

    virtual ~StoreRecord();
    StoreRecord(const StoreRecord &) = delete;
    StoreRecord &operator=(const StoreRecord &) = delete;

    StoreEntity entity() const { return m_entity; }
    QString entityName() const { return storeEntityName(m_entity); }
    // The owning context; nullptr once the record is detached.
    StoreContext *context() const;
    State state() const { return m_state; }
    bool isInserted() const { return m_state == State::Inserted; }
    bool isDeleted() const { return m_state == State::Deleted; }
    bool isDetached() const { return m_state == State::Detached; }
    // Persisted and edited since the last save.
    bool isUpdated() const { return m_updated; }
    bool hasChanges() const { return isInserted() || isDeleted() || m_updated; }
    // The record's row key; stable for its life, unrelated to the `id` attribute.
    qint64 storeKey() const { return m_key; }

    // The records this one owns; a delete takes them along.
    virtual QList<StoreRecord *> ownedRecords() const { return {}; }
    // The owning record of an owned entity, or nullptr.
    virtual StoreRecord *ownerRecord() const { return nullptr; }

protected:
    StoreRecord(StoreEntity entity, StoreContext *context, qint64 key, State state);

    // Every mutation is bracketed by these: the first change of a stored record keeps a
    // copy of its stored values for rollback, and each change is announced.
    void willChange();
    void didChange();
    // Relationships load lazily, one table at a time.
    void ensureLoaded(StoreEntity entity) const;

    template <class V, class T, class U>
    void assign(V &values, T V::*field, U &&value)
    {
        if (values.*field == value)
            return;
        willChange();
        values.*field = std::forward<U>(value);
        didChange();
    }

    // Links child to owner (nullptr unlinks), keeping both sides in step; the child leaves
    // its old owner's list. index < 0 appends. listOf(owner) gives the owner's current list,
    // ownerOf(child) the child's current owner pointer, both by reference.
    template <class O, class C, class ListOf, class OwnerOf>
    static void relate(O *owner, C *child, ListOf listOf, OwnerOf ownerOf, qsizetype index = -1)
    {
        if (!child)
            return;
        // Records that left the store, or belong to another context, are never linked in.
        const StoreRecord *c = child;
        const StoreRecord *o = owner;
        if (c->isDetached() || (o && (o->isDetached() || o->m_context != c->m_context)))
            return;
        O *old = ownerOf(child);
        if (old == owner) {
            if (!owner)
                return;
            const qsizetype at = listOf(owner).indexOf(child);
            if (at >= 0 && (index < 0 || index == at))
                return;
        }
        if (old)
            static_cast<StoreRecord *>(old)->willChange();
        if (owner && owner != old)
            static_cast<StoreRecord *>(owner)->willChange();
        static_cast<StoreRecord *>(child)->willChange();
        if (old)
            listOf(old).removeOne(child);
        if (owner) {
            auto &list = listOf(owner);
            list.removeOne(child);
            if (index < 0 || index > list.size())
                list.append(child);
            else
                list.insert(index, child);
        }
        ownerOf(child) = owner;
        static_cast<StoreRecord *>(child)->didChange();
    }

    // Copies of the values for rollback and refresh.
    template <class V>
    static void keepCopy(const V &values, std::unique_ptr<V> &copy)
    {
        if (!copy)
            copy = std::make_unique<V>(values);
    }
    template <class V>
    static void restoreCopy(V &values, std::unique_ptr<V> &copy)
    {
        if (copy) {
            values = std::move(*copy);
            copy.reset();
        }
    }
    virtual void takeSnapshot() = 0;
    virtual void restoreSnapshot() = 0;
    virtual void dropSnapshot() = 0;

    // Attribute values in the column order of storeEntityInfo(), and back.
    virtual QVariantList columnValues() const = 0;
    virtual void readColumns(const QSqlQuery &query, int first) = 0;
    // Owned records: position in the owner's list (-1 without owner), the nullify side of
    // a delete, and the link made while loading (both into the owner's current list and
    // into its copy for rollback).
    virtual qsizetype positionInOwner() const { return -1; }
    virtual void removeFromOwner() {}
    virtual void attachLoaded(StoreRecord * /*owner*/) {}
    // An owner whose lists differ from its stored ones needs its children's positions written.
    virtual bool ownedListsChanged() const { return false; }
    // The `name` attribute where the entity has one, for sorted fetches.
    virtual std::optional<QString> nameValue() const { return std::nullopt; }


private:
    friend class StoreContext;

    StoreEntity m_entity;
    StoreContext *m_context;
    qint64 m_key;
    State m_state;
    bool m_updated = false;
};
