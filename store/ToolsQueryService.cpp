#include "store/ToolsQueryService.h"

#include "store/CodePointOrder.h"
#include "store/StoreContext.h"
#include "store/ToolInSchemaParams.h"
#include "store/ToolInputSchema.h"
#include "store/ToolOutSchemeParams.h"
#include "store/ToolOutputSchema.h"
#include "store/ToolsConfig.h"

#include <QCoreApplication>

#include <algorithm>

namespace {

template <class T>
QList<T *> sortedByType(QList<T *> list)
{
    std::stable_sort(list.begin(), list.end(),
                     [](const T *a, const T *b) { return CodePointOrder::less(a->type(), b->type()); });
    return list;
}

template <class T>
QList<T *> sortedByParameterName(QList<T *> list)
{
    std::stable_sort(list.begin(), list.end(), [](const T *a, const T *b) {
        return CodePointOrder::less(a->parameterName(), b->parameterName());
    });
    return list;
}

template <class Params>
Params *createParams(StoreContext *context)
{
    auto *param = context->insert<Params>();
    param->setId(QUuid::createUuid());
    param->setParameterName(QStringLiteral(""));
    param->setParameterType(QStringLiteral("string"));
    param->setParameterDescription(QStringLiteral(""));
    param->setDefaultValue(QStringLiteral(""));
    param->setItems(QStringLiteral(""));
    param->setItemType(QStringLiteral("string"));
    return param;
}

template <class Schema, class Params>
Schema *createSchema(StoreContext *context)
{
    auto *schema = context->insert<Schema>();
    schema->setId(QUuid::createUuid());
    schema->setType(QStringLiteral("object"));
    schema->setRequiredParams(QStringLiteral(""));
    schema->addPropertiesObject(createParams<Params>(context));
    return schema;
}

}  // namespace

FetchRequest ToolsQueryService::toolsRequest()
{
    FetchRequest request = FetchRequest::forEntity(StoreEntity::ToolsConfig);
    request.sortByName = true;
    request.relationshipKeyPathsForPrefetching = {QStringLiteral("inputSchemas"), QStringLiteral("outputSchmas")};
    return request;
}

Result<QList<ToolsConfig *>> ToolsQueryService::fetchTools(StoreContext *context)
{
    return context->fetch<ToolsConfig>(toolsRequest());
}

QList<ToolInputSchema *> ToolsQueryService::sortedInputSchemas(const ToolsConfig *tool)
{
    return tool ? sortedByType(tool->inputSchemas()) : QList<ToolInputSchema *>();
}

QList<ToolOutputSchema *> ToolsQueryService::sortedOutputSchemas(const ToolsConfig *tool)
{
    return tool ? sortedByType(tool->outputSchmas()) : QList<ToolOutputSchema *>();
}

QList<ToolInSchemaParams *> ToolsQueryService::sortedProperties(const ToolInputSchema *schema)
{
    return schema ? sortedByParameterName(schema->properties()) : QList<ToolInSchemaParams *>();
}

QList<ToolOutSchemeParams *> ToolsQueryService::sortedProperties(const ToolOutputSchema *schema)
{
    return schema ? sortedByParameterName(schema->properties()) : QList<ToolOutSchemeParams *>();
}

bool ToolsQueryService::hasItems(const std::optional<QString> &itemType)
{
    return itemType && !itemType->isEmpty() && !itemType->contains(QLatin1String("null"));
}

ToolsConfig *ToolsQueryService::createTool(StoreContext *context, qsizetype listedTools)
{
    auto *tool = context->insert<ToolsConfig>();
    tool->setId(QUuid::createUuid());
    tool->setName(QCoreApplication::translate("Kelvara", "New Tool #%1").arg(listedTools + 1));
    tool->setToolDescription(QCoreApplication::translate("Kelvara", "Description for new tool"));
    tool->setToolType(QStringLiteral("BuiltinTool"));
    tool->setMethodName(QStringLiteral("listFiles"));
    return tool;
}

ToolInputSchema *ToolsQueryService::createInputSchema(StoreContext *context)
{
    return createSchema<ToolInputSchema, ToolInSchemaParams>(context);
}

ToolOutputSchema *ToolsQueryService::createOutputSchema(StoreContext *context)
{
    return createSchema<ToolOutputSchema, ToolOutSchemeParams>(context);
}

ToolInSchemaParams *ToolsQueryService::createInSchemaParams(StoreContext *context)
{
    return createParams<ToolInSchemaParams>(context);
}

ToolOutSchemeParams *ToolsQueryService::createOutSchemeParams(StoreContext *context)
{
    return createParams<ToolOutSchemeParams>(context);
}
