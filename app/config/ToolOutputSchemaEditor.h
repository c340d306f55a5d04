#pragma once

#include "store/ToolOutSchemeParams.h"
#include "store/ToolOutputSchema.h"
#include "app/config/ToolSchemaEditor.h"

// The "Add Output Scheme" editor's form.
using ToolOutputSchemaEditor = ToolSchemaEditor<ToolOutputSchema, ToolOutSchemeParams>;

template <>
inline ToolOutSchemeParams *ToolOutputSchemaEditor::createParams()
{
    return ToolsQueryService::createOutSchemeParams(m_controller->context());
}

template <>
inline QList<ToolOutputSchema *> ToolOutputSchemaEditor::sortedSchemas(const ToolsConfig *tool)
{
    return ToolsQueryService::sortedOutputSchemas(tool);
}

template <>
inline std::optional<QString> ToolOutputSchemaEditor::documentText(const ToolsConfig *tool)
{
    return tool->outputSchemaJson();
}

template <>
inline void ToolOutputSchemaEditor::setDocumentText(ToolsConfig *tool, const std::optional<QString> &text)
{
    tool->setOutputSchemaJson(text);
}

template <>
inline const JSONToolSchema &ToolOutputSchemaEditor::schemaOf(const JSONToolConfig &config)
{
    return config.outputSchema;
}
