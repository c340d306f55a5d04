#pragma once

#include "store/StoreRecord.h"

template <class V>
class StoreColumns;

template <class Schema, class Params>
class ToolSchemaRecord;

// What the two parameter entities have in common: their attributes, their columns and the
// link to the owning schema. ToolInSchemaParams and ToolOutSchemeParams derive from it
// (Params is the derived class, Schema its owner) and name the entity and the link.
template <class Params, class Schema>
class ToolSchemaParamsRecord : public StoreRecord {
public:
    // The stored attributes' columns, in order: the table layout.
    static QList<StoreEntityInfo::Column> columnLayout();

    std::optional<QUuid> id() const { return m_v.id; }
    void setId(std::optional<QUuid> value) { assign(m_v, &Values::id, std::move(value)); }
    std::optional<QString> parameterName() const { return m_v.parameterName; }
    void setParameterName(std::optional<QString> value) { assign(m_v, &Values::parameterName, std::move(value)); }
    std::optional<QString> parameterType() const { return m_v.parameterType; }
    void setParameterType(std::optional<QString> value) { assign(m_v, &Values::parameterType, std::move(value)); }
    std::optional<QString> parameterDescription() const { return m_v.parameterDescription; }
    void setParameterDescription(std::optional<QString> value)
    {
        assign(m_v, &Values::parameterDescription, std::move(value));
    }
    std::optional<QString> defaultValue() const { return m_v.defaultValue; }
    void setDefaultValue(std::optional<QString> value) { assign(m_v, &Values::defaultValue, std::move(value)); }
    std::optional<QString> itemType() const { return m_v.itemType; }
    void setItemType(std::optional<QString> value) { assign(m_v, &Values::itemType, std::move(value)); }
    std::optional<QString> items() const { return m_v.items; }
    void setItems(std::optional<QString> value) { assign(m_v, &Values::items, std::move(value)); }

    StoreRecord *ownerRecord() const override;

protected:
    ToolSchemaParamsRecord(StoreContext *context, qint64 key, State state);

    Schema *schema() const { return m_v.schema; }
    // Also moves this record into the schema's `properties`; nullptr unlinks it.
    void setSchema(Schema *owner);

private:
    friend class ToolSchemaRecord<Schema, Params>;

    struct Values {
        std::optional<QUuid> id;
        std::optional<QString> parameterName;
        std::optional<QString> parameterType;
        std::optional<QString> parameterDescription;
        std::optional<QString> defaultValue;
        std::optional<QString> itemType;
        std::optional<QString> items;
        Schema *schema = nullptr;
    };
    Values m_v;
    std::unique_ptr<Values> m_stored;

    // Both ends of the link, as relate() takes them.
    static QList<Params *> &propertiesOf(Schema *schema);
    static Schema *&schemaOf(Params *param);
    Params *self() const;

    void takeSnapshot() override { keepCopy(m_v, m_stored); }
    void restoreSnapshot() override { restoreCopy(m_v, m_stored); }
    void dropSnapshot() override { m_stored.reset(); }
    static const StoreColumns<Values> &columns();
    QVariantList columnValues() const override;
    void readColumns(const QSqlQuery &query, int first) override;
    qsizetype positionInOwner() const override;
    void removeFromOwner() override;
    void attachLoaded(StoreRecord *owner) override;
};
