#pragma once

#include "store/ToolSchemaParamsSnapshot.h"

class ToolInSchemaParams;

// Value copy of an input schema parameter.
using ToolInSchemaParamsSnapshot = ToolSchemaParamsSnapshot<ToolInSchemaParams>;
