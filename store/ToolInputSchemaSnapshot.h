#pragma once

#include "store/ToolInSchemaParamsSnapshot.h"
#include "store/ToolSchemaSnapshot.h"

class ToolInputSchema;

// Value copy of an input schema with its ToolInSchemaParamsSnapshot properties.
using ToolInputSchemaSnapshot = ToolSchemaSnapshot<ToolInputSchema, ToolInSchemaParams>;
