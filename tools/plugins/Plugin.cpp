#include "tools/plugins/Plugin.h"

#include "tools/plugins/PluginJson.h"

#include <QJsonParseError>

QString Plugin::displayName() const
{
    return toolDescriptor ? toolDescriptor->name : QStringLiteral("Unknown");
}

QByteArray Plugin::toJson() const
{
    using PluginJson::scalar;
    QByteArray out("{\"id\":" + scalar(id.toString(QUuid::WithoutBraces).toUpper()));
    out += ",\"path\":" + scalar(path);
    out += ",\"isEnabled\":" + scalar(isEnabled);
    if (toolDescriptor)
        out += ",\"toolDescriptor\":" + toolDescriptor->toJson();
    if (bookmarkData)
        out += ",\"bookmarkData\":" + scalar(QString::fromLatin1(bookmarkData->toBase64()));
    out += '}';
    return out;
}

std::optional<Plugin> Plugin::fromJson(const QJsonValue &value)
{
    if (!value.isObject())
        return std::nullopt;
    const QJsonObject object = value.toObject();
    Plugin plugin;
    QString id;
    if (!PluginJson::readString(object, "id", id) || !PluginJson::readString(object, "path", plugin.path) ||
        !PluginJson::readBool(object, "isEnabled", plugin.isEnabled))
        return std::nullopt;
    plugin.id = QUuid::fromString(id);
    if (plugin.id.isNull())
        return std::nullopt;
    if (object.contains(QLatin1String("toolDescriptor")) && !object.value(QLatin1String("toolDescriptor")).isNull()) {
        plugin.toolDescriptor = PluginDescriptor::fromJson(object.value(QLatin1String("toolDescriptor")));
        if (!plugin.toolDescriptor)
            return std::nullopt;
    }
    if (object.contains(QLatin1String("bookmarkData")) && !object.value(QLatin1String("bookmarkData")).isNull()) {
        QString text;
        if (!PluginJson::readString(object, "bookmarkData", text))
            return std::nullopt;
        const QByteArray::FromBase64Result bytes =
            QByteArray::fromBase64Encoding(text.toLatin1(), QByteArray::AbortOnBase64DecodingErrors);
        if (!bytes)
            return std::nullopt;
        plugin.bookmarkData = *bytes;
    }
    return plugin;
}

QByteArray Plugin::encodeList(const QList<Plugin> &list)
{
    QByteArray out("[");
    for (qsizetype i = 0; i < list.size(); ++i) {
        if (i > 0)
            out += ',';
        out += list.at(i).toJson();
    }
    out += ']';
    return out;
}

std::optional<QList<Plugin>> Plugin::decodeList(const QByteArray &data)
{
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(data, &error);
    if (error.error != QJsonParseError::NoError || !document.isArray())
        return std::nullopt;
    QList<Plugin> list;
    for (const QJsonValue &element : document.array()) {
        std::optional<Plugin> plugin = Plugin::fromJson(element);
        if (!plugin)
            return std::nullopt;
        list.append(std::move(*plugin));
    }
    return list;
}
