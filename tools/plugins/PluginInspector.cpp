#include "tools/plugins/PluginInspector.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <atomic>

namespace {
std::atomic<PluginInspector *> g_inspector{nullptr};
}

PluginInspector *PluginInspector::shared()
{
    return g_inspector.load();
}

void PluginInspector::setShared(PluginInspector *inspector)
{
    g_inspector.store(inspector);
}

QByteArray PluginInspector::toJson(const ToolDescriptor &d)
{
    const QJsonObject object{{"abiVersion", d.abiVersion},
                             {"toolVersion", d.toolVersion},
                             {"name", d.name},
                             {"version", d.version},
                             {"author", d.author},
                             {"toolDescription", d.toolDescription},
                             {"toolEntryPoint", d.toolEntryPoint},
                             {"toolIdentifier", d.toolIdentifier},
                             {"capabilitiesJSON", d.capabilitiesJSON},
                             {"fullPathName", d.fullPathName},
                             {"pluginType", d.pluginType}};
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

std::optional<ToolDescriptor> PluginInspector::fromJson(const QByteArray &json)
{
    const QJsonDocument document = QJsonDocument::fromJson(json);
    if (!document.isObject())
        return std::nullopt;
    const QJsonObject o = document.object();
    if (!o.value(QStringLiteral("name")).isString())
        return std::nullopt;
    ToolDescriptor d;
    d.abiVersion = o.value(QStringLiteral("abiVersion")).toInteger();
    d.toolVersion = o.value(QStringLiteral("toolVersion")).toInteger();
    d.name = o.value(QStringLiteral("name")).toString();
    d.version = o.value(QStringLiteral("version")).toString();
    d.author = o.value(QStringLiteral("author")).toString();
    d.toolDescription = o.value(QStringLiteral("toolDescription")).toString();
    d.toolEntryPoint = o.value(QStringLiteral("toolEntryPoint")).toString();
    d.toolIdentifier = o.value(QStringLiteral("toolIdentifier")).toString();
    d.capabilitiesJSON = o.value(QStringLiteral("capabilitiesJSON")).toString();
    d.fullPathName = o.value(QStringLiteral("fullPathName")).toString();
    d.pluginType = o.value(QStringLiteral("pluginType")).toInt();
    return d;
}
