#include "store/PromptConfig.h"

#include "store/PromptArguments.h"

#include <QSqlQuery>

PromptConfig::PromptConfig(StoreContext *context, qint64 key, State state)
    : StoreRecord(staticEntity, context, key, state)
{}

QVariantList PromptConfig::columnValues() const
{
    return {toColumn(m_v.id), toColumn(m_v.name), toColumn(m_v.promptDescription), toColumn(m_v.templateText)};
}

void PromptConfig::readColumns(const QSqlQuery &query, int first)
{
    m_v.id = uuidColumn(query.value(first + 0));
    m_v.name = textColumn(query.value(first + 1));
    m_v.promptDescription = textColumn(query.value(first + 2));
    m_v.templateText = textColumn(query.value(first + 3));
}

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
