#pragma once

#include "app/config/StoreBackedController.h"

#include <QJsonObject>
#include <QStringList>
#include <optional>

class ToolInputSchema;
class ToolOutputSchema;
class ToolsConfig;

// The controller of the Tools screen, on the shared edit transaction. The focus gives each
// command its meaning: the tool list, or one of the two schema buttons. It carries the three
// tool types, the type change that resets the method, the schemas' add and delete, and
// copy and paste of tools and schemas. The schema editors (ToolSchemaEditor) write into
// the parameter records through it.
//
// Main thread only.
class ToolsConfigController : public StoreBackedController {
    Q_OBJECT

public:
    enum ToolsFocusedField {
        toolsListView,
        toolName,
        toolDescription,
        toolHandlerName,
        toolMethodName,
        toolType,
        toolPluginName,
        toolScriptFile,
        inputSchemeButton,
        outputSchemeButton,
    };
    Q_ENUM(ToolsFocusedField)

    static inline const QString screenTitle = QStringLiteral("Tools Configuration");
    static inline const QString leadText =
        QStringLiteral("Tools are executable MCP actions. Configure input and output schemas here.");
    static inline const QString helpFile = QStringLiteral("help_tool_config.md");
    static inline const QString filterPlaceholder = QStringLiteral("Search name or description…");
    // The three types and their picker labels, in order.
    static const QStringList toolTypes;
    static QString typeLabel(const QString &toolType);
    // "Read file from file system (readFile)"; the built-in table's labels and
    // "Custom tool (toolEntry)"; the method itself for any other.
    static QString methodLabel(const QString &method);
    static QStringList builtinMethods();

    explicit ToolsConfigController(StoreContext *context, ConfigClipboard *clipboard = nullptr, QObject *parent = nullptr);

    QList<ToolsConfig *> tools() const;
    ToolsConfig *selectedTool() const;
    ToolInputSchema *selectedInputScheme() const { return m_selectedInput; }
    ToolOutputSchema *selectedOutputScheme() const { return m_selectedOutput; }
    void setSelectedInputScheme(ToolInputSchema *schema);
    void setSelectedOutputScheme(ToolOutputSchema *schema);
    bool isAddingTool() const { return isAdding(); }
    bool showingEditInputSchema() const { return m_showingEditInput; }
    bool showingEditOutputSchema() const { return m_showingEditOutput; }
    void closeSchemaEditors();
    bool showingDeleteInputSchemaConfirmation() const { return m_showingDeleteInput; }
    bool showingDeleteOutputSchemaConfirmation() const { return m_showingDeleteOutput; }
    ToolInputSchema *inputSchemaToDelete() const { return m_inputToDelete; }
    ToolOutputSchema *outputSchemaToDelete() const { return m_outputToDelete; }
    ToolsConfig *toolToDelete() const;

    void addToolTapped() { addTapped(); }
    // With a selected tool: a new schema with one parameter, selected; the editor opens.
    void addInputSchemaTapped();
    void addOutputSchemaTapped();
    bool isNewSchema() const { return m_isNewSchema; }
    // With the focus on a schema button: edits the selected schema, or makes the tool's first.
    void editButtonTapped();
    void deleteButtonTapped() { deleteTapped(); }
    void deleteTapped() override;
    void confirmDeleteInputSchema();
    void confirmDeleteOutputSchema();
    void cancelDeleteSchema();
    void saveButtonTapped() { saveTapped(); }
    void revertButtonTapped() { revertTapped(); }
    // The schema editor's revert of a schema it made: deleted by the child rule.
    void discardNewSchema(StoreRecord *schema);

    // The detail form's writes, each only when it differs.
    void setName(const QString &text);
    void setToolDescription(const QString &text);
    void setHandlerName(const QString &text);
    void setMethodName(const QString &text);
    void setPluginName(const QString &text);
    // Sets the type and at once the method: "listFiles" for a built-in tool, "toolEntry" else.
    void setToolType(const QString &type);
    // The chosen script's plain path; marks unsaved changes.
    void setScriptFile(const QString &path);
    // The selected tool's title and standard hints for clients (its annotations); an empty
    // title and a hint left open are not written, so clients assume the protocol's defaults.
    QJsonObject annotationHints() const;
    void setAnnotationTitle(const QString &text);
    void setAnnotationHint(const QString &key, std::optional<bool> value);
    static inline const QStringList hintKeys = {QStringLiteral("readOnlyHint"), QStringLiteral("destructiveHint"),
                                                QStringLiteral("idempotentHint"), QStringLiteral("openWorldHint")};
    // A missing type shows as "BuiltinTool".
    static QString shownType(const ToolsConfig *tool);

    bool canDelete() const override;
    bool canEditSchema() const;
    bool canCopy() const override;
    bool canPaste() const override;
    void copySelectedItem() override;

    QList<ToolsConfig *> filteredTools(const QString &query) const;
    static QString rowName(const ToolsConfig *tool);
    static QString rowDescription(const ToolsConfig *tool);
    static QString rowSchemas(const ToolsConfig *tool);
    QString deleteToolText() const;
    static inline const QString deleteInputSchemaText =
        QStringLiteral("Are you sure you want to delete this input scheme? This action cannot be undone.");
    static inline const QString deleteOutputSchemaText =
        QStringLiteral("Are you sure you want to delete this output scheme? This action cannot be undone.");

signals:
    void schemaStateChanged();

protected:
    FetchRequest listRequest() const override;
    StoreRecord *createRecord() override;
    std::optional<QString> addRefusalMessage() const override
    {
        return QStringLiteral("Commit or revert current changes first.");
    }
    void didAddRecord(StoreRecord *record) override;
    bool selectsFirstAfterReloadAlways() const override { return true; }
    void refreshAfterRevert() override;
    std::optional<int> focusAfterRevert(bool) const override { return toolsListView; }
    bool focusIsOnTopRecord() const override { return focusedField() == toolsListView; }
    void selectionDidChange() override;
    void pasteFoundNothing() override;

private:
    ToolInputSchema *m_selectedInput = nullptr;
    ToolOutputSchema *m_selectedOutput = nullptr;
    bool m_showingEditInput = false;
    bool m_showingEditOutput = false;
    bool m_showingDeleteInput = false;
    bool m_showingDeleteOutput = false;
    ToolInputSchema *m_inputToDelete = nullptr;
    ToolOutputSchema *m_outputToDelete = nullptr;
    bool m_isNewSchema = false;
};
