#pragma once

#include "store/ToolSchemaRecord.h"
#include "store/ToolsConfig.h"

class ToolInSchemaParams;

// One input schema of a tool, in the tool's `inputSchemas`; its parameters are
// ToolInSchemaParams, linked back through `toolInputSchema`.
class ToolInputSchema final : public ToolSchemaRecord<ToolInputSchema, ToolInSchemaParams> {
public:
    static constexpr StoreEntity staticEntity = StoreEntity::ToolInputSchema;

private:
    friend class StoreContext;
    friend class ToolSchemaRecord<ToolInputSchema, ToolInSchemaParams>;
    static constexpr auto toolList = &ToolsConfig::Values::inputSchemas;

    ToolInputSchema(StoreContext *context, qint64 key, State state) : ToolSchemaRecord(context, key, state) {}
};
