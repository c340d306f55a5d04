#include "store/ToolSchemaParamsRecord.h"

#include "store/ToolInSchemaParams.h"
#include "store/ToolInputSchema.h"
#include "store/ToolOutSchemeParams.h"
#include "store/ToolOutputSchema.h"

#include "store/StoreColumns.h"

#include <QSqlQuery>

template <class Params, class Schema>
ToolSchemaParamsRecord<Params, Schema>::ToolSchemaParamsRecord(StoreContext *context, qint64 key, State state)
    : StoreRecord(Params::staticEntity, context, key, state)
{}

template <class Params, class Schema>
const StoreColumns<typename ToolSchemaParamsRecord<Params, Schema>::Values> &ToolSchemaParamsRecord<Params, Schema>::columns()
{
    static const auto columns = StoreColumns<Values>().add("id", &Values::id)
                                                  .add("parameterName", &Values::parameterName)
                                                  .add("parameterType", &Values::parameterType)
                                                  .add("parameterDescription", &Values::parameterDescription)
                                                  .add("defaultValue", &Values::defaultValue)
                                                  .add("itemType", &Values::itemType)
                                                  .add("items", &Values::items);
    return columns;
}

template <class Params, class Schema>
QList<StoreEntityInfo::Column> ToolSchemaParamsRecord<Params, Schema>::columnLayout() { return columns().layout(); }

template <class Params, class Schema>
QVariantList ToolSchemaParamsRecord<Params, Schema>::columnValues() const { return columns().values(m_v); }

template <class Params, class Schema>
void ToolSchemaParamsRecord<Params, Schema>::readColumns(const QSqlQuery &query, int first) { columns().read(m_v, query, first); }

template <class Params, class Schema>
QList<Params *> &ToolSchemaParamsRecord<Params, Schema>::propertiesOf(Schema *schema)
{
    return schema->m_v.properties;
}

template <class Params, class Schema>
Schema *&ToolSchemaParamsRecord<Params, Schema>::schemaOf(Params *param)
{
    return param->m_v.schema;
}

template <class Params, class Schema>
Params *ToolSchemaParamsRecord<Params, Schema>::self() const
{
    return const_cast<Params *>(static_cast<const Params *>(this));
}

template <class Params, class Schema>
void ToolSchemaParamsRecord<Params, Schema>::setSchema(Schema *owner)
{
    ensureLoaded(Params::staticEntity);
    relate(owner, self(), &propertiesOf, &schemaOf);
}

template <class Params, class Schema>
StoreRecord *ToolSchemaParamsRecord<Params, Schema>::ownerRecord() const
{
    return m_v.schema;
}

template <class Params, class Schema>
qsizetype ToolSchemaParamsRecord<Params, Schema>::positionInOwner() const
{
    return m_v.schema ? propertiesOf(m_v.schema).indexOf(self()) : -1;
}

template <class Params, class Schema>
void ToolSchemaParamsRecord<Params, Schema>::removeFromOwner()
{
    if (m_v.schema)
        relate<Schema, Params>(nullptr, self(), &propertiesOf, &schemaOf);
}

template <class Params, class Schema>
void ToolSchemaParamsRecord<Params, Schema>::attachLoaded(StoreRecord *owner)
{
    auto *schema = static_cast<Schema *>(owner);
    m_v.schema = schema;
    propertiesOf(schema).append(self());
    if (schema->m_stored)
        schema->m_stored->properties.append(self());
}

template class ToolSchemaParamsRecord<ToolInSchemaParams, ToolInputSchema>;
template class ToolSchemaParamsRecord<ToolOutSchemeParams, ToolOutputSchema>;
