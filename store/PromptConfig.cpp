#include "store/PromptConfig.h"

#include "store/PromptArguments.h"

#include "store/StoreColumns.h"

#include <QSqlQuery>

PromptConfig::PromptConfig(StoreContext *context, qint64 key, State state)
    : StoreRecord(staticEntity, context, key, state)
{}

const StoreColumns<PromptConfig::Values> &PromptConfig::columns()
{
    static const auto columns = StoreColumns<Values>().add("id", &Values::id)
                                                  .add("name", &Values::name)
                                                  .add("promptDescription", &Values::promptDescription)
                                                  .add("template", &Values::templateText)
                                                  .add("messagesJson", &Values::messagesJson);
    return columns;
}

QList<StoreEntityInfo::Column> PromptConfig::columnLayout() { return columns().layout(); }

QVariantList PromptConfig::columnValues() const { return columns().values(m_v); }

void PromptConfig::readColumns(const QSqlQuery &query, int first) { columns().read(m_v, query, first); }

QList<PromptArguments *> PromptConfig::arguments() const
{
    ensureLoaded(PromptArguments::staticEntity);
    return m_v.arguments;
}

void PromptConfig::addArgumentsObject(PromptArguments *child)
{
    ensureLoaded(PromptArguments::staticEntity);
    relate(
        this, child, [](PromptConfig *o) -> auto & { return o->m_v.arguments; },
        [](PromptArguments *c) -> auto & { return c->m_v.promptConfig; });
}

void PromptConfig::removeArgumentsObject(PromptArguments *child)
{
    ensureLoaded(PromptArguments::staticEntity);
    if (!child || child->m_v.promptConfig != this)
        return;
    relate<PromptConfig, PromptArguments>(
        nullptr, child, [](PromptConfig *o) -> auto & { return o->m_v.arguments; },
        [](PromptArguments *c) -> auto & { return c->m_v.promptConfig; });
}

QList<StoreRecord *> PromptConfig::ownedRecords() const
{
    QList<StoreRecord *> owned;
    for (PromptArguments *child : arguments())
        owned.append(child);
    return owned;
}

bool PromptConfig::ownedListsChanged() const { return m_stored && (m_stored->arguments != m_v.arguments); }
