#pragma once

#include "app/config/PropertyData.h"
#include "store/ConfigurationController.h"
#include "store/StoreContext.h"
#include "app/config/ToolsConfigController.h"
#include "store/ToolsConfig.h"
#include "store/ToolsQueryService.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QList>
#include <QMap>
#include <QMetaObject>
#include <functional>
#include <optional>

// The form of a schema editor ("Add Input Scheme", "Add Output Scheme"), both twins alike:
// Schema is ToolInputSchema or ToolOutputSchema, Params its parameter entity. The form is
// separate from the records; every change of a field writes it into the shown parameter,
// setting only the fields that differ, so the record and the form stay together and the
// controller's transaction holds each change. An "object" parameter's `items` is written
// from its members as pretty-printed JSON. What the records cannot hold (enum values, and
// everything the "JSON" tab writes) goes into the tool's written schema of this kind, over
// which the records' fields are laid when the tool is exported.
//
// Main thread only.
template <class Schema, class Params>
class ToolSchemaEditor {
public:
    ToolSchemaEditor(ToolsConfigController *controller, Schema *schema, bool isNewSchema)
        : m_controller(controller), m_schema(schema), m_isNewSchema(isNewSchema)
    {
        if (const ToolsConfig *tool = schema->toolConfig())
            m_openedDocument = documentText(tool);
        load(schema);
    }

    Schema *schema() const { return m_schema; }
    bool isNewSchema() const { return m_isNewSchema; }
    QString schemaType() const { return m_schemaType; }
    // The schema's own fields are written as typed, like the parameter's: a pending change at once.
    void setSchemaType(const QString &type)
    {
        m_schemaType = type;
        writeSchemaFields();
    }
    QString requiredParams() const { return m_requiredParams; }
    void setRequiredParams(const QString &text)
    {
        m_requiredParams = text;
        writeSchemaFields();
    }
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
        m_edited = property ? formFor(property) : PropertyData();
    }

    // A renamed parameter takes what the written schema says of it along.
    void setParameterName(const QString &v)
    {
        const QString old = m_edited.parameterName;
        change([&] { m_edited.parameterName = v; });
        std::optional<QJsonObject> document = storedDocument();
        if (!document || old.isEmpty() || old == v || v.isEmpty())
            return;
        QJsonObject props = document->value(QStringLiteral("properties")).toObject();
        if (!props.contains(old) || props.contains(v))
            return;
        props.insert(v, props.take(old));
        document->insert(QStringLiteral("properties"), props);
        writeDocument(*document);
    }
    // Comma-separated; an empty list removes the parameter's "enum".
    void setEnumValues(const QString &text)
    {
        change([&] { m_edited.enumValues = text; });
        const QString name = m_edited.parameterName;
        if (!m_selected || name.isEmpty())
            return;
        std::optional<QJsonObject> document = storedDocument();
        if (!document)
            document = wholeSchema(nullptr);
        if (!document)
            return;
        QJsonArray values;
        for (const QString &part : text.split(QLatin1Char(',')))
            if (!part.trimmed().isEmpty())
                values.append(part.trimmed());
        QJsonObject props = document->value(QStringLiteral("properties")).toObject();
        if (values.isEmpty() && !props.value(name).toObject().contains(QStringLiteral("enum")))
            return;
        QJsonObject property = props.value(name).toObject();
        if (values.isEmpty())
            property.remove(QStringLiteral("enum"));
        else
            property.insert(QStringLiteral("enum"), values);
        props.insert(name, property);
        document->insert(QStringLiteral("properties"), props);
        writeDocument(*document);
    }
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
        m_edited = formFor(param);
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
        m_edited = m_selected ? formFor(m_selected) : PropertyData();
    }

    static inline const QString notAnObjectText = QStringLiteral("A schema is a JSON object. Nothing was saved.");

    // The tool's whole schema of this kind, as the "JSON" tab shows it: as written, with the
    // form's edits laid over it. Empty, with the reason in *error, when it cannot be made.
    QString schemaJsonText(QString *error) const
    {
        const std::optional<QJsonObject> schema = wholeSchema(error);
        return schema ? QString::fromUtf8(QJsonDocument(*schema).toJson(QJsonDocument::Indented)) : QString();
    }

    // The "JSON" tab's text as typed. A JSON object becomes the tool's schema of this kind,
    // kept as written, and the parameters of the tool's schemas of this kind are made to
    // match it (the text is the whole). Anything else changes nothing and gives the reason.
    std::optional<QString> applySchemaJson(const QString &text)
    {
        QJsonParseError parseError{};
        const QJsonDocument parsed = QJsonDocument::fromJson(text.toUtf8(), &parseError);
        if (parseError.error != QJsonParseError::NoError)
            return QStringLiteral("Not valid JSON: %1 at character %2. Nothing was saved.")
                .arg(parseError.errorString())
                .arg(parseError.offset);
        if (!parsed.isObject())
            return notAnObjectText;
        const QJsonObject object = parsed.object();
        const auto mustBe = [&](const char *key, bool ok, const char *what) -> std::optional<QString> {
            if (!object.contains(QLatin1String(key)) || ok)
                return std::nullopt;
            return QStringLiteral("\"%1\" must be %2. Nothing was saved.").arg(QLatin1String(key), QLatin1String(what));
        };
        bool namesOnly = object.value(QStringLiteral("required")).isArray();
        for (const QJsonValue &name : object.value(QStringLiteral("required")).toArray())
            namesOnly = namesOnly && name.isString();
        for (const auto &failure : {mustBe("type", object.value(QStringLiteral("type")).isString(), "a string"),
                                    mustBe("properties", object.value(QStringLiteral("properties")).isObject(), "an object"),
                                    mustBe("required", namesOnly, "an array of names")})
            if (failure)
                return failure;
        if (!m_schema->toolConfig())
            return QStringLiteral("The schema belongs to no tool. Nothing was saved.");
        writeDocument(object);
        matchRecords(JSONToolSchema::fromDocument(object));
        return std::nullopt;
    }

    // "Save changes Ctrl+S": the form into the parameter, the schema's type and required list,
    // then the controller's save of the whole context.
    void save()
    {
        writeForm();
        writeSchemaFields();
        m_controller->updateUnsaved(true);
        m_controller->saveTapped();
        m_controller->closeSchemaEditors();
    }

    // "Revert changes Ctrl+U": a schema this editor made goes by the child rule; an existing
    // one is reverted with the controller. The form then shows the tool's first schema.
    void revert()
    {
        ToolsConfig *tool = m_schema->toolConfig();
        // The written schema goes back too: the JSON tab and enum values change it.
        if (m_isNewSchema && tool && documentText(tool) != m_openedDocument)
            setDocumentText(tool, m_openedDocument);
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

    void writeSchemaFields()
    {
        if (m_schema->type().value_or(QString()) != m_schemaType)
            m_schema->setType(m_schemaType);
        if (m_schema->requiredParams().value_or(QString()) != m_requiredParams)
            m_schema->setRequiredParams(m_requiredParams);
    }

    // The form of a parameter, with the enum values the written schema gives it.
    PropertyData formFor(const Params *p) const
    {
        PropertyData form = formOf(p);
        const std::optional<QJsonObject> document = storedDocument();
        const QJsonArray values = document ? document->value(QStringLiteral("properties"))
                                                 .toObject()
                                                 .value(form.parameterName)
                                                 .toObject()
                                                 .value(QStringLiteral("enum"))
                                                 .toArray()
                                           : QJsonArray();
        QStringList texts;
        for (const QJsonValue &value : values)
            texts.append(value.isString() ? value.toString()
                                          : QString::fromUtf8(QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact)).mid(1).chopped(1));
        form.enumValues = texts.join(QStringLiteral(", "));
        return form;
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
        m_edited = m_selected ? formFor(m_selected) : PropertyData();
    }

    std::optional<QJsonObject> storedDocument() const
    {
        const ToolsConfig *tool = m_schema->toolConfig();
        return tool ? ConfigurationController::storedObject(documentText(tool)) : std::nullopt;
    }

    void writeDocument(const QJsonObject &document)
    {
        ToolsConfig *tool = m_schema->toolConfig();
        const QString text = ConfigurationController::compactText(document);
        if (!tool || documentText(tool) == text)
            return;
        setDocumentText(tool, text);
        m_controller->updateUnsaved(true);
    }

    std::optional<QJsonObject> wholeSchema(QString *error) const
    {
        const ToolsConfig *tool = m_schema->toolConfig();
        if (!tool) {
            if (error)
                *error = QStringLiteral("The schema belongs to no tool.");
            return std::nullopt;
        }
        const Result<JSONToolConfig> config = ConfigurationController::toolConfig(tool);
        if (!config) {
            if (error)
                *error = config.error().description;
            return std::nullopt;
        }
        return schemaOf(*config).authoredJson();
    }

    // The parameter records of the tool's schemas of this kind made to say what form says:
    // a parameter keeps its record (in whichever schema) where its name stays, and this
    // schema's other records are reused in order; new ones are made here, and the records
    // of names the text no longer has are deleted.
    void matchRecords(const JSONToolSchema &form)
    {
        StoreContext *context = m_controller->context();
        QList<std::pair<Schema *, Params *>> unused;
        QStringList mergedRequired;
        for (Schema *schema : sortedSchemas(m_schema->toolConfig())) {
            for (Params *param : ToolsQueryService::sortedProperties(schema))
                unused.append({schema, param});
            if (const QString names = schema->requiredParams().value_or(QString()); !names.isEmpty())
                mergedRequired = ConfigurationController::splitList(names);
        }
        // The required list is the last one given; it is written here only when it changes.
        const QStringList required = form.required.value_or(QStringList());
        if (required != mergedRequired) {
            for (Schema *schema : sortedSchemas(m_schema->toolConfig()))
                if (schema != m_schema && !schema->requiredParams().value_or(QString()).isEmpty())
                    schema->setRequiredParams(QString());
            m_requiredParams = required.join(QStringLiteral(", "));
        }
        m_schemaType = form.type;
        writeSchemaFields();
        const auto take = [&unused](auto matches) -> Params * {
            for (qsizetype i = 0; i < unused.size(); ++i)
                if (matches(unused.at(i)))
                    return unused.takeAt(i).second;
            return nullptr;
        };
        QMap<QString, Params *> records;
        for (auto it = form.properties.cbegin(); it != form.properties.cend(); ++it)
            if (Params *param = take([&](const auto &entry) { return entry.second->parameterName() == it.key(); }))
                records.insert(it.key(), param);
        for (auto it = form.properties.cbegin(); it != form.properties.cend(); ++it) {
            Params *param = records.value(it.key());
            if (!param)
                param = take([this](const auto &entry) { return entry.first == m_schema; });
            if (!param) {
                param = createParams();
                m_schema->addPropertiesObject(param);
            }
            const JSONToolSchemaProperty &p = it.value();
            const auto set = [&](std::optional<QString> (Params::*get)() const,
                                 void (Params::*put)(std::optional<QString>), const QString &value) {
                if ((param->*get)() != value)
                    (param->*put)(value);
            };
            set(&Params::parameterName, &Params::setParameterName, it.key());
            set(&Params::parameterType, &Params::setParameterType, p.type);
            set(&Params::parameterDescription, &Params::setParameterDescription, p.schemaDescription);
            set(&Params::defaultValue, &Params::setDefaultValue, p.defaultValue.value_or(QString()));
            set(&Params::itemType, &Params::setItemType, p.items ? p.items->type : QStringLiteral("null"));
            set(&Params::items, &Params::setItems, p.items ? p.items->content.value_or(QString()) : QString());
        }
        for (const auto &[schema, param] : unused) {
            schema->removePropertiesObject(param);
            context->deleteObject(param);
        }
        m_controller->updateUnsaved(true);
        const QList<Params *> now = properties();
        if (!now.contains(m_selected))
            m_selected = now.isEmpty() ? nullptr : now.first();
        if (!now.contains(m_lastSelection))
            m_lastSelection = nullptr;
        m_edited = m_selected ? formFor(m_selected) : PropertyData();
    }

    template <class Fn>
    void change(Fn &&apply)
    {
        apply();
        writeForm();
    }

    Params *createParams();
    static QList<Schema *> sortedSchemas(const ToolsConfig *tool);
    // The tool's written schema of this kind, and where the export puts it.
    static std::optional<QString> documentText(const ToolsConfig *tool);
    static void setDocumentText(ToolsConfig *tool, const std::optional<QString> &text);
    static const JSONToolSchema &schemaOf(const JSONToolConfig &config);

    ToolsConfigController *m_controller;
    Schema *m_schema;
    bool m_isNewSchema;
    std::optional<QString> m_openedDocument;
    QString m_schemaType = QStringLiteral("object");
    QString m_requiredParams;
    Params *m_selected = nullptr;
    Params *m_lastSelection = nullptr;
    PropertyData m_edited;
};
