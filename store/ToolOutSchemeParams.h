#pragma once

#include "store/StoreRecord.h"

class ToolOutputSchema;

// One parameter of an output schema (the entity is spelled with "Scheme").
class ToolOutSchemeParams final : public StoreRecord {
public:
    static constexpr StoreEntity staticEntity = StoreEntity::ToolOutSchemeParams;

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

    // The owner; setting it also moves this record into the owner's `properties`.
    ToolOutputSchema *toolOutputSchema() const { return m_v.toolOutputSchema; }
    void setToolOutputSchema(ToolOutputSchema *owner);

    StoreRecord *ownerRecord() const override;

private:
    friend class StoreContext;
    friend class ToolOutputSchema;
    ToolOutSchemeParams(StoreContext *context, qint64 key, State state);

    struct Values {
        std::optional<QUuid> id;
        std::optional<QString> parameterName;
        std::optional<QString> parameterType;
        std::optional<QString> parameterDescription;
        std::optional<QString> defaultValue;
        std::optional<QString> itemType;
        std::optional<QString> items;
        ToolOutputSchema *toolOutputSchema = nullptr;
    };
    Values m_v;
    std::unique_ptr<Values> m_stored;

    void takeSnapshot() override { keepCopy(m_v, m_stored); }
    void restoreSnapshot() override { restoreCopy(m_v, m_stored); }
    void dropSnapshot() override { m_stored.reset(); }
    QVariantList columnValues() const override;
    void readColumns(const QSqlQuery &query, int first) override;
    qsizetype positionInOwner() const override;
    void removeFromOwner() override;
    void attachLoaded(StoreRecord *owner) override;
};
