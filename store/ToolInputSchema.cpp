#include "store/ToolInputSchema.h"

#include "store/ToolInSchemaParams.h"
#include "store/ToolsConfig.h"

#include <QSqlQuery>

ToolInputSchema::ToolInputSchema(StoreContext *context, qint64 key, State state)
    : StoreRecord(staticEntity, context, key, state)
{}

QVariantList ToolInputSchema::columnValues() const
{
    return {toColumn(m_v.id), toColumn(m_v.type), toColumn(m_v.requiredParams)};
}

void ToolInputSchema::readColumns(const QSqlQuery &query, int first)
{
    m_v.id = uuidColumn(query.value(first + 0));
    m_v.type = textColumn(query.value(first + 1));
    m_v.requiredParams = textColumn(query.value(first + 2));
}

void ToolInputSchema::setToolConfig(ToolsConfig *owner)
{
    ensureLoaded(staticEntity);
    relate(
        owner, this, [](ToolsConfig *o) -> auto & { return o->m_v.inputSchemas; },
        [](ToolInputSchema *c) -> auto & { return c->m_v.toolConfig; });
}

StoreRecord *ToolInputSchema::ownerRecord() const { return m_v.toolConfig; }

qsizetype ToolInputSchema::positionInOwner() const
{
    return m_v.toolConfig ? m_v.toolConfig->m_v.inputSchemas.indexOf(const_cast<ToolInputSchema *>(this)) : -1;
}

void ToolInputSchema::removeFromOwner()
{
    if (m_v.toolConfig)
        relate<ToolsConfig, ToolInputSchema>(
            nullptr, this, [](ToolsConfig *o) -> auto & { return o->m_v.inputSchemas; },
            [](ToolInputSchema *c) -> auto & { return c->m_v.toolConfig; });
}

void ToolInputSchema::attachLoaded(StoreRecord *owner)
{
    auto *o = static_cast<ToolsConfig *>(owner);
    m_v.toolConfig = o;
    o->m_v.inputSchemas.append(this);
    if (o->m_stored)
        o->m_stored->inputSchemas.append(this);
}

QList<ToolInSchemaParams *> ToolInputSchema::properties() const
{
    ensureLoaded(ToolInSchemaParams::staticEntity);
    return m_v.properties;
}

void ToolInputSchema::addPropertiesObject(ToolInSchemaParams *child)
{
    ensureLoaded(ToolInSchemaParams::staticEntity);
    relate(
        this, child, [](ToolInputSchema *o) -> auto & { return o->m_v.properties; },
        [](ToolInSchemaParams *c) -> auto & { return c->m_v.toolInputSchema; });
}

void ToolInputSchema::removePropertiesObject(ToolInSchemaParams *child)
{
    ensureLoaded(ToolInSchemaParams::staticEntity);
    if (!child || child->m_v.toolInputSchema != this)
        return;
    relate<ToolInputSchema, ToolInSchemaParams>(
        nullptr, child, [](ToolInputSchema *o) -> auto & { return o->m_v.properties; },
        [](ToolInSchemaParams *c) -> auto & { return c->m_v.toolInputSchema; });
}

QList<StoreRecord *> ToolInputSchema::ownedRecords() const
{
    QList<StoreRecord *> owned;
    for (ToolInSchemaParams *child : properties())
        owned.append(child);
    return owned;
}

bool ToolInputSchema::ownedListsChanged() const { return m_stored && (m_stored->properties != m_v.properties); }
