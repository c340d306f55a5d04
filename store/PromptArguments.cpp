#include "store/PromptArguments.h"

#include "store/PromptConfig.h"

#include "store/StoreColumns.h"

#include <QSqlQuery>

PromptArguments::PromptArguments(StoreContext *context, qint64 key, State state)
    : StoreRecord(staticEntity, context, key, state)
{}

const StoreColumns<PromptArguments::Values> &PromptArguments::columns()
{
    static const auto columns = StoreColumns<Values>().add("id", &Values::id)
                                                  .add("name", &Values::name)
                                                  .add("info", &Values::info)
                                                  .addInteger("required", &Values::required)
                                                  .add("completionValues", &Values::completionValues)
                                                  .add("valuesScript", &Values::valuesScript);
    return columns;
}

QList<StoreEntityInfo::Column> PromptArguments::columnLayout() { return columns().layout(); }

QVariantList PromptArguments::columnValues() const { return columns().values(m_v); }

void PromptArguments::readColumns(const QSqlQuery &query, int first) { columns().read(m_v, query, first); }

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
