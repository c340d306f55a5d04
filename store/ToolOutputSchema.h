#pragma once

#include "store/StoreRecord.h"

class ToolOutSchemeParams;
class ToolsConfig;

// One output schema of a tool, the twin of ToolInputSchema. Owns its parameters.
class ToolOutputSchema final : public StoreRecord {
public:
    static constexpr StoreEntity staticEntity = StoreEntity::ToolOutputSchema;

    std::optional<QUuid> id() const { return m_v.id; }
    void setId(std::optional<QUuid> value) { assign(m_v, &Values::id, std::move(value)); }
    std::optional<QString> type() const { return m_v.type; }
    void setType(std::optional<QString> value) { assign(m_v, &Values::type, std::move(value)); }
    std::optional<QString> requiredParams() const { return m_v.requiredParams; }
    void setRequiredParams(std::optional<QString> value) { assign(m_v, &Values::requiredParams, std::move(value)); }

    // The owner; setting it also moves this record into the owner's `outputSchmas`.
    ToolsConfig *toolConfig() const { return m_v.toolConfig; }
    void setToolConfig(ToolsConfig *owner);

    QList<ToolOutSchemeParams *> properties() const;
    // Also sets the child's `toolOutputSchema`; a child that belonged to another record leaves it.
    void addPropertiesObject(ToolOutSchemeParams *child);
    void removePropertiesObject(ToolOutSchemeParams *child);

    QList<StoreRecord *> ownedRecords() const override;
    StoreRecord *ownerRecord() const override;

private:
    friend class StoreContext;
    friend class ToolOutSchemeParams;
    friend class ToolsConfig;
    ToolOutputSchema(StoreContext *context, qint64 key, State state);

    struct Values {
        std::optional<QUuid> id;
        std::optional<QString> type;
        std::optional<QString> requiredParams;
        ToolsConfig *toolConfig = nullptr;
        QList<ToolOutSchemeParams *> properties;
    };
    Values m_v;
    std::unique_ptr<Values> m_stored;

    void takeSnapshot() override { keepCopy(m_v, m_stored); }
    void restoreSnapshot() override { restoreCopy(m_v, m_stored); }
    void dropSnapshot() override { m_stored.reset(); }
    QVariantList columnValues() const override;
    void readColumns(const QSqlQuery &query, int first) override;
    bool ownedListsChanged() const override;
    qsizetype positionInOwner() const override;
    void removeFromOwner() override;
    void attachLoaded(StoreRecord *owner) override;
};
