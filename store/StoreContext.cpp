#include "store/StoreContext.h"

#include "store/PromptArguments.h"
#include "store/PromptConfig.h"
#include "store/ResourceConfig.h"
#include "store/ServerConfig.h"
#include "store/ToolInSchemaParams.h"
#include "store/ToolInputSchema.h"
#include "store/ToolOutSchemeParams.h"
#include "store/ToolOutputSchema.h"
#include "store/ToolsConfig.h"
#include "store/CodePointOrder.h"

#include <QHash>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>

#include <algorithm>

namespace {

constexpr StoreEntity allEntities[] = {
    StoreEntity::ServerConfig,     StoreEntity::ToolsConfig,        StoreEntity::ToolInputSchema,
    StoreEntity::ToolOutputSchema, StoreEntity::ToolInSchemaParams, StoreEntity::ToolOutSchemeParams,
    StoreEntity::ResourceConfig,   StoreEntity::PromptConfig,       StoreEntity::PromptArguments,
};

QString quoted(const QString &identifier) { return QLatin1Char('"') + identifier + QLatin1Char('"'); }

QString queryFailure(const QSqlQuery &query)
{
    const QSqlError error = query.lastError();
    return error.text().trimmed().isEmpty() ? QStringLiteral("unknown database error") : error.text().trimmed();
}

// Each statement binds the attribute columns in order, then the owner's key and the
// position for owned entities, then (for updates and deletes) the key.
struct Statements {
    QString insert, update, remove, position;
};

Statements statementsFor(StoreEntity entity)
{
    const StoreEntityInfo &info = storeEntityInfo(entity);
    QStringList names;
    for (const auto &column : info.columns)
        names.append(quoted(column.name));
    if (info.owner) {
        names.append(quoted(info.ownerColumn));
        names.append(quoted(QStringLiteral("position")));
    }
    QStringList assignments;
    for (const QString &name : names)
        assignments.append(name + QStringLiteral(" = ?"));
    const QString table = quoted(info.name);
    Statements s;
    s.insert = QStringLiteral("INSERT INTO %1 (%2, %3) VALUES (?%4)")
                   .arg(table, quoted(QStringLiteral("pk")), names.join(QStringLiteral(", ")),
                        QStringLiteral(", ?").repeated(names.size()));
    s.update = QStringLiteral("UPDATE %1 SET %2 WHERE \"pk\" = ?").arg(table, assignments.join(QStringLiteral(", ")));
    s.remove = QStringLiteral("DELETE FROM %1 WHERE \"pk\" = ?").arg(table);
    if (info.owner)
        s.position = QStringLiteral("UPDATE %1 SET %2 = ?, \"position\" = ? WHERE \"pk\" = ?")
                         .arg(table, quoted(info.ownerColumn));
    return s;
}

}  // namespace

StoreContext::StoreContext(const QString &connectionName, std::optional<QString> unavailableReason, QObject *parent)
    : QObject(parent), m_connectionName(connectionName), m_unavailable(std::move(unavailableReason))
{
    m_nextKey.fill(1);
    if (m_unavailable)
        return;
    QSqlDatabase db = QSqlDatabase::database(m_connectionName, false);
    for (StoreEntity entity : allEntities) {
        QSqlQuery query(db);
        if (!query.exec(QStringLiteral("SELECT max(\"pk\") FROM %1").arg(quoted(storeEntityName(entity))))) {
            m_unavailable = queryFailure(query);
            return;
        }
        if (query.next())
            m_nextKey[int(entity)] = query.value(0).toLongLong() + 1;
    }
}

StoreContext::~StoreContext() = default;

std::unique_ptr<StoreRecord> StoreContext::makeRecord(StoreEntity entity, qint64 key, StoreRecord::State state)
{
    switch (entity) {
    case StoreEntity::ServerConfig:
        return std::unique_ptr<StoreRecord>(new ServerConfig(this, key, state));
    case StoreEntity::ToolsConfig:
        return std::unique_ptr<StoreRecord>(new ToolsConfig(this, key, state));
    case StoreEntity::ToolInputSchema:
        return std::unique_ptr<StoreRecord>(new ToolInputSchema(this, key, state));
    case StoreEntity::ToolOutputSchema:
        return std::unique_ptr<StoreRecord>(new ToolOutputSchema(this, key, state));
    case StoreEntity::ToolInSchemaParams:
        return std::unique_ptr<StoreRecord>(new ToolInSchemaParams(this, key, state));
    case StoreEntity::ToolOutSchemeParams:
        return std::unique_ptr<StoreRecord>(new ToolOutSchemeParams(this, key, state));
    case StoreEntity::ResourceConfig:
        return std::unique_ptr<StoreRecord>(new ResourceConfig(this, key, state));
    case StoreEntity::PromptConfig:
        return std::unique_ptr<StoreRecord>(new PromptConfig(this, key, state));
    case StoreEntity::PromptArguments:
        return std::unique_ptr<StoreRecord>(new PromptArguments(this, key, state));
    }
    return nullptr;
}

StoreRecord *StoreContext::insert(StoreEntity entity)
{
    const int index = int(entity);
    auto record = makeRecord(entity, m_nextKey[index]++, StoreRecord::State::Inserted);
    StoreRecord *raw = record.get();
    m_records.push_back(std::move(record));
    m_live[index].append(raw);
    m_inserted.insert(raw);
    emit objectsDidChange();
    return raw;
}

void StoreContext::deleteObject(StoreRecord *record)
{
    if (!record || record->m_context != this)
        return;
    if (record->m_state == StoreRecord::State::Detached || record->m_state == StoreRecord::State::Deleted)
        return;

    // The record and everything below it; ownedRecords() reads the child tables as needed.
    QList<StoreRecord *> doomed{record};
    for (qsizetype i = 0; i < doomed.size(); ++i)
        doomed.append(doomed[i]->ownedRecords());

    // Nullify: the owner's list loses the record. Children keep their links to the
    // records deleted with them.
    record->removeFromOwner();

    for (StoreRecord *r : doomed) {
        if (r->m_state == StoreRecord::State::Inserted) {
            m_inserted.remove(r);
            detach(r);
        } else if (r->m_state == StoreRecord::State::Persisted) {
            r->m_state = StoreRecord::State::Deleted;
            m_deleted.insert(r);
        }
    }
    emit objectsDidChange();
}

void StoreContext::detach(StoreRecord *record)
{
    record->m_state = StoreRecord::State::Detached;
    record->dropSnapshot();
    record->m_updated = false;
    m_updated.remove(record);
    m_needsCompaction = true;
}

void StoreContext::compactLiveLists()
{
    if (!m_needsCompaction)
        return;
    for (auto &list : m_live)
        list.removeIf([](StoreRecord *r) { return r->m_state == StoreRecord::State::Detached; });
    m_needsCompaction = false;
}

bool StoreContext::hasChanges() const { return !m_inserted.isEmpty() || !m_updated.isEmpty() || !m_deleted.isEmpty(); }

void StoreContext::recordWillChange(StoreRecord *record)
{
    if (record->m_updated)
        return;
    if (record->m_state == StoreRecord::State::Persisted || record->m_state == StoreRecord::State::Deleted) {
        record->takeSnapshot();
        record->m_updated = true;
        m_updated.insert(record);
    }
}

void StoreContext::recordDidChange()
{
    emit objectsDidChange();
}

AppError StoreContext::unavailableError() const
{
    return AppError{errorDomain, StoreUnavailable,
                    QStringLiteral("The configuration store could not be opened: ") +
                        m_unavailable.value_or(QString())};
}

Result<void> StoreContext::save()
{
    if (m_unavailable)
        return unavailableError();
    if (!hasChanges())
        return {};

    QSqlDatabase db = QSqlDatabase::database(m_connectionName, false);
    QString failure;
    if (!db.transaction()) {
        failure = db.lastError().text().trimmed();
    } else if (!writePending(&failure)) {
        db.rollback();
    } else if (!db.commit()) {
        failure = db.lastError().text().trimmed();
        db.rollback();
    } else {
        failure.clear();
        for (StoreRecord *r : std::as_const(m_deleted))
            detach(r);
        for (StoreRecord *r : std::as_const(m_updated)) {
            r->dropSnapshot();
            r->m_updated = false;
        }
        for (StoreRecord *r : std::as_const(m_inserted))
            r->m_state = StoreRecord::State::Persisted;
        m_inserted.clear();
        m_updated.clear();
        m_deleted.clear();
        compactLiveLists();
        emit objectsDidChange();
        emit didSave();
        return {};
    }
    if (failure.isEmpty())
        failure = QStringLiteral("unknown database error");
    return AppError{errorDomain, SaveFailed, QStringLiteral("The configuration could not be saved: ") + failure};
}

bool StoreContext::writePending(QString *failure)
{
    QSqlDatabase db = QSqlDatabase::database(m_connectionName, false);
    std::array<std::unique_ptr<QSqlQuery>, storeEntityCount> inserts, updates, removes, positions;
    std::array<std::optional<Statements>, storeEntityCount> statements;
    auto prepared = [&](std::array<std::unique_ptr<QSqlQuery>, storeEntityCount> &cache, StoreEntity entity,
                        QString Statements::*which) -> QSqlQuery * {
        auto &slot = cache[int(entity)];
        if (!slot) {
            auto &s = statements[int(entity)];
            if (!s)
                s = statementsFor(entity);
            slot = std::make_unique<QSqlQuery>(db);
            if (!slot->prepare((*s).*which)) {
                *failure = queryFailure(*slot);
                return nullptr;
            }
        }
        return slot.get();
    };
    auto ownerAndPosition = [](const StoreRecord *r, QVariantList &values) {
        if (!storeEntityInfo(r->entity()).owner)
            return;
        const StoreRecord *owner = r->ownerRecord();
        values.append(owner ? QVariant(owner->storeKey()) : QVariant(QMetaType::fromType<qint64>()));
        values.append(owner ? QVariant(qint64(r->positionInOwner())) : QVariant(QMetaType::fromType<qint64>()));
    };
    auto run = [&](QSqlQuery *query, const QVariantList &values) {
        for (int i = 0; i < values.size(); ++i)
            query->bindValue(i, values[i]);
        if (!query->exec()) {
            *failure = queryFailure(*query);
            return false;
        }
        return true;
    };

    for (StoreRecord *r : std::as_const(m_deleted)) {
        QSqlQuery *query = prepared(removes, r->entity(), &Statements::remove);
        if (!query || !run(query, {r->storeKey()}))
            return false;
    }
    for (StoreRecord *r : std::as_const(m_inserted)) {
        QSqlQuery *query = prepared(inserts, r->entity(), &Statements::insert);
        if (!query)
            return false;
        QVariantList values{r->storeKey()};
        values.append(r->columnValues());
        ownerAndPosition(r, values);
        if (!run(query, values))
            return false;
    }
    for (StoreRecord *r : std::as_const(m_updated)) {
        if (r->m_state == StoreRecord::State::Deleted)
            continue;
        QSqlQuery *query = prepared(updates, r->entity(), &Statements::update);
        if (!query)
            return false;
        QVariantList values = r->columnValues();
        ownerAndPosition(r, values);
        values.append(r->storeKey());
        if (!run(query, values))
            return false;
    }
    // Children that kept their values but moved within a changed list.
    for (StoreRecord *r : std::as_const(m_updated)) {
        if (r->m_state == StoreRecord::State::Deleted || !r->ownedListsChanged())
            continue;
        for (StoreRecord *child : r->ownedRecords()) {
            if (child->m_updated || child->m_state != StoreRecord::State::Persisted)
                continue;
            QSqlQuery *query = prepared(positions, child->entity(), &Statements::position);
            if (!query || !run(query, {r->storeKey(), qint64(child->positionInOwner()), child->storeKey()}))
                return false;
        }
    }
    return true;
}

void StoreContext::rollback()
{
    if (!hasChanges())
        return;
    for (StoreRecord *r : std::as_const(m_updated)) {
        r->restoreSnapshot();
        r->m_updated = false;
    }
    for (StoreRecord *r : std::as_const(m_deleted))
        r->m_state = StoreRecord::State::Persisted;
    const QSet<StoreRecord *> inserted = m_inserted;
    m_updated.clear();
    m_deleted.clear();
    m_inserted.clear();
    for (StoreRecord *r : inserted)
        detach(r);
    compactLiveLists();
    emit objectsDidChange();
}

void StoreContext::refresh(StoreRecord *record, bool mergeChanges)
{
    if (!record || record->m_context != this || mergeChanges)
        return;
    if (record->m_state != StoreRecord::State::Persisted || !record->m_updated)
        return;
    record->restoreSnapshot();
    record->m_updated = false;
    m_updated.remove(record);
    emit objectsDidChange();
}

Result<void> StoreContext::ensureLoaded(StoreEntity entity)
{
    const int index = int(entity);
    if (m_loaded[index])
        return {};
    if (m_unavailable)
        return unavailableError();
    const StoreEntityInfo &info = storeEntityInfo(entity);
    if (info.owner) {
        if (Result<void> owner = ensureLoaded(*info.owner); !owner)
            return owner;
    }
    QString failure;
    if (!loadTable(entity, &failure))
        return AppError{errorDomain, FetchFailed, QStringLiteral("The configuration could not be read: ") + failure};
    m_loaded[index] = true;
    return {};
}

bool StoreContext::loadTable(StoreEntity entity, QString *failure)
{
    const StoreEntityInfo &info = storeEntityInfo(entity);
    QStringList columns{quoted(QStringLiteral("pk"))};
    for (const auto &column : info.columns)
        columns.append(quoted(column.name));
    QString order = quoted(QStringLiteral("pk"));
    if (info.owner) {
        columns.append(quoted(info.ownerColumn));
        order = quoted(info.ownerColumn) + QStringLiteral(", \"position\", \"pk\"");
    }
    QSqlQuery query(QSqlDatabase::database(m_connectionName, false));
    query.setForwardOnly(true);
    if (!query.exec(QStringLiteral("SELECT %1 FROM %2 ORDER BY %3")
                        .arg(columns.join(QStringLiteral(", ")), quoted(info.name), order))) {
        *failure = queryFailure(query);
        return false;
    }

    QHash<qint64, StoreRecord *> owners;
    if (info.owner) {
        const auto &ownerList = m_live[int(*info.owner)];
        owners.reserve(ownerList.size());
        for (StoreRecord *owner : ownerList) {
            if (owner->m_state != StoreRecord::State::Detached)
                owners.insert(owner->storeKey(), owner);
        }
    }
    // Records made in this session and saved before the table was first read are in
    // memory already, with their links; their rows are skipped.
    auto &live = m_live[int(entity)];
    QSet<qint64> known;
    known.reserve(live.size());
    for (StoreRecord *r : std::as_const(live))
        known.insert(r->storeKey());

    const int ownerIndex = 1 + int(info.columns.size());
    QList<StoreRecord *> loaded;
    while (query.next()) {
        const qint64 key = query.value(0).toLongLong();
        if (known.contains(key))
            continue;
        auto record = makeRecord(entity, key, StoreRecord::State::Persisted);
        record->readColumns(query, 1);
        if (info.owner) {
            const QVariant ownerKey = query.value(ownerIndex);
            if (!ownerKey.isNull()) {
                if (StoreRecord *owner = owners.value(ownerKey.toLongLong()))
                    record->attachLoaded(owner);
            }
        }
        loaded.append(record.get());
        m_records.push_back(std::move(record));
    }
    if (query.lastError().isValid()) {
        // Rows made so far stay owned but unreachable; the table counts as unread.
        *failure = queryFailure(query);
        for (StoreRecord *r : loaded)
            r->m_state = StoreRecord::State::Detached;
        return false;
    }
    // Stored rows come before records made while the table was unread.
    loaded.append(live);
    live = std::move(loaded);
    return true;
}

Result<void> StoreContext::prefetch(StoreEntity entity, const QString &keyPath)
{
    StoreEntity current = entity;
    for (const QString &relationship : keyPath.split(QLatin1Char('.'))) {
        std::optional<StoreEntity> target;
        switch (current) {
        case StoreEntity::ToolsConfig:
            if (relationship == QLatin1String("inputSchemas"))
                target = StoreEntity::ToolInputSchema;
            else if (relationship == QLatin1String("outputSchmas"))
                target = StoreEntity::ToolOutputSchema;
            break;
        case StoreEntity::ToolInputSchema:
            if (relationship == QLatin1String("properties"))
                target = StoreEntity::ToolInSchemaParams;
            break;
        case StoreEntity::ToolOutputSchema:
            if (relationship == QLatin1String("properties"))
                target = StoreEntity::ToolOutSchemeParams;
            break;
        case StoreEntity::PromptConfig:
            if (relationship == QLatin1String("arguments"))
                target = StoreEntity::PromptArguments;
            break;
        default:
            break;
        }
        if (!target)
            return AppError{errorDomain, FetchFailed,
                            QStringLiteral("Unknown relationship '%1' of %2").arg(relationship, storeEntityName(current))};
        if (Result<void> loaded = ensureLoaded(*target); !loaded)
            return loaded;
        current = *target;
    }
    return {};
}

Result<QList<StoreRecord *>> StoreContext::execute(const FetchRequest &request)
{
    if (m_unavailable)
        return unavailableError();
    if (Result<void> loaded = ensureLoaded(request.entity); !loaded)
        return loaded.error();
    for (const QString &keyPath : request.relationshipKeyPathsForPrefetching) {
        if (Result<void> loaded = prefetch(request.entity, keyPath); !loaded)
            return loaded.error();
    }
    compactLiveLists();
    QList<StoreRecord *> result;
    const auto &live = m_live[int(request.entity)];
    result.reserve(live.size());
    for (StoreRecord *r : live) {
        if (r->m_state == StoreRecord::State::Persisted || r->m_state == StoreRecord::State::Inserted)
            result.append(r);
    }
    if (request.sortByName) {
        std::stable_sort(result.begin(), result.end(), [](const StoreRecord *a, const StoreRecord *b) {
            const std::optional<QString> x = a->nameValue();
            const std::optional<QString> y = b->nameValue();
            if (!x || !y)
                return !x && y;  // missing names first
            return CodePointOrder::less(*x, *y);
        });
    }
    if (request.fetchLimit > 0 && result.size() > request.fetchLimit)
        result.resize(request.fetchLimit);
    return result;
}
