#include "tools/router/JSONToolSchema.h"

#include "tools/router/JSONFieldReader.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QSet>

namespace {
const QString kType = QStringLiteral("type");
const QString kProperties = QStringLiteral("properties");
const QString kRequired = QStringLiteral("required");
}  // namespace

namespace {

const QSet<QString> plainSchemaKeys = {QStringLiteral("type"), QStringLiteral("properties"), QStringLiteral("required")};
const QSet<QString> plainPropertyKeys = {QStringLiteral("type"), QStringLiteral("description"),
                                         QStringLiteral("defaultValue"), QStringLiteral("name"), QStringLiteral("items")};
const QSet<QString> plainItemsKeys = {QStringLiteral("type"), QStringLiteral("content"), QStringLiteral("properties")};

bool onlyKeys(const QJsonObject &object, const QSet<QString> &keys)
{
    for (auto it = object.begin(); it != object.end(); ++it)
        if (!keys.contains(it.key()))
            return false;
    return true;
}

// A property of a written schema as the editor shows it: what it cannot show is left out.
JSONToolSchemaProperty editorProperty(const QJsonValue &value)
{
    JSONToolSchemaProperty property;
    const QJsonObject object = value.toObject();
    property.type = object.value(QStringLiteral("type")).toString();
    property.schemaDescription = object.value(QStringLiteral("description")).toString();
    const QJsonValue defaultValue = object.value(QStringLiteral("default"));
    if (defaultValue.isString())
        property.defaultValue = defaultValue.toString();
    const QJsonValue items = object.value(QStringLiteral("items"));
    if (items.isObject() && items.toObject().value(QStringLiteral("type")).isString())
        property.items = JSONToolSchemaPropertyItems{items.toObject().value(QStringLiteral("type")).toString(), std::nullopt};
    return property;
}

// The fields of a written schema as the editor shows them.
JSONToolSchema editorForm(const QJsonObject &document)
{
    JSONToolSchema schema;
    schema.type = document.value(QStringLiteral("type")).toString(QStringLiteral("object"));
    const QJsonObject properties = document.value(QStringLiteral("properties")).toObject();
    for (auto it = properties.begin(); it != properties.end(); ++it)
        schema.properties.insert(it.key(), editorProperty(it.value()));
    if (document.value(QStringLiteral("required")).isArray()) {
        QStringList names;
        for (const QJsonValue &name : document.value(QStringLiteral("required")).toArray())
            names.append(name.toString());
        schema.required = names;
    }
    schema.document = document;
    return schema;
}

// Whether the editor shows the two alike: the kept record fills in a name, an empty default
// and empty item content that the document does not spell out.
bool shownAlike(const JSONToolSchemaProperty &a, const JSONToolSchemaProperty &b)
{
    const auto itemType = [](const JSONToolSchemaProperty &p) { return p.items ? p.items->type : QString(); };
    return a.type == b.type && a.schemaDescription == b.schemaDescription &&
           a.defaultValue.value_or(QString()) == b.defaultValue.value_or(QString()) && itemType(a) == itemType(b);
}

void setOrRemove(QJsonObject &object, const QString &key, const QString &value)
{
    if (value.isEmpty())
        object.remove(key);
    else
        object.insert(key, value);
}

}  // namespace

bool JSONToolSchema::isPlainForm(const QJsonObject &object)
{
    if (!onlyKeys(object, plainSchemaKeys))
        return false;
    const QJsonObject properties = object.value(kProperties).toObject();
    for (auto it = properties.begin(); it != properties.end(); ++it) {
        const QJsonObject property = it.value().toObject();
        if (!it.value().isObject() || !onlyKeys(property, plainPropertyKeys))
            return false;
        if (property.contains(QStringLiteral("items")) && !onlyKeys(property.value(QStringLiteral("items")).toObject(), plainItemsKeys))
            return false;
    }
    return true;
}

QJsonObject JSONToolSchema::writtenDocument() const
{
    if (!document)
        return toJson();
    QJsonObject written = *document;
    const JSONToolSchema asWritten = editorForm(*document);
    if (type != asWritten.type)
        setOrRemove(written, kType, type);
    if (required.value_or(QStringList()) != asWritten.required.value_or(QStringList())) {
        if (required && !required->isEmpty())
            written.insert(kRequired, QJsonArray::fromStringList(*required));
        else
            written.remove(kRequired);
    }
    bool propertiesEdited = properties.keys() != asWritten.properties.keys();
    for (auto it = properties.cbegin(); it != properties.cend() && !propertiesEdited; ++it)
        propertiesEdited = !shownAlike(asWritten.properties.value(it.key()), it.value());
    if (propertiesEdited) {
        QJsonObject props = written.value(kProperties).toObject();
        for (const QString &name : asWritten.properties.keys())
            if (!properties.contains(name))
                props.remove(name);
        for (auto it = properties.cbegin(); it != properties.cend(); ++it) {
            if (asWritten.properties.contains(it.key()) && shownAlike(asWritten.properties.value(it.key()), it.value()))
                continue;
            QJsonObject property = props.value(it.key()).toObject();
            setOrRemove(property, QStringLiteral("type"), it.value().type);
            setOrRemove(property, QStringLiteral("description"), it.value().schemaDescription);
            if (it.value().defaultValue && !it.value().defaultValue->isEmpty())
                property.insert(QStringLiteral("default"), *it.value().defaultValue);
            else if (property.value(QStringLiteral("default")).isString())
                property.remove(QStringLiteral("default"));
            if (it.value().items) {
                QJsonObject items = property.value(QStringLiteral("items")).toObject();
                setOrRemove(items, QStringLiteral("type"), it.value().items->type);
                property.insert(QStringLiteral("items"), items);
            }
            props.insert(it.key(), property);
        }
        written.insert(kProperties, props);
    }
    return written;
}

JSONToolSchema JSONToolSchema::fromDocument(const QJsonObject &document)
{
    return editorForm(document);
}

QJsonObject JSONToolSchema::authoredJson() const
{
    if (document)
        return writtenDocument();
    QJsonObject props;
    for (auto it = properties.cbegin(); it != properties.cend(); ++it) {
        const JSONToolSchemaProperty &p = it.value();
        QJsonObject property;
        setOrRemove(property, kType, p.type);
        setOrRemove(property, QStringLiteral("description"), p.schemaDescription);
        if (p.defaultValue && !p.defaultValue->isEmpty())
            property.insert(QStringLiteral("default"), *p.defaultValue);
        if (p.items) {
            QJsonObject items{{kType, p.items->type}};
            const QJsonDocument content = QJsonDocument::fromJson(p.items->content.value_or(QString()).toUtf8());
            if (p.items->type == QLatin1String("object") && content.isObject() && !content.object().isEmpty())
                items.insert(kProperties, content.object());
            property.insert(QStringLiteral("items"), items);
        }
        props.insert(it.key(), property);
    }
    QJsonObject object{{kType, type}, {kProperties, props}};
    if (required && !required->isEmpty())
        object.insert(kRequired, QJsonArray::fromStringList(*required));
    return object;
}

QJsonObject JSONToolSchema::toJson() const
{
    if (document)
        return writtenDocument();
    QJsonObject props;
    for (auto it = properties.cbegin(); it != properties.cend(); ++it)
        props.insert(it.key(), it.value().toJson());
    QJsonObject object{{kType, type}, {kProperties, props}};
    if (required && !required->isEmpty())
        object.insert(kRequired, QJsonArray::fromStringList(*required));
    return object;
}

QVariantMap JSONToolSchema::toVariant() const
{
    QVariantMap props;
    for (auto it = properties.cbegin(); it != properties.cend(); ++it)
        props.insert(it.key(), it.value().toVariant());
    QVariantMap map{{kType, type}, {kProperties, props}};
    if (required && !required->isEmpty())
        map.insert(kRequired, *required);
    // The engine sends a written schema as it stands and checks calls against it.
    if (document)
        map.insert(QStringLiteral("document"),
                   QString::fromUtf8(QJsonDocument(writtenDocument()).toJson(QJsonDocument::Compact)));
    return map;
}

std::optional<JSONToolSchema> JSONToolSchema::fromJson(const QJsonObject &object, JSONFieldReader &parent,
                                                       const QString &key)
{
    if (!isPlainForm(object)) {
        // A schema as its author wrote it: kept whole. Only what would make it no schema
        // at all is refused.
        JSONFieldReader reader(object, parent.pathOf(key));
        reader.string(kType, false);
        reader.object(kProperties, false);
        reader.stringArray(kRequired, false);
        parent.adopt(reader);
        if (!reader.ok())
            return std::nullopt;
        return editorForm(object);
    }
    JSONFieldReader reader(object, parent.pathOf(key));
    JSONToolSchema schema;
    schema.type = reader.string(kType, true).value_or(QString());
    if (const auto props = reader.object(kProperties, true)) {
        JSONFieldReader propsReader(*props, reader.pathOf(kProperties));
        for (auto it = props->constBegin(); it != props->constEnd() && propsReader.ok(); ++it) {
            if (!it.value().isObject()) {
                propsReader.fail(QStringLiteral("The value of '%1' is not an object.").arg(propsReader.pathOf(it.key())));
                break;
            }
            if (auto property = JSONToolSchemaProperty::fromJson(it.value().toObject(), propsReader, it.key()))
                schema.properties.insert(it.key(), *property);
        }
        reader.adopt(propsReader);
    }
    schema.required = reader.stringArray(kRequired, false);
    parent.adopt(reader);
    if (!reader.ok())
        return std::nullopt;
    return schema;
}
