#pragma once

#include "store/ToolInSchemaParams.h"
#include "store/ToolInputSchema.h"
#include "app/config/ToolSchemaEditor.h"

// The "Add Input Scheme" editor's form.
using ToolInputSchemaEditor = ToolSchemaEditor<ToolInputSchema, ToolInSchemaParams>;

template <>
inline ToolInSchemaParams *ToolInputSchemaEditor::createParams()
{
    return ToolsQueryService::createInSchemaParams(m_controller->context());
}

template <>
inline QList<ToolInputSchema *> ToolInputSchemaEditor::sortedSchemas(const ToolsConfig *tool)
{
    return ToolsQueryService::sortedInputSchemas(tool);
}

template <>
inline std::optional<QString> ToolInputSchemaEditor::documentText(const ToolsConfig *tool)
{
    return tool->inputSchemaJson();
}

template <>
inline void ToolInputSchemaEditor::setDocumentText(ToolsConfig *tool, const std::optional<QString> &text)
{
    tool->setInputSchemaJson(text);
}

template <>
inline const JSONToolSchema &ToolInputSchemaEditor::schemaOf(const JSONToolConfig &config)
{
    return config.inputSchema;
}
