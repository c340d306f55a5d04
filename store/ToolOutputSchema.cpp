#include "store/ToolOutputSchema.h"

#include "store/ToolOutSchemeParams.h"
#include "store/ToolsConfig.h"

#include <QSqlQuery>

ToolOutputSchema::ToolOutputSchema(StoreContext *context, qint64 key, State state)
    : StoreRecord(staticEntity, context, key, state)
{}

QVariantList ToolOutputSchema::columnValues() const
{
    return {toColumn(m_v.id), toColumn(m_v.type), toColumn(m_v.requiredParams)};
}

void ToolOutputSchema::readColumns(const QSqlQuery &query, int first)
{
    m_v.id = uuidColumn(query.value(first + 0));
    m_v.type = textColumn(query.value(first + 1));
    m_v.requiredParams = textColumn(query.value(first + 2));
}

void ToolOutputSchema::setToolConfig(ToolsConfig *owner)
{
    ensureLoaded(staticEntity);
    relate(
        owner, this, [](ToolsConfig *o) -> auto & { return o->m_v.outputSchmas; },
        [](ToolOutputSchema *c) -> auto & { return c->m_v.toolConfig; });
}

StoreRecord *ToolOutputSchema::ownerRecord() const { return m_v.toolConfig; }

qsizetype ToolOutputSchema::positionInOwner() const
{
    return m_v.toolConfig ? m_v.toolConfig->m_v.outputSchmas.indexOf(const_cast<ToolOutputSchema *>(this)) : -1;
}

void ToolOutputSchema::removeFromOwner()
{
    if (m_v.toolConfig)
        relate<ToolsConfig, ToolOutputSchema>(
            nullptr, this, [](ToolsConfig *o) -> auto & { return o->m_v.outputSchmas; },
            [](ToolOutputSchema *c) -> auto & { return c->m_v.toolConfig; });
}

void ToolOutputSchema::attachLoaded(StoreRecord *owner)
{
    auto *o = static_cast<ToolsConfig *>(owner);
    m_v.toolConfig = o;
    o->m_v.outputSchmas.append(this);
    if (o->m_stored)
        o->m_stored->outputSchmas.append(this);
}

QList<ToolOutSchemeParams *> ToolOutputSchema::properties() const
{
    ensureLoaded(ToolOutSchemeParams::staticEntity);
    return m_v.properties;
}

void ToolOutputSchema::addPropertiesObject(ToolOutSchemeParams *child)
{
    ensureLoaded(ToolOutSchemeParams::staticEntity);
    relate(
        this, child, [](ToolOutputSchema *o) -> auto & { return o->m_v.properties; },
        [](ToolOutSchemeParams *c) -> auto & { return c->m_v.toolOutputSchema; });
}

void ToolOutputSchema::removePropertiesObject(ToolOutSchemeParams *child)
{
    ensureLoaded(ToolOutSchemeParams::staticEntity);
    if (!child || child->m_v.toolOutputSchema != this)
        return;
    relate<ToolOutputSchema, ToolOutSchemeParams>(
        nullptr, child, [](ToolOutputSchema *o) -> auto & { return o->m_v.properties; },
        [](ToolOutSchemeParams *c) -> auto & { return c->m_v.toolOutputSchema; });
}

QList<StoreRecord *> ToolOutputSchema::ownedRecords() const
{
    QList<StoreRecord *> owned;
    for (ToolOutSchemeParams *child : properties())
        owned.append(child);
    return owned;
}

bool ToolOutputSchema::ownedListsChanged() const { return m_stored && (m_stored->properties != m_v.properties); }
