#include "store/ToolsConfig.h"

#include "store/ToolInputSchema.h"
#include "store/ToolOutputSchema.h"

#include <QSqlQuery>

ToolsConfig::ToolsConfig(StoreContext *context, qint64 key, State state)
    : StoreRecord(staticEntity, context, key, state)
{}

QVariantList ToolsConfig::columnValues() const
{
    return {toColumn(m_v.id),
            toColumn(m_v.name),
            toColumn(m_v.title),
            toColumn(m_v.toolDescription),
            toColumn(m_v.toolType),
            toColumn(m_v.methodName),
            toColumn(m_v.handlerName),
            toColumn(m_v.pluginName),
            toColumn(m_v.scriptFileName)};
}

void ToolsConfig::readColumns(const QSqlQuery &query, int first)
{
    m_v.id = uuidColumn(query.value(first + 0));
    m_v.name = textColumn(query.value(first + 1));
    m_v.title = textColumn(query.value(first + 2));
    m_v.toolDescription = textColumn(query.value(first + 3));
    m_v.toolType = textColumn(query.value(first + 4));
    m_v.methodName = textColumn(query.value(first + 5));
    m_v.handlerName = textColumn(query.value(first + 6));
    m_v.pluginName = textColumn(query.value(first + 7));
    m_v.scriptFileName = textColumn(query.value(first + 8));
}

QList<ToolInputSchema *> ToolsConfig::inputSchemas() const
{
    ensureLoaded(ToolInputSchema::staticEntity);
    return m_v.inputSchemas;
}

void ToolsConfig::addInputSchemasObject(ToolInputSchema *child)
{
    if (child)
        child->setToolConfig(this);
}

void ToolsConfig::removeInputSchemasObject(ToolInputSchema *child)
{
    if (child && child->toolConfig() == this)
        child->setToolConfig(nullptr);
}

QList<ToolOutputSchema *> ToolsConfig::outputSchmas() const
{
    ensureLoaded(ToolOutputSchema::staticEntity);
    return m_v.outputSchmas;
}

void ToolsConfig::addOutputSchmasObject(ToolOutputSchema *child)
{
    if (child)
        child->setToolConfig(this);
}

void ToolsConfig::removeOutputSchmasObject(ToolOutputSchema *child)
{
    if (child && child->toolConfig() == this)
        child->setToolConfig(nullptr);
}

QList<StoreRecord *> ToolsConfig::ownedRecords() const
{
    QList<StoreRecord *> owned;
    for (ToolInputSchema *child : inputSchemas())
        owned.append(child);
    for (ToolOutputSchema *child : outputSchmas())
        owned.append(child);
    return owned;
}

bool ToolsConfig::ownedListsChanged() const
{
    return m_stored && (m_stored->inputSchemas != m_v.inputSchemas || m_stored->outputSchmas != m_v.outputSchmas);
}
