#pragma once

#include "store/ToolSchemaParamsSnapshot.h"

class ToolOutSchemeParams;

// Value copy of an output schema parameter; the snapshot is spelled "Schema", the
// entity "Scheme".
using ToolOutSchemaParamsSnapshot = ToolSchemaParamsSnapshot<ToolOutSchemeParams>;
