#pragma once

#include "store/ToolSchemaRecord.h"
#include "store/ToolsConfig.h"

class ToolOutSchemeParams;

// One output schema of a tool, in the tool's `outputSchmas`; its parameters are
// ToolOutSchemeParams, linked back through `toolOutputSchema`.
class ToolOutputSchema final : public ToolSchemaRecord<ToolOutputSchema, ToolOutSchemeParams> {
public:
    static constexpr StoreEntity staticEntity = StoreEntity::ToolOutputSchema;

private:
    friend class StoreContext;
    friend class ToolSchemaRecord<ToolOutputSchema, ToolOutSchemeParams>;
    static constexpr auto toolList = &ToolsConfig::Values::outputSchmas;

    ToolOutputSchema(StoreContext *context, qint64 key, State state) : ToolSchemaRecord(context, key, state) {}
};
