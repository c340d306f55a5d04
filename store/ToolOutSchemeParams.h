#pragma once

#include "store/ToolSchemaParamsRecord.h"

class ToolOutputSchema;

// One parameter of an output schema (the entity is spelled with "Scheme").
class ToolOutSchemeParams final : public ToolSchemaParamsRecord<ToolOutSchemeParams, ToolOutputSchema> {
public:
    static constexpr StoreEntity staticEntity = StoreEntity::ToolOutSchemeParams;

    // The owner; setting it also moves this record into the owner's `properties`.
    ToolOutputSchema *toolOutputSchema() const { return schema(); }
    void setToolOutputSchema(ToolOutputSchema *owner) { setSchema(owner); }

private:
    friend class StoreContext;
    ToolOutSchemeParams(StoreContext *context, qint64 key, State state) : ToolSchemaParamsRecord(context, key, state) {}
};
