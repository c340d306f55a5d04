#pragma once

#include "store/StoreRecord.h"

template <class V>
class StoreColumns;

class PromptConfig;

// One argument of a prompt.
class PromptArguments final : public StoreRecord {
public:
    // The stored attributes' columns, in order: the table layout.
    static QList<StoreEntityInfo::Column> columnLayout();

    static constexpr StoreEntity staticEntity = StoreEntity::PromptArguments;

    std::optional<QUuid> id() const { return m_v.id; }
    void setId(std::optional<QUuid> value) { assign(m_v, &Values::id, std::move(value)); }
    std::optional<QString> name() const { return m_v.name; }
    void setName(std::optional<QString> value) { assign(m_v, &Values::name, std::move(value)); }
    std::optional<QString> info() const { return m_v.info; }
    void setInfo(std::optional<QString> value) { assign(m_v, &Values::info, std::move(value)); }
    // The values offered for completion, as a compact JSON array text.
    std::optional<QString> completionValues() const { return m_v.completionValues; }
    void setCompletionValues(std::optional<QString> value) { assign(m_v, &Values::completionValues, std::move(value)); }
    // A script that offers the completion values instead.
    std::optional<QString> valuesScript() const { return m_v.valuesScript; }
    void setValuesScript(std::optional<QString> value) { assign(m_v, &Values::valuesScript, std::move(value)); }
    bool required() const { return m_v.required; }
    void setRequired(bool value) { assign(m_v, &Values::required, value); }

    // The owner; setting it also moves this record into the owner's `arguments`.
    PromptConfig *promptConfig() const { return m_v.promptConfig; }
    void setPromptConfig(PromptConfig *owner);

    StoreRecord *ownerRecord() const override;

private:
    friend class StoreContext;
    friend class PromptConfig;
    PromptArguments(StoreContext *context, qint64 key, State state);

    struct Values {
        std::optional<QUuid> id;
        std::optional<QString> name;
        std::optional<QString> info;
        bool required = false;
        std::optional<QString> completionValues;
        std::optional<QString> valuesScript;
        PromptConfig *promptConfig = nullptr;
    };
    Values m_v;
    std::unique_ptr<Values> m_stored;

    void takeSnapshot() override { keepCopy(m_v, m_stored); }
    void restoreSnapshot() override { restoreCopy(m_v, m_stored); }
    void dropSnapshot() override { m_stored.reset(); }
    static const StoreColumns<Values> &columns();
    QVariantList columnValues() const override;
    void readColumns(const QSqlQuery &query, int first) override;
    std::optional<QString> nameValue() const override { return m_v.name; }
    qsizetype positionInOwner() const override;
    void removeFromOwner() override;
    void attachLoaded(StoreRecord *owner) override;
};
