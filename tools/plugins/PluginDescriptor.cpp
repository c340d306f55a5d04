#include "tools/plugins/PluginDescriptor.h"

#include "tools/plugins/PluginJson.h"

#include <QJsonObject>

PluginDescriptor PluginDescriptor::fromToolDescriptor(const ToolDescriptor &descriptor)
{
    PluginDescriptor copy;
    copy.name = descriptor.name;
    copy.version = descriptor.version;
    copy.author = descriptor.author;
    copy.toolDescription = descriptor.toolDescription;
    copy.toolEntryPoint = descriptor.toolEntryPoint;
    copy.toolIdentifier = descriptor.toolIdentifier;
    copy.abiVersion = descriptor.abiVersion;
    copy.toolVersion = descriptor.toolVersion;
    copy.capabilitiesJSON = descriptor.capabilitiesJSON;
    return copy;
}

QByteArray PluginDescriptor::toJson() const
{
    using PluginJson::scalar;
    QByteArray out("{\"name\":" + scalar(name));
    out += ",\"version\":" + scalar(version);
    out += ",\"author\":" + scalar(author);
    out += ",\"toolDescription\":" + scalar(toolDescription);
    out += ",\"toolEntryPoint\":" + scalar(toolEntryPoint);
    out += ",\"toolIdentifier\":" + scalar(toolIdentifier);
    out += ",\"abiVersion\":" + scalar(double(abiVersion));
    out += ",\"toolVersion\":" + scalar(double(toolVersion));
    out += ",\"capabilitiesJSON\":" + scalar(capabilitiesJSON);
    out += '}';
    return out;
}

std::optional<PluginDescriptor> PluginDescriptor::fromJson(const QJsonValue &value)
{
    if (!value.isObject())
        return std::nullopt;
    const QJsonObject object = value.toObject();
    PluginDescriptor d;
    using PluginJson::readInteger;
    using PluginJson::readString;
    if (!readString(object, "name", d.name) || !readString(object, "version", d.version) ||
        !readString(object, "author", d.author) || !readString(object, "toolDescription", d.toolDescription) ||
        !readString(object, "toolEntryPoint", d.toolEntryPoint) ||
        !readString(object, "toolIdentifier", d.toolIdentifier) || !readInteger(object, "abiVersion", d.abiVersion) ||
        !readInteger(object, "toolVersion", d.toolVersion) ||
        !readString(object, "capabilitiesJSON", d.capabilitiesJSON))
        return std::nullopt;
    return d;
}
