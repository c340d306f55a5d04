#include "store/ToolInSchemaParams.h"

#include "store/ToolInputSchema.h"

#include <QSqlQuery>

ToolInSchemaParams::ToolInSchemaParams(StoreContext *context, qint64 key, State state)
    : StoreRecord(staticEntity, context, key, state)
{}

QVariantList ToolInSchemaParams::columnValues() const
{
    return {toColumn(m_v.id),
            toColumn(m_v.parameterName),
            toColumn(m_v.parameterType),
            toColumn(m_v.parameterDescription),
            toColumn(m_v.defaultValue),
            toColumn(m_v.itemType),
            toColumn(m_v.items)};
}

void ToolInSchemaParams::readColumns(const QSqlQuery &query, int first)
{
    m_v.id = uuidColumn(query.value(first + 0));
    m_v.parameterName = textColumn(query.value(first + 1));
    m_v.parameterType = textColumn(query.value(first + 2));
    m_v.parameterDescription = textColumn(query.value(first + 3));
    m_v.defaultValue = textColumn(query.value(first + 4));
    m_v.itemType = textColumn(query.value(first + 5));
    m_v.items = textColumn(query.value(first + 6));
}

void ToolInSchemaParams::setToolInputSchema(ToolInputSchema *owner)
{
    ensureLoaded(staticEntity);
    relate(
        owner, this, [](ToolInputSchema *o) -> auto & { return o->m_v.properties; },
        [](ToolInSchemaParams *c) -> auto & { return c->m_v.toolInputSchema; });
}

StoreRecord *ToolInSchemaParams::ownerRecord() const { return m_v.toolInputSchema; }

qsizetype ToolInSchemaParams::positionInOwner() const
{
    return m_v.toolInputSchema ? m_v.toolInputSchema->m_v.properties.indexOf(const_cast<ToolInSchemaParams *>(this))
                               : -1;
}

void ToolInSchemaParams::removeFromOwner()
{
    if (m_v.toolInputSchema)
        relate<ToolInputSchema, ToolInSchemaParams>(
            nullptr, this, [](ToolInputSchema *o) -> auto & { return o->m_v.properties; },
            [](ToolInSchemaParams *c) -> auto & { return c->m_v.toolInputSchema; });
}

void ToolInSchemaParams::attachLoaded(StoreRecord *owner)
{
    auto *o = static_cast<ToolInputSchema *>(owner);
    m_v.toolInputSchema = o;
    o->m_v.properties.append(this);
    if (o->m_stored)
        o->m_stored->properties.append(this);
}
