#pragma once

#include "base/Result.h"
#include "store/FetchRequest.h"

#include <QList>
#include <QString>
#include <QStringList>
#include <optional>

class StoreContext;
class ToolsConfig;
class ToolInputSchema;
class ToolOutputSchema;
class ToolInSchemaParams;
class ToolOutSchemeParams;

// Read helpers and creation defaults for tools and their schemas. Holds no state.
class ToolsQueryService {
public:
    // "ToolsConfig" by `name` ascending, with both schema lists loaded.
    static FetchRequest toolsRequest();
    static Result<QList<ToolsConfig *>> fetchTools(StoreContext *context);

    // `inputSchemas` / `outputSchmas` as arrays, stable-sorted ascending on `type`.
    static QList<ToolInputSchema *> sortedInputSchemas(const ToolsConfig *tool);
    static QList<ToolOutputSchema *> sortedOutputSchemas(const ToolsConfig *tool);
    // `properties` sorted ascending on `parameterName`; empty for a schema without any.
    static QList<ToolInSchemaParams *> sortedProperties(const ToolInputSchema *schema);
    static QList<ToolOutSchemeParams *> sortedProperties(const ToolOutputSchema *schema);

    // A parameter has items unless its `itemType` is missing, empty or contains "null".
    static bool hasItems(const std::optional<QString> &itemType);

    // New records with their creation defaults, pending in the context. A new tool is
    // named after the number of listed tools plus one; a new schema comes with one new
    // parameter.
    static ToolsConfig *createTool(StoreContext *context, qsizetype listedTools);
    static ToolInputSchema *createInputSchema(StoreContext *context);
    static ToolOutputSchema *createOutputSchema(StoreContext *context);
    static ToolInSchemaParams *createInSchemaParams(StoreContext *context);
    static ToolOutSchemeParams *createOutSchemeParams(StoreContext *context);
};
