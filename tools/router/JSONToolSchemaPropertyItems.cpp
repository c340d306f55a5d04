#include "tools/router/JSONToolSchemaPropertyItems.h"

#include "tools/router/JSONFieldReader.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonParseError>

namespace {

const QString kType = QStringLiteral("type");
const QString kContent = QStringLiteral("content");
const QString kProperties = QStringLiteral("properties");

// The content text as a JSON value; nothing when it is blank or no valid JSON (silently:
// the editor lets people type anything there).
std::optional<QJsonValue> parsedContent(const std::optional<QString> &content)
{
    if (!content || content->trimmed().isEmpty())
        return std::nullopt;
    // Wrapped in an array so that a top-level scalar parses too.
    QJsonParseError error;
    const QJsonDocument document =
        QJsonDocument::fromJson(QByteArray("[") + content->toUtf8() + QByteArray("]"), &error);
    if (error.error != QJsonParseError::NoError || !document.isArray() || document.array().size() != 1)
        return std::nullopt;
    return document.array().first();
}

QString compact(const QJsonValue &value)
{
    if (value.isArray())
        return QString::fromUtf8(QJsonDocument(value.toArray()).toJson(QJsonDocument::Compact));
    return QString::fromUtf8(QJsonDocument(value.toObject()).toJson(QJsonDocument::Compact));
}

}  // namespace

QJsonObject JSONToolSchemaPropertyItems::toJson() const
{
    QJsonObject object{{kType, type}};
    const std::optional<QJsonValue> parsed = parsedContent(content);
    if (type == QLatin1String("array")) {
        if (parsed && parsed->isArray())
            object.insert(kContent, *parsed);
    } else if (type == QLatin1String("object")) {
        object.insert(kProperties, parsed && parsed->isObject() ? parsed->toObject() : QJsonObject());
    }
    return object;
}

QVariantMap JSONToolSchemaPropertyItems::toVariant() const
{
    QVariantMap map{{kType, type}};
    if (content)
        map.insert(kContent, *content);
    return map;
}

std::optional<JSONToolSchemaPropertyItems> JSONToolSchemaPropertyItems::fromJson(const QJsonObject &object,
                                                                                 JSONFieldReader &parent,
                                                                                 const QString &key)
{
    JSONFieldReader reader(object, parent.pathOf(key));
    JSONToolSchemaPropertyItems items;
    items.type = reader.string(kType, true).value_or(QString());
    if (reader.ok()) {
        if (items.type == QLatin1String("array")) {
            if (const auto array = reader.array(kContent, false))
                items.content = compact(*array);
        } else if (items.type == QLatin1String("object")) {
            if (const auto properties = reader.object(kProperties, false); properties && !properties->isEmpty())
                items.content = compact(*properties);
        } else {
            items.content = reader.string(kContent, false);
        }
    }
    parent.adopt(reader);
    if (!reader.ok())
        return std::nullopt;
    return items;
}
