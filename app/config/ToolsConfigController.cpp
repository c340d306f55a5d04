#include "app/config/ToolsConfigController.h"

#include "store/ConfigurationController.h"
#include "store/ToolInSchemaParams.h"
#include "store/ToolInputSchema.h"
#include "store/ToolOutSchemeParams.h"
#include "store/ToolOutputSchema.h"
#include "store/ToolsConfig.h"
#include "store/ToolsConfigSnapshot.h"
#include "store/ToolsQueryService.h"
#include "tools/router/BuiltinToolTable.h"

namespace {

// A schema snapshot made anew as records, with new ids, attached to the tool.
template <class Schema, class Params, class Snapshot>
Schema *makeSchema(StoreContext *context, const Snapshot &snapshot)
{
    auto *schema = context->insert<Schema>();
    schema->setId(QUuid::createUuid());
    schema->setType(snapshot.type);
    schema->setRequiredParams(snapshot.requiredParams);
    for (const auto &p : snapshot.properties) {
        auto *param = context->insert<Params>();
        param->setId(QUuid::createUuid());
        param->setParameterName(p.parameterName);
        param->setParameterType(p.parameterType);
        param->setParameterDescription(p.parameterDescription);
        param->setDefaultValue(p.defaultValue);
        param->setItemType(p.itemType);
        param->setItems(p.items);
        schema->addPropertiesObject(param);
    }
    return schema;
}

std::optional<QString> nonEmpty(const QString &text)
{
    return text.isEmpty() ? std::nullopt : std::optional<QString>(text);
}

}  // namespace

const QStringList ToolsConfigController::toolTypes = {QStringLiteral("BuiltinTool"), QStringLiteral("ScriptTool"),
                                                      QStringLiteral("CustomTool")};

QString ToolsConfigController::typeLabel(const QString &toolType)
{
    if (toolType == QLatin1String("ScriptTool"))
        return QStringLiteral("Script tool handler");
    if (toolType == QLatin1String("CustomTool"))
        return QStringLiteral("Custom tool handler");
    return QStringLiteral("Builtin tool handler");
}

QString ToolsConfigController::methodLabel(const QString &method)
{
    if (method == QLatin1String("toolEntry"))
        return QStringLiteral("Custom tool (toolEntry)");
    if (const BuiltinToolMethod *row = BuiltinToolTable::find(method))
        return row->label;
    return method;
}

QStringList ToolsConfigController::builtinMethods()
{
    QStringList methods;
    for (const BuiltinToolMethod &row : BuiltinToolTable::methods())
        methods.append(row.execMethod);
    return methods;
}

ToolsConfigController::ToolsConfigController(StoreContext *context, ConfigClipboard *clipboard, QObject *parent)
    : StoreBackedController(context, clipboard, parent)
{
    // Paste tries the tool, then the input schema, then the output schema.
    addPasteHandler<ToolsConfigSnapshot>(ConfigClipboard::toolsConfigType, [this](const ToolsConfigSnapshot &s) {
        auto *tool = this->context()->insert<ToolsConfig>();
        tool->setId(QUuid::createUuid());
        tool->setName(s.name + QStringLiteral(" Copy"));
        tool->setToolDescription(s.toolDescription);
        tool->setToolType(s.toolType);
        tool->setMethodName(s.methodName);
        tool->setHandlerName(nonEmpty(s.handlerName));
        tool->setPluginName(nonEmpty(s.pluginName));
        tool->setScriptFileName(nonEmpty(s.scriptFileName));
        for (const ToolInputSchemaSnapshot &schema : s.inputSchemas)
            tool->addInputSchemasObject(makeSchema<ToolInputSchema, ToolInSchemaParams>(this->context(), schema));
        for (const ToolOutputSchemaSnapshot &schema : s.outputSchemas)
            tool->addOutputSchmasObject(makeSchema<ToolOutputSchema, ToolOutSchemeParams>(this->context(), schema));
        appendRecord(tool);
        setSelectedRecord(tool);
        updateUnsaved(true);
        setFocus(toolName);
        printConsole(QStringLiteral("[ToolsConfigController] Pasted tool '") + s.name + QStringLiteral(" Copy'."));
    });
    addPasteHandler<ToolInputSchemaSnapshot>(ConfigClipboard::toolInputSchemaType, [this](const ToolInputSchemaSnapshot &s) {
        ToolsConfig *tool = selectedTool();
        if (!tool) {
            showAlert(QStringLiteral("Paste Error"), QStringLiteral("Select a tool before pasting an input schema."));
            return;
        }
        auto *schema = makeSchema<ToolInputSchema, ToolInSchemaParams>(this->context(), s);
        tool->addInputSchemasObject(schema);
        setSelectedInputScheme(schema);
        updateUnsaved(true);
        setFocus(inputSchemeButton);
        printConsole(QStringLiteral("[ToolsConfigController] Pasted input schema '%1' into '%2'.")
                         .arg(s.type, tool->name().value_or(QString())));
    });
    addPasteHandler<ToolOutputSchemaSnapshot>(ConfigClipboard::toolOutputSchemaType, [this](const ToolOutputSchemaSnapshot &s) {
        ToolsConfig *tool = selectedTool();
        if (!tool) {
            showAlert(QStringLiteral("Paste Error"), QStringLiteral("Select a tool before pasting an output schema."));
            return;
        }
        auto *schema = makeSchema<ToolOutputSchema, ToolOutSchemeParams>(this->context(), s);
        tool->addOutputSchmasObject(schema);
        setSelectedOutputScheme(schema);
        updateUnsaved(true);
        setFocus(outputSchemeButton);
        printConsole(QStringLiteral("[ToolsConfigController] Pasted output schema '%1' into '%2'.")
                         .arg(s.type, tool->name().value_or(QString())));
    });
}

QList<ToolsConfig *> ToolsConfigController::tools() const
{
    return recordsAs<ToolsConfig>();
}

ToolsConfig *ToolsConfigController::selectedTool() const
{
    return selectedAs<ToolsConfig>();
}

ToolsConfig *ToolsConfigController::toolToDelete() const
{
    return static_cast<ToolsConfig *>(recordToDelete());
}

void ToolsConfigController::setSelectedInputScheme(ToolInputSchema *schema)
{
    if (m_selectedInput == schema)
        return;
    m_selectedInput = schema;
    emit schemaStateChanged();
    notifyChange();
}

void ToolsConfigController::setSelectedOutputScheme(ToolOutputSchema *schema)
{
    if (m_selectedOutput == schema)
        return;
    m_selectedOutput = schema;
    emit schemaStateChanged();
    notifyChange();
}

FetchRequest ToolsConfigController::listRequest() const
{
    return ToolsQueryService::toolsRequest();
}

StoreRecord *ToolsConfigController::createRecord()
{
    return ToolsQueryService::createTool(context(), records().size());
}

void ToolsConfigController::didAddRecord(StoreRecord *)
{
    setSelectedInputScheme(nullptr);
    setSelectedOutputScheme(nullptr);
    setFocus(toolName);
}

void ToolsConfigController::selectionDidChange()
{
    // Another tool brings its first schemas of each kind into view.
    const QList<ToolInputSchema *> inputs = ToolsQueryService::sortedInputSchemas(selectedTool());
    const QList<ToolOutputSchema *> outputs = ToolsQueryService::sortedOutputSchemas(selectedTool());
    setSelectedInputScheme(inputs.isEmpty() ? nullptr : inputs.first());
    setSelectedOutputScheme(outputs.isEmpty() ? nullptr : outputs.first());
}

void ToolsConfigController::addInputSchemaTapped()
{
    ToolsConfig *tool = selectedTool();
    if (!tool)
        return;
    ToolInputSchema *schema = ToolsQueryService::createInputSchema(context());
    tool->addInputSchemasObject(schema);
    setSelectedInputScheme(schema);
    updateUnsaved(true);
    m_isNewSchema = true;
    m_showingEditInput = true;
    emit schemaStateChanged();
}

void ToolsConfigController::addOutputSchemaTapped()
{
    ToolsConfig *tool = selectedTool();
    if (!tool)
        return;
    ToolOutputSchema *schema = ToolsQueryService::createOutputSchema(context());
    tool->addOutputSchmasObject(schema);
    setSelectedOutputScheme(schema);
    updateUnsaved(true);
    m_isNewSchema = true;
    m_showingEditOutput = true;
    emit schemaStateChanged();
}

void ToolsConfigController::editButtonTapped()
{
    const std::optional<int> focus = focusedField();
    if (focus == toolsListView && selectedTool()) {
        setFocus(toolName);
    } else if (focus == inputSchemeButton && m_selectedInput) {
        m_isNewSchema = false;
        m_showingEditInput = true;
        emit schemaStateChanged();
    } else if (focus == outputSchemeButton && m_selectedOutput) {
        m_isNewSchema = false;
        m_showingEditOutput = true;
        emit schemaStateChanged();
    } else if (focus == inputSchemeButton) {
        // A tool without a schema gets its first one to edit.
        addInputSchemaTapped();
    } else if (focus == outputSchemeButton) {
        addOutputSchemaTapped();
    }
}

void ToolsConfigController::closeSchemaEditors()
{
    m_showingEditInput = false;
    m_showingEditOutput = false;
    m_isNewSchema = false;
    emit schemaStateChanged();
}

void ToolsConfigController::deleteTapped()
{
    const std::optional<int> focus = focusedField();
    if (focus == toolsListView && selectedTool()) {
        requestDelete(selectedTool());
    } else if (focus == inputSchemeButton && m_selectedInput) {
        m_inputToDelete = m_selectedInput;
        m_showingDeleteInput = true;
        emit schemaStateChanged();
    } else if (focus == outputSchemeButton && m_selectedOutput) {
        m_outputToDelete = m_selectedOutput;
        m_showingDeleteOutput = true;
        emit schemaStateChanged();
    }
}

void ToolsConfigController::confirmDeleteInputSchema()
{
    ToolInputSchema *schema = std::exchange(m_inputToDelete, nullptr);
    m_showingDeleteInput = false;
    if (schema) {
        ToolsConfig *tool = schema->toolConfig();
        deleteChild(schema);
        const QList<ToolInputSchema *> left = ToolsQueryService::sortedInputSchemas(tool);
        if (!left.isEmpty())
            m_selectedInput = left.first();
        else if (m_selectedInput == schema)
            m_selectedInput = schema;  // with none left the selection stays as it is
    }
    emit schemaStateChanged();
    notifyChange();
}

void ToolsConfigController::confirmDeleteOutputSchema()
{
    ToolOutputSchema *schema = std::exchange(m_outputToDelete, nullptr);
    m_showingDeleteOutput = false;
    if (schema) {
        ToolsConfig *tool = schema->toolConfig();
        deleteChild(schema);
        const QList<ToolOutputSchema *> left = ToolsQueryService::sortedOutputSchemas(tool);
        if (!left.isEmpty())
            m_selectedOutput = left.first();
    }
    emit schemaStateChanged();
    notifyChange();
}

void ToolsConfigController::cancelDeleteSchema()
{
    m_inputToDelete = nullptr;
    m_outputToDelete = nullptr;
    m_showingDeleteInput = false;
    m_showingDeleteOutput = false;
    emit schemaStateChanged();
}

void ToolsConfigController::discardNewSchema(StoreRecord *schema)
{
    ToolsConfig *tool = selectedTool();
    deleteChild(schema);
    const QList<ToolInputSchema *> inputs = ToolsQueryService::sortedInputSchemas(tool);
    const QList<ToolOutputSchema *> outputs = ToolsQueryService::sortedOutputSchemas(tool);
    m_selectedInput = inputs.isEmpty() ? nullptr : inputs.first();
    m_selectedOutput = outputs.isEmpty() ? nullptr : outputs.first();
    updateUnsaved(context()->hasChanges());
    emit schemaStateChanged();
}

void ToolsConfigController::refreshAfterRevert()
{
    StoreBackedController::refreshAfterRevert();
    ToolsConfig *tool = selectedTool();
    const QList<ToolInputSchema *> inputs = ToolsQueryService::sortedInputSchemas(tool);
    const QList<ToolOutputSchema *> outputs = ToolsQueryService::sortedOutputSchemas(tool);
    // A schema the revert took away is no selection any more.
    if (m_selectedInput && !inputs.contains(m_selectedInput))
        m_selectedInput = nullptr;
    if (m_selectedOutput && !outputs.contains(m_selectedOutput))
        m_selectedOutput = nullptr;
    if (tool && focusedField() == inputSchemeButton)
        m_selectedInput = inputs.isEmpty() ? nullptr : inputs.first();
    if (tool && focusedField() == outputSchemeButton)
        m_selectedOutput = outputs.isEmpty() ? nullptr : outputs.first();
    emit schemaStateChanged();
}

void ToolsConfigController::setName(const QString &text)
{
    if (ToolsConfig *t = selectedTool(); t && t->name().value_or(QString()) != text)
        t->setName(text);
}

QJsonObject ToolsConfigController::annotationHints() const
{
    const ToolsConfig *t = selectedTool();
    return t ? ConfigurationController::storedObject(t->annotationHints()).value_or(QJsonObject()) : QJsonObject();
}

namespace {
void writeHints(ToolsConfig *tool, const QJsonObject &hints)
{
    const std::optional<QString> text =
        hints.isEmpty() ? std::nullopt : std::optional<QString>(ConfigurationController::compactText(hints));
    if (tool->annotationHints() != text)
        tool->setAnnotationHints(text);
}
}  // namespace

void ToolsConfigController::setAnnotationTitle(const QString &text)
{
    ToolsConfig *t = selectedTool();
    if (!t)
        return;
    QJsonObject hints = annotationHints();
    if (text.isEmpty())
        hints.remove(QStringLiteral("title"));
    else
        hints.insert(QStringLiteral("title"), text);
    writeHints(t, hints);
}

void ToolsConfigController::setAnnotationHint(const QString &key, std::optional<bool> value)
{
    ToolsConfig *t = selectedTool();
    if (!t || !hintKeys.contains(key))
        return;
    QJsonObject hints = annotationHints();
    if (value)
        hints.insert(key, *value);
    else
        hints.remove(key);
    writeHints(t, hints);
}

void ToolsConfigController::setToolDescription(const QString &text)
{
    if (ToolsConfig *t = selectedTool(); t && t->toolDescription().value_or(QString()) != text)
        t->setToolDescription(text);
}

void ToolsConfigController::setHandlerName(const QString &text)
{
    if (ToolsConfig *t = selectedTool(); t && t->handlerName().value_or(QString()) != text)
        t->setHandlerName(text);
}

void ToolsConfigController::setMethodName(const QString &text)
{
    if (ToolsConfig *t = selectedTool(); t && t->methodName().value_or(QString()) != text)
        t->setMethodName(text);
}

void ToolsConfigController::setPluginName(const QString &text)
{
    if (ToolsConfig *t = selectedTool(); t && t->pluginName().value_or(QString()) != text)
        t->setPluginName(text);
}

QString ToolsConfigController::shownType(const ToolsConfig *tool)
{
    const QString type = tool ? tool->toolType().value_or(QString()) : QString();
    return type.isEmpty() ? QStringLiteral("BuiltinTool") : type;
}

void ToolsConfigController::setToolType(const QString &type)
{
    ToolsConfig *t = selectedTool();
    if (!t || shownType(t) == type)
        return;
    t->setToolType(type);
    t->setMethodName(type == QLatin1String("BuiltinTool") ? QStringLiteral("listFiles") : QStringLiteral("toolEntry"));
    notifyChange();
}

void ToolsConfigController::setScriptFile(const QString &path)
{
    ToolsConfig *t = selectedTool();
    if (!t)
        return;
    t->setScriptFileName(path);
    updateUnsaved(true);
    notifyChange();
}

bool ToolsConfigController::canDelete() const
{
    const std::optional<int> focus = focusedField();
    if (focus == toolsListView)
        return selectedTool() && !isAdding();
    if (focus == inputSchemeButton)
        return m_selectedInput && (!selectedTool() || !selectedTool()->inputSchemas().isEmpty());
    if (focus == outputSchemeButton)
        return m_selectedOutput && (!selectedTool() || !selectedTool()->outputSchmas().isEmpty());
    return false;
}

bool ToolsConfigController::canEditSchema() const
{
    const std::optional<int> focus = focusedField();
    return (focus == inputSchemeButton || focus == outputSchemeButton) && canDelete();
}

bool ToolsConfigController::canCopy() const
{
    const std::optional<int> focus = focusedField();
    if (focus == toolsListView)
        return selectedTool() != nullptr;
    if (focus == inputSchemeButton)
        return m_selectedInput != nullptr;
    if (focus == outputSchemeButton)
        return m_selectedOutput != nullptr;
    return false;
}

bool ToolsConfigController::canPaste() const
{
    if (clipboard()->has(ConfigClipboard::toolsConfigType))
        return true;
    return (clipboard()->has(ConfigClipboard::toolInputSchemaType) || clipboard()->has(ConfigClipboard::toolOutputSchemaType)) &&
           selectedTool();
}

void ToolsConfigController::copySelectedItem()
{
    const std::optional<int> focus = focusedField();
    if (focus == toolsListView && selectedTool()) {
        const ToolsConfigSnapshot snapshot = ToolsConfigSnapshot::fromRecord(*selectedTool());
        if (copyToClipboard(snapshot, ConfigClipboard::toolsConfigType))
            printConsole(QStringLiteral("[ToolsConfigController] Copied tool '") + snapshot.name + QStringLiteral("' ") +
                         QString::asprintf("(%d in/%d out schemas).", int(snapshot.inputSchemas.size()),
                                           int(snapshot.outputSchemas.size())));
    } else if (focus == inputSchemeButton && m_selectedInput) {
        const ToolInputSchemaSnapshot snapshot = ToolInputSchemaSnapshot::fromRecord(*m_selectedInput);
        if (copyToClipboard(snapshot, ConfigClipboard::toolInputSchemaType))
            printConsole(QStringLiteral("[ToolsConfigController] Copied input schema '%1' (%2 props).")
                             .arg(snapshot.type).arg(snapshot.properties.size()));
    } else if (focus == outputSchemeButton && m_selectedOutput) {
        const ToolOutputSchemaSnapshot snapshot = ToolOutputSchemaSnapshot::fromRecord(*m_selectedOutput);
        if (copyToClipboard(snapshot, ConfigClipboard::toolOutputSchemaType))
            printConsole(QStringLiteral("[ToolsConfigController] Copied output schema '%1' (%2 props).")
                             .arg(snapshot.type).arg(snapshot.properties.size()));
    }
}

void ToolsConfigController::pasteFoundNothing()
{
    printConsole(QStringLiteral("[ToolsConfigController] pasteItem: no compatible snapshot on clipboard."));
}

QList<ToolsConfig *> ToolsConfigController::filteredTools(const QString &query) const
{
    const QString needle = query.trimmed().toLower();
    const QList<ToolsConfig *> all = tools();
    if (needle.isEmpty())
        return all;
    QList<ToolsConfig *> shown;
    for (ToolsConfig *t : all) {
        if (t->name().value_or(QString()).toLower().contains(needle) ||
            t->toolDescription().value_or(QString()).toLower().contains(needle))
            shown.append(t);
    }
    return shown;
}

QString ToolsConfigController::rowName(const ToolsConfig *t)
{
    const QString name = t->name().value_or(QString());
    return name.isEmpty() ? QStringLiteral("Unnamed Tool") : name;
}

QString ToolsConfigController::rowDescription(const ToolsConfig *t)
{
    const QString text = t->toolDescription().value_or(QString());
    return text.isEmpty() ? QStringLiteral("No description") : text;
}

QString ToolsConfigController::rowSchemas(const ToolsConfig *t)
{
    return QStringLiteral("Input: %1  Output: %2").arg(t->inputSchemas().size()).arg(t->outputSchmas().size());
}

QString ToolsConfigController::deleteToolText() const
{
    const ToolsConfig *t = toolToDelete();
    const QString name = t ? t->name().value_or(QString()) : QString();
    return QStringLiteral("Are you sure you want to delete '") + (name.isEmpty() ? QStringLiteral("Unnamed Tool") : name) +
           QStringLiteral("'? This cannot be undone.");
}
