#pragma once

#include "store/StoreRecord.h"

template <class V>
class StoreColumns;

class ToolInputSchema;
class ToolOutputSchema;
template <class Schema, class Params>
class ToolSchemaRecord;

// One tool: how clients see it, how it is carried out, and its ordered input and
// output schemas (the relationship is spelled `outputSchmas`). Owns its schemas.
class ToolsConfig final : public StoreRecord {
public:
    // The stored attributes' columns, in order: the table layout.
    static QList<StoreEntityInfo::Column> columnLayout();

    static constexpr StoreEntity staticEntity = StoreEntity::ToolsConfig;

    std::optional<QUuid> id() const { return m_v.id; }
    void setId(std::optional<QUuid> value) { assign(m_v, &Values::id, std::move(value)); }
    std::optional<QString> name() const { return m_v.name; }
    void setName(std::optional<QString> value) { assign(m_v, &Values::name, std::move(value)); }
    std::optional<QString> title() const { return m_v.title; }
    void setTitle(std::optional<QString> value) { assign(m_v, &Values::title, std::move(value)); }
    std::optional<QString> toolDescription() const { return m_v.toolDescription; }
    void setToolDescription(std::optional<QString> value) { assign(m_v, &Values::toolDescription, std::move(value)); }
    std::optional<QString> toolType() const { return m_v.toolType; }
    void setToolType(std::optional<QString> value) { assign(m_v, &Values::toolType, std::move(value)); }
    std::optional<QString> methodName() const { return m_v.methodName; }
    void setMethodName(std::optional<QString> value) { assign(m_v, &Values::methodName, std::move(value)); }
    std::optional<QString> handlerName() const { return m_v.handlerName; }
    void setHandlerName(std::optional<QString> value) { assign(m_v, &Values::handlerName, std::move(value)); }
    std::optional<QString> pluginName() const { return m_v.pluginName; }
    void setPluginName(std::optional<QString> value) { assign(m_v, &Values::pluginName, std::move(value)); }
    std::optional<QString> scriptFileName() const { return m_v.scriptFileName; }
    void setScriptFileName(std::optional<QString> value) { assign(m_v, &Values::scriptFileName, std::move(value)); }
    // The tool's standard hints and title for clients, as compact JSON object text.
    std::optional<QString> annotationHints() const { return m_v.annotationHints; }
    void setAnnotationHints(std::optional<QString> value) { assign(m_v, &Values::annotationHints, std::move(value)); }
    // The input and output schemas as their author wrote them (compact JSON text): what the
    // schema records above do not hold (enum, bounds, $defs, ...) is kept here.
    std::optional<QString> inputSchemaJson() const { return m_v.inputSchemaJson; }
    void setInputSchemaJson(std::optional<QString> value) { assign(m_v, &Values::inputSchemaJson, std::move(value)); }
    std::optional<QString> outputSchemaJson() const { return m_v.outputSchemaJson; }
    void setOutputSchemaJson(std::optional<QString> value) { assign(m_v, &Values::outputSchemaJson, std::move(value)); }

    QList<ToolInputSchema *> inputSchemas() const;
    // Also sets the child's `toolConfig`; a child that belonged to another record leaves it.
    void addInputSchemasObject(ToolInputSchema *child);
    void removeInputSchemasObject(ToolInputSchema *child);

    QList<ToolOutputSchema *> outputSchmas() const;
    // Also sets the child's `toolConfig`; a child that belonged to another record leaves it.
    void addOutputSchmasObject(ToolOutputSchema *child);
    void removeOutputSchmasObject(ToolOutputSchema *child);

    QList<StoreRecord *> ownedRecords() const override;

private:
    friend class StoreContext;
    // The schemas name their list in Values and keep both ends of the link in step.
    friend class ToolInputSchema;
    friend class ToolOutputSchema;
    template <class Schema, class Params>
    friend class ToolSchemaRecord;
    ToolsConfig(StoreContext *context, qint64 key, State state);

    struct Values {
        std::optional<QUuid> id;
        std::optional<QString> name;
        std::optional<QString> title;
        std::optional<QString> toolDescription;
        std::optional<QString> toolType;
        std::optional<QString> methodName;
        std::optional<QString> handlerName;
        std::optional<QString> pluginName;
        std::optional<QString> scriptFileName;
        std::optional<QString> annotationHints;
        std::optional<QString> inputSchemaJson;
        std::optional<QString> outputSchemaJson;
        QList<ToolInputSchema *> inputSchemas;
        QList<ToolOutputSchema *> outputSchmas;
    };
    Values m_v;
    std::unique_ptr<Values> m_stored;

    void takeSnapshot() override { keepCopy(m_v, m_stored); }
    void restoreSnapshot() override { restoreCopy(m_v, m_stored); }
    void dropSnapshot() override { m_stored.reset(); }
    static const StoreColumns<Values> &columns();
    QVariantList columnValues() const override;
    void readColumns(const QSqlQuery &query, int first) override;
    bool ownedListsChanged() const override;
    std::optional<QString> nameValue() const override { return m_v.name; }
};
