#include "store/ResourceConfig.h"

#include <QSqlQuery>

ResourceConfig::ResourceConfig(StoreContext *context, qint64 key, State state)
    : StoreRecord(staticEntity, context, key, state)
{}

QVariantList ResourceConfig::columnValues() const
{
    return {toColumn(m_v.id),
            toColumn(m_v.name),
            toColumn(m_v.resourceDescription),
            toColumn(m_v.type),
            toColumn(m_v.mimeType),
            toColumn(m_v.uri),
            toColumn(m_v.contextTags),
            toColumn(m_v.relatedResources),
            toColumn(m_v.annAudience),
            toColumn(m_v.annPriority),
            toColumn(m_v.annLastModified)};
}

void ResourceConfig::readColumns(const QSqlQuery &query, int first)
{
    m_v.id = uuidColumn(query.value(first + 0));
    m_v.name = textColumn(query.value(first + 1));
    m_v.resourceDescription = textColumn(query.value(first + 2));
    m_v.type = textColumn(query.value(first + 3));
    m_v.mimeType = textColumn(query.value(first + 4));
    m_v.uri = urlColumn(query.value(first + 5));
    m_v.contextTags = textColumn(query.value(first + 6));
    m_v.relatedResources = textColumn(query.value(first + 7));
    m_v.annAudience = textColumn(query.value(first + 8));
    m_v.annPriority = doubleColumn(query.value(first + 9));
    m_v.annLastModified = dateColumn(query.value(first + 10));
}
