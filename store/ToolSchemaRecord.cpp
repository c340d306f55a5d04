#include "store/ToolSchemaRecord.h"

#include "store/ToolInSchemaParams.h"
#include "store/ToolInputSchema.h"
#include "store/ToolOutSchemeParams.h"
#include "store/ToolOutputSchema.h"
#include "store/ToolsConfig.h"

#include "store/StoreColumns.h"

#include <QSqlQuery>

template <class Schema, class Params>
ToolSchemaRecord<Schema, Params>::ToolSchemaRecord(StoreContext *context, qint64 key, State state)
    : StoreRecord(Schema::staticEntity, context, key, state)
{}

template <class Schema, class Params>
const StoreColumns<typename ToolSchemaRecord<Schema, Params>::Values> &ToolSchemaRecord<Schema, Params>::columns()
{
    static const auto columns = StoreColumns<Values>().add("id", &Values::id)
                                                  .add("type", &Values::type)
                                                  .add("requiredParams", &Values::requiredParams);
    return columns;
}

template <class Schema, class Params>
QList<StoreEntityInfo::Column> ToolSchemaRecord<Schema, Params>::columnLayout() { return columns().layout(); }

template <class Schema, class Params>
QVariantList ToolSchemaRecord<Schema, Params>::columnValues() const { return columns().values(m_v); }

template <class Schema, class Params>
void ToolSchemaRecord<Schema, Params>::readColumns(const QSqlQuery &query, int first) { columns().read(m_v, query, first); }

template <class Schema, class Params>
QList<Schema *> &ToolSchemaRecord<Schema, Params>::schemasOf(ToolsConfig *tool)
{
    return tool->m_v.*Schema::toolList;
}

template <class Schema, class Params>
ToolsConfig *&ToolSchemaRecord<Schema, Params>::toolOf(Schema *schema)
{
    return schema->m_v.toolConfig;
}

template <class Schema, class Params>
Schema *ToolSchemaRecord<Schema, Params>::self() const
{
    return const_cast<Schema *>(static_cast<const Schema *>(this));
}

template <class Schema, class Params>
void ToolSchemaRecord<Schema, Params>::setToolConfig(ToolsConfig *owner)
{
    ensureLoaded(Schema::staticEntity);
    relate(owner, self(), &schemasOf, &toolOf);
}

template <class Schema, class Params>
StoreRecord *ToolSchemaRecord<Schema, Params>::ownerRecord() const
{
    return m_v.toolConfig;
}

template <class Schema, class Params>
qsizetype ToolSchemaRecord<Schema, Params>::positionInOwner() const
{
    return m_v.toolConfig ? schemasOf(m_v.toolConfig).indexOf(self()) : -1;
}

template <class Schema, class Params>
void ToolSchemaRecord<Schema, Params>::removeFromOwner()
{
    if (m_v.toolConfig)
        relate<ToolsConfig, Schema>(nullptr, self(), &schemasOf, &toolOf);
}

template <class Schema, class Params>
void ToolSchemaRecord<Schema, Params>::attachLoaded(StoreRecord *owner)
{
    auto *tool = static_cast<ToolsConfig *>(owner);
    m_v.toolConfig = tool;
    schemasOf(tool).append(self());
    if (tool->m_stored)
        ((*tool->m_stored).*Schema::toolList).append(self());
}

template <class Schema, class Params>
QList<Params *> ToolSchemaRecord<Schema, Params>::properties() const
{
    ensureLoaded(Params::staticEntity);
    return m_v.properties;
}

template <class Schema, class Params>
void ToolSchemaRecord<Schema, Params>::addPropertiesObject(Params *child)
{
    if (child)
        child->setSchema(self());
}

template <class Schema, class Params>
void ToolSchemaRecord<Schema, Params>::removePropertiesObject(Params *child)
{
    if (child && child->schema() == self())
        child->setSchema(nullptr);
}

template <class Schema, class Params>
QList<StoreRecord *> ToolSchemaRecord<Schema, Params>::ownedRecords() const
{
    QList<StoreRecord *> owned;
    for (Params *child : properties())
        owned.append(child);
    return owned;
}

template <class Schema, class Params>
bool ToolSchemaRecord<Schema, Params>::ownedListsChanged() const
{
    return m_stored && m_stored->properties != m_v.properties;
}

template class ToolSchemaRecord<ToolInputSchema, ToolInSchemaParams>;
template class ToolSchemaRecord<ToolOutputSchema, ToolOutSchemeParams>;
