#pragma once

#include "store/ToolSchemaParamsRecord.h"

class ToolInputSchema;

// One parameter of an input schema.
class ToolInSchemaParams final : public ToolSchemaParamsRecord<ToolInSchemaParams, ToolInputSchema> {
public:
    static constexpr StoreEntity staticEntity = StoreEntity::ToolInSchemaParams;

    // The owner; setting it also moves this record into the owner's `properties`.
    ToolInputSchema *toolInputSchema() const { return schema(); }
    void setToolInputSchema(ToolInputSchema *owner) { setSchema(owner); }

private:
    friend class StoreContext;
    ToolInSchemaParams(StoreContext *context, qint64 key, State state) : ToolSchemaParamsRecord(context, key, state) {}
};
