#include "store/PromptArguments.h"

#include "store/PromptConfig.h"

#include <QSqlQuery>

PromptArguments::PromptArguments(StoreContext *context, qint64 key, State state)
    : StoreRecord(staticEntity, context, key, state)
{}

QVariantList PromptArguments::columnValues() const
{
    return {toColumn(m_v.id), toColumn(m_v.name), toColumn(m_v.info), QVariant(m_v.required ? 1 : 0)};
}

void PromptArguments::readColumns(const QSqlQuery &query, int first)
{
    m_v.id = uuidColumn(query.value(first + 0));
    m_v.name = textColumn(query.value(first + 1));
    m_v.info = textColumn(query.value(first + 2));
    m_v.required = query.value(first + 3).toInt() != 0;
}

void PromptArguments::setPromptConfig(PromptConfig *owner)
{
    ensureLoaded(staticEntity);
    relate(
        owner, this, [](PromptConfig *o) -> auto & { return o->m_v.arguments; },
        [](PromptArguments *c) -> auto & { return c->m_v.promptConfig; });
}

StoreRecord *PromptArguments::ownerRecord() const { return m_v.promptConfig; }

qsizetype PromptArguments::positionInOwner() const
{
    return m_v.promptConfig ? m_v.promptConfig->m_v.arguments.indexOf(const_cast<PromptArguments *>(this)) : -1;
}

void PromptArguments::removeFromOwner()
{
    if (m_v.promptConfig)
        relate<PromptConfig, PromptArguments>(
            nullptr, this, [](PromptConfig *o) -> auto & { return o->m_v.arguments; },
            [](PromptArguments *c) -> auto & { return c->m_v.promptConfig; });
}

void PromptArguments::attachLoaded(StoreRecord *owner)
{
    auto *o = static_cast<PromptConfig *>(owner);
    m_v.promptConfig = o;
    o->m_v.arguments.append(this);
    if (o->m_stored)
        o->m_stored->arguments.append(this);
}
