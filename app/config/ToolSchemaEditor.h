#pragma once

#include "app/config/PropertyData.h"
#include "store/StoreContext.h"
#include "app/config/ToolsConfigController.h"
#include "store/ToolsConfig.h"
#include "store/ToolsQueryService.h"

#include <QList>
#include <QMetaObject>
#include <functional>

// The form of a schema editor ("Add Input Scheme", "Add Output Scheme"), both twins alike:
// Schema is ToolInputSchema or ToolOutputSchema, Params its parameter entity. The form is
// separate from the records; every change of a field writes it into the shown parameter,
// setting only the fields that differ, so the record and the form stay together and the
// controller's transaction holds each change. An "object" parameter's `items` is written
// from its members as pretty-printed JSON.
//
// Main thread only.
template <class Schema, class Params>
class ToolSchemaEditor {
public:
    ToolSchemaEditor(ToolsConfigController *controller, Schema *schema, bool isNewSchema)
        : m_controller(controller), m_schema(schema), m_isNewSchema(isNewSchema)
    {
        load(schema);
    }

    Schema *schema() const { return m_schema; }
    bool isNewSchema() const { return m_isNewSchema; }
    QString schemaType() const { return m_schemaType; }
    void setSchemaType(const QString &type) { m_schemaType = type; }
    QString requiredParams() const { return m_requiredParams; }
    void setRequiredParams(const QString &text) { m_requiredParams = text; }
    Params *selectedProperty() const { return m_selected; }
    Params *lastSelection() const { return m_lastSelection; }
    const PropertyData &editedProperty() const { return m_edited; }
    QList<Params *> properties() const { return ToolsQueryService::sortedProperties(m_schema); }

    // Writes the form into the parameter shown, then shows the other one.
    void select(Params *property)
    {
        writeForm();
        m_lastSelection = m_selected;
        m_selected = property;
        m_edited = property ? formOf(property) : PropertyData();
    }

    void setParameterName(const QString &v) { change([&] { m_edited.parameterName = v; }); }
    void setParameterDescription(const QString &v) { change([&] { m_edited.parameterDescription = v; }); }
    void setDefaultValue(const QString &v) { change([&] { m_edited.defaultValue = v; }); }
    void setItemType(const QString &v) { change([&] { m_edited.itemType = v; }); }
    void setItems(const QString &v) { change([&] { m_edited.items = v; }); }
    // From or to "object", and to "array", the form is written as it stands; any other
    // change resets the item type to "null" first.
    void setParameterType(const QString &type)
    {
        const QString old = m_edited.parameterType;
        change([&] {
            m_edited.parameterType = type;
            if (!(old == QLatin1String("object") || type == QLatin1String("object") || type == QLatin1String("array")))
                m_edited.itemType = QStringLiteral("null");
        });
    }

    // "Add Property" and "Delete Property" of an object parameter's members.
    void addObjectProperty() { change([&] { m_edited.objectProperties.append(ObjectProperty{}); }); }
    void setObjectProperty(qsizetype index, const ObjectProperty &member)
    {
        change([&] {
            if (index >= 0 && index < m_edited.objectProperties.size())
                m_edited.objectProperties[index] = member;
        });
    }
    void deleteObjectProperty(qsizetype index)
    {
        change([&] {
            if (index >= 0 && index < m_edited.objectProperties.size())
                m_edited.objectProperties.removeAt(index);
        });
    }

    // "Add Parameter Ctrl+N": a parameter with its defaults, attached and selected.
    Params *addParameter()
    {
        writeForm();
        Params *param = createParams();
        m_schema->addPropertiesObject(param);
        m_controller->updateUnsaved(true);
        m_lastSelection = m_selected;
        m_selected = param;
        m_edited = formOf(param);
        return param;
    }

    static inline const QString deleteParameterTitle = QStringLiteral("Delete Property");
    static inline const QString deleteParameterText =
        QStringLiteral("Are you sure you want to delete this property? This action cannot be undone.");
    // After the confirmation: removed and deleted without saving; the form shows the first
    // remaining parameter, or the empty form.
    void deleteParameter()
    {
        Params *param = std::exchange(m_selected, nullptr);
        if (!param)
            return;
        m_schema->removePropertiesObject(param);
        m_controller->context()->deleteObject(param);
        m_controller->updateUnsaved(true);
        const QList<Params *> left = properties();
        m_selected = left.isEmpty() ? nullptr : left.first();
        m_edited = m_selected ? formOf(m_selected) : PropertyData();
    }

    // "Save changes Ctrl+S": the form into the parameter, the schema's type and required list,
    // then the controller's save of the whole context.
    void save()
    {
        writeForm();
        if (m_schema->type().value_or(QString()) != m_schemaType)
            m_schema->setType(m_schemaType);
        if (m_schema->requiredParams().value_or(QString()) != m_requiredParams)
            m_schema->setRequiredParams(m_requiredParams);
        m_controller->updateUnsaved(true);
        m_controller->saveTapped();
        m_controller->closeSchemaEditors();
    }

    // "Revert changes Ctrl+U": a schema this editor made goes by the child rule; an existing
    // one is reverted with the controller. The form then shows the tool's first schema.
    void revert()
    {
        ToolsConfig *tool = m_schema->toolConfig();
        if (m_isNewSchema)
            m_controller->discardNewSchema(m_schema);
        else
            m_controller->revertTapped();
        const QList<Schema *> left = sortedSchemas(tool ? tool : m_controller->selectedTool());
        if (!left.isEmpty())
            load(left.first());
        m_controller->updateUnsaved(m_controller->context()->hasChanges());
    }

    // "Cancel": what was written so far stays pending.
    void cancel() { m_controller->closeSchemaEditors(); }

    // Writes the form into the shown parameter, field by field where it differs.
    void writeForm()
    {
        Params *p = m_selected;
        if (!p)
            return;
        const QString items = m_edited.parameterType == QLatin1String("object")
                                  ? PropertyData::objectItemsText(m_edited.objectProperties)
                                  : m_edited.items;
        if (p->parameterName().value_or(QString()) != m_edited.parameterName)
            p->setParameterName(m_edited.parameterName);
        if (p->parameterType().value_or(QString()) != m_edited.parameterType)
            p->setParameterType(m_edited.parameterType);
        if (p->parameterDescription().value_or(QString()) != m_edited.parameterDescription)
            p->setParameterDescription(m_edited.parameterDescription);
        if (p->defaultValue().value_or(QString()) != m_edited.defaultValue)
            p->setDefaultValue(m_edited.defaultValue);
        if (p->itemType().value_or(QString()) != m_edited.itemType)
            p->setItemType(m_edited.itemType);
        if (p->items().value_or(QString()) != items)
            p->setItems(items);
    }

    static PropertyData formOf(const Params *p)
    {
        PropertyData form;
        form.parameterName = p->parameterName().value_or(QString());
        form.parameterType = p->parameterType().value_or(QStringLiteral("string"));
        form.parameterDescription = p->parameterDescription().value_or(QString());
        form.defaultValue = p->defaultValue().value_or(QString());
        form.itemType = p->itemType().value_or(QStringLiteral("null"));
        form.items = p->items().value_or(QString());
        form.objectProperties = PropertyData::parseObjectProperties(form.items);
        return form;
    }

private:
    void load(Schema *schema)
    {
        m_schema = schema;
        m_schemaType = schema->type().value_or(QStringLiteral("object"));
        m_requiredParams = schema->requiredParams().value_or(QString());
        const QList<Params *> sorted = properties();
        m_selected = sorted.isEmpty() ? nullptr : sorted.first();
        m_lastSelection = nullptr;
        m_edited = m_selected ? formOf(m_selected) : PropertyData();
    }

    template <class Fn>
    void change(Fn &&apply)
    {
        apply();
        writeForm();
    }

    Params *createParams();
    static QList<Schema *> sortedSchemas(const ToolsConfig *tool);

    ToolsConfigController *m_controller;
    Schema *m_schema;
    bool m_isNewSchema;
    QString m_schemaType = QStringLiteral("object");
    QString m_requiredParams;
    Params *m_selected = nullptr;
    Params *m_lastSelection = nullptr;
    PropertyData m_edited;
};
