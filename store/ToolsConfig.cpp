#include "store/ToolsConfig.h"

#include "store/ToolInputSchema.h"
#include "store/ToolOutputSchema.h"

#include "store/StoreColumns.h"

#include <QSqlQuery>

ToolsConfig::ToolsConfig(StoreContext *context, qint64 key, State state)
    : StoreRecord(staticEntity, context, key, state)
{}

const StoreColumns<ToolsConfig::Values> &ToolsConfig::columns()
{
    static const auto columns = StoreColumns<Values>().add("id", &Values::id)
                                                  .add("name", &Values::name)
                                                  .add("title", &Values::title)
                                                  .add("toolDescription", &Values::toolDescription)
                                                  .add("toolType", &Values::toolType)
                                                  .add("methodName", &Values::methodName)
                                                  .add("handlerName", &Values::handlerName)
                                                  .add("pluginName", &Values::pluginName)
                                                  .add("scriptFileName", &Values::scriptFileName)
                                                  .add("annotationHints", &Values::annotationHints)
                                                  .add("inputSchemaJson", &Values::inputSchemaJson)
                                                  .add("outputSchemaJson", &Values::outputSchemaJson);
    return columns;
}

QList<StoreEntityInfo::Column> ToolsConfig::columnLayout() { return columns().layout(); }

QVariantList ToolsConfig::columnValues() const { return columns().values(m_v); }

void ToolsConfig::readColumns(const QSqlQuery &query, int first) { columns().read(m_v, query, first); }

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
