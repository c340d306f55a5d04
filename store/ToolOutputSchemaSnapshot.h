#pragma once

#include "store/ToolOutSchemaParamsSnapshot.h"
#include "store/ToolSchemaSnapshot.h"

class ToolOutputSchema;

// Value copy of an output schema with its ToolOutSchemaParamsSnapshot properties.
using ToolOutputSchemaSnapshot = ToolSchemaSnapshot<ToolOutputSchema, ToolOutSchemeParams>;
