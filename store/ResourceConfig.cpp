#include "store/ResourceConfig.h"

#include "store/StoreColumns.h"

#include <QSqlQuery>

ResourceConfig::ResourceConfig(StoreContext *context, qint64 key, State state)
    : StoreRecord(staticEntity, context, key, state)
{}

const StoreColumns<ResourceConfig::Values> &ResourceConfig::columns()
{
    static const auto columns = StoreColumns<Values>().add("id", &Values::id)
                                                  .add("name", &Values::name)
                                                  .add("resourceDescription", &Values::resourceDescription)
                                                  .add("type", &Values::type)
                                                  .add("mimeType", &Values::mimeType)
                                                  .add("uri", &Values::uri)
                                                  .add("contextTags", &Values::contextTags)
                                                  .add("relatedResources", &Values::relatedResources)
                                                  .add("annAudience", &Values::annAudience)
                                                  .add("annPriority", &Values::annPriority)
                                                  .add("annLastModified", &Values::annLastModified)
                                                  .add("completionValues", &Values::completionValues)
                                                  .add("scriptFileName", &Values::scriptFileName)
                                                  .add("valuesScript", &Values::valuesScript);
    return columns;
}

QList<StoreEntityInfo::Column> ResourceConfig::columnLayout() { return columns().layout(); }

QVariantList ResourceConfig::columnValues() const { return columns().values(m_v); }

void ResourceConfig::readColumns(const QSqlQuery &query, int first) { columns().read(m_v, query, first); }
