#include "store/ToolOutSchemeParams.h"

#include "store/ToolOutputSchema.h"

#include <QSqlQuery>

ToolOutSchemeParams::ToolOutSchemeParams(StoreContext *context, qint64 key, State state)
    : StoreRecord(staticEntity, context, key, state)
{}

QVariantList ToolOutSchemeParams::columnValues() const
{
    return {toColumn(m_v.id),
            toColumn(m_v.parameterName),
            toColumn(m_v.parameterType),
            toColumn(m_v.parameterDescription),
            toColumn(m_v.defaultValue),
            toColumn(m_v.itemType),
            toColumn(m_v.items)};
}

void ToolOutSchemeParams::readColumns(const QSqlQuery &query, int first)
{
    m_v.id = uuidColumn(query.value(first + 0));
    m_v.parameterName = textColumn(query.value(first + 1));
    m_v.parameterType = textColumn(query.value(first + 2));
    m_v.parameterDescription = textColumn(query.value(first + 3));
    m_v.defaultValue = textColumn(query.value(first + 4));
    m_v.itemType = textColumn(query.value(first + 5));
    m_v.items = textColumn(query.value(first + 6));
}

void ToolOutSchemeParams::setToolOutputSchema(ToolOutputSchema *owner)
{
    ensureLoaded(staticEntity);
    relate(
        owner, this, [](ToolOutputSchema *o) -> auto & { return o->m_v.properties; },
        [](ToolOutSchemeParams *c) -> auto & { return c->m_v.toolOutputSchema; });
}

StoreRecord *ToolOutSchemeParams::ownerRecord() const { return m_v.toolOutputSchema; }

qsizetype ToolOutSchemeParams::positionInOwner() const
{
    return m_v.toolOutputSchema ? m_v.toolOutputSchema->m_v.properties.indexOf(const_cast<ToolOutSchemeParams *>(this))
                                : -1;
}

void ToolOutSchemeParams::removeFromOwner()
{
    if (m_v.toolOutputSchema)
        relate<ToolOutputSchema, ToolOutSchemeParams>(
            nullptr, this, [](ToolOutputSchema *o) -> auto & { return o->m_v.properties; },
            [](ToolOutSchemeParams *c) -> auto & { return c->m_v.toolOutputSchema; });
}

void ToolOutSchemeParams::attachLoaded(StoreRecord *owner)
{
    auto *o = static_cast<ToolOutputSchema *>(owner);
    m_v.toolOutputSchema = o;
    o->m_v.properties.append(this);
    if (o->m_stored)
        o->m_stored->properties.append(this);
}
