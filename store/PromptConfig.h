#pragma once

#include "store/StoreRecord.h"

template <class V>
class StoreColumns;

class PromptArguments;

// One prompt template with its ordered arguments, which it owns. The attribute
// `template` is reached through templateText(), since `template` is a C++ keyword.
class PromptConfig final : public StoreRecord {
public:
    // The stored attributes' columns, in order: the table layout.
    static QList<StoreEntityInfo::Column> columnLayout();

    static constexpr StoreEntity staticEntity = StoreEntity::PromptConfig;

    std::optional<QUuid> id() const { return m_v.id; }
    void setId(std::optional<QUuid> value) { assign(m_v, &Values::id, std::move(value)); }
    std::optional<QString> name() const { return m_v.name; }
    void setName(std::optional<QString> value) { assign(m_v, &Values::name, std::move(value)); }
    std::optional<QString> promptDescription() const { return m_v.promptDescription; }
    void setPromptDescription(std::optional<QString> value)
    {
        assign(m_v, &Values::promptDescription, std::move(value));
    }
    std::optional<QString> templateText() const { return m_v.templateText; }
    void setTemplateText(std::optional<QString> value) { assign(m_v, &Values::templateText, std::move(value)); }
    // The prompt's messages as compact JSON text of the list; none for a template alone.
    std::optional<QString> messagesJson() const { return m_v.messagesJson; }
    void setMessagesJson(std::optional<QString> value) { assign(m_v, &Values::messagesJson, std::move(value)); }

    QList<PromptArguments *> arguments() const;
    // Also sets the child's `promptConfig`; a child that belonged to another record leaves it.
    void addArgumentsObject(PromptArguments *child);
    void removeArgumentsObject(PromptArguments *child);

    QList<StoreRecord *> ownedRecords() const override;

private:
    friend class StoreContext;
    friend class PromptArguments;
    PromptConfig(StoreContext *context, qint64 key, State state);

    struct Values {
        std::optional<QUuid> id;
        std::optional<QString> name;
        std::optional<QString> promptDescription;
        std::optional<QString> templateText;
        std::optional<QString> messagesJson;
        QList<PromptArguments *> arguments;
    };
    Values m_v;
    std::unique_ptr<Values> m_stored;

    void takeSnapshot() override { keepCopy(m_v, m_stored); }
    void restoreSnapshot() override { restoreCopy(m_v, m_stored); }
    void dropSnapshot() override { m_stored.reset(); }
    static const StoreColumns<Values> &columns();
    QVariantList columnValues() const override;
    void readColumns(const QSqlQuery &query, int first) override;
    bool ownedListsChanged() const override;
    std::optional<QString> nameValue() const override { return m_v.name; }
};
