#pragma once

#include "store/StoreRecord.h"

template <class V>
class StoreColumns;

class ToolsConfig;

template <class Params, class Schema>
class ToolSchemaParamsRecord;

// What the two schema entities have in common: their attributes, their columns, the owning
// tool and the parameters, an unordered relationship (read it through
// ToolsQueryService::sortedProperties). ToolInputSchema and ToolOutputSchema derive from it
// (Schema is the derived class, Params its kind of parameter) and name the entity and the
// tool's list they sit in. A schema owns its parameters.
template <class Schema, class Params>
class ToolSchemaRecord : public StoreRecord {
public:
    // The stored attributes' columns, in order: the table layout.
    static QList<StoreEntityInfo::Column> columnLayout();

    std::optional<QUuid> id() const { return m_v.id; }
    void setId(std::optional<QUuid> value) { assign(m_v, &Values::id, std::move(value)); }
    std::optional<QString> type() const { return m_v.type; }
    void setType(std::optional<QString> value) { assign(m_v, &Values::type, std::move(value)); }
    std::optional<QString> requiredParams() const { return m_v.requiredParams; }
    void setRequiredParams(std::optional<QString> value) { assign(m_v, &Values::requiredParams, std::move(value)); }

    // The owner; setting it also moves this record into the owner's list of its kind.
    ToolsConfig *toolConfig() const { return m_v.toolConfig; }
    void setToolConfig(ToolsConfig *owner);

    QList<Params *> properties() const;
    // Also links the child to this schema; a child that belonged to another record leaves it.
    void addPropertiesObject(Params *child);
    void removePropertiesObject(Params *child);

    QList<StoreRecord *> ownedRecords() const override;
    StoreRecord *ownerRecord() const override;

protected:
    ToolSchemaRecord(StoreContext *context, qint64 key, State state);

private:
    friend class ToolSchemaParamsRecord<Params, Schema>;

    struct Values {
        std::optional<QUuid> id;
        std::optional<QString> type;
        std::optional<QString> requiredParams;
        ToolsConfig *toolConfig = nullptr;
        QList<Params *> properties;
    };
    Values m_v;
    std::unique_ptr<Values> m_stored;

    // Both ends of the link to the tool, as relate() takes them.
    static QList<Schema *> &schemasOf(ToolsConfig *tool);
    static ToolsConfig *&toolOf(Schema *schema);
    Schema *self() const;

    void takeSnapshot() override { keepCopy(m_v, m_stored); }
    void restoreSnapshot() override { restoreCopy(m_v, m_stored); }
    void dropSnapshot() override { m_stored.reset(); }
    static const StoreColumns<Values> &columns();
    QVariantList columnValues() const override;
    void readColumns(const QSqlQuery &query, int first) override;
    bool ownedListsChanged() const override;
    qsizetype positionInOwner() const override;
    void removeFromOwner() override;
    void attachLoaded(StoreRecord *owner) override;
};
