#include "chat/integrations/MCPIntegration.h"

#include <QJsonArray>

QString MCPIntegration::rawValue(Kind kind)
{
    return kind == Kind::plugin ? QStringLiteral("plugin") : QStringLiteral("ephemeral");
}

QString MCPIntegration::kindLabel(Kind kind)
{
    return kind == Kind::plugin ? QStringLiteral("Internal Tools") : QStringLiteral("Remote (URL)");
}

void MCPIntegration::setToolEnabled(const QString &name, bool value)
{
    for (ToolIntegration &tool : integratedTools)
        if (tool.name() == name)
            tool.isEnabled = value;
}

void MCPIntegration::disableAllTools()
{
    for (ToolIntegration &tool : integratedTools)
        tool.isEnabled = false;
}

void MCPIntegration::setToolsEnabled(const QStringList &names, bool value)
{
    for (ToolIntegration &tool : integratedTools)
        if (names.contains(tool.name()))
            tool.isEnabled = value;
}

QList<QJsonObject> MCPIntegration::enabledTools() const
{
    QList<QJsonObject> configs;
    for (const ToolIntegration &tool : integratedTools)
        if (tool.isEnabled)
            configs.append(tool.config);
    return configs;
}

std::optional<QJsonObject> MCPIntegration::toDictionary() const
{
    const QString trimmedLabel = label.trimmed();
    const QString trimmedURL = url.trimmed();
    if (kind != Kind::ephemeral || !isEnabled || trimmedLabel.isEmpty() || trimmedURL.isEmpty())
        return std::nullopt;
    QJsonObject headerObject;
    for (auto it = headers.begin(); it != headers.end(); ++it)
        headerObject.insert(it.key(), it.value());
    if (!remoteToken.trimmed().isEmpty())
        headerObject.insert(QStringLiteral("Authorization"), QStringLiteral("Bearer ") + remoteToken.trimmed());
    QJsonObject object{{"type", "ephemeral_mcp"}, {"server_label", trimmedLabel}, {"server_url", trimmedURL}};
    if (!headerObject.isEmpty())
        object.insert("headers", headerObject);
    // An explicit tool list limits the remote server; with none, it offers all its tools.
    QJsonArray allowed;
    for (const QJsonObject &config : enabledTools())
        allowed.append(config.value("name"));
    if (!allowed.isEmpty())
        object.insert("allowed_tools", allowed);
    return object;
}

QJsonObject MCPIntegration::toJson() const
{
    QJsonObject headerObject;
    for (auto it = headers.begin(); it != headers.end(); ++it)
        headerObject.insert(it.key(), it.value());
    QJsonArray tools;
    for (const ToolIntegration &tool : integratedTools)
        tools.append(QJsonObject{{"config", tool.config}, {"isEnabled", tool.isEnabled}});
    return QJsonObject{{"id", id.toString(QUuid::WithoutBraces).toUpper()},
                       {"label", label},
                       {"url", url},
                       {"remoteToken", remoteToken},
                       {"headers", headerObject},
                       {"integratedTools", tools},
                       {"kind", rawValue(kind)},
                       {"isEnabled", isEnabled}};
}

MCPIntegration MCPIntegration::fromJson(const QJsonObject &object)
{
    MCPIntegration integration;
    const QUuid id = QUuid::fromString(object.value("id").toString());
    if (!id.isNull())
        integration.id = id;
    integration.label = object.value("label").toString();
    integration.url = object.value("url").toString();
    integration.remoteToken = object.value("remoteToken").toString();
    const QJsonObject headerObject = object.value("headers").toObject();
    for (auto it = headerObject.begin(); it != headerObject.end(); ++it)
        integration.headers.insert(it.key(), it.value().toString());
    for (const QJsonValue &value : object.value("integratedTools").toArray())
        integration.integratedTools.append(
            {value.toObject().value("config").toObject(), value.toObject().value("isEnabled").toBool()});
    integration.kind = object.value("kind").toString() == QLatin1String("plugin") ? Kind::plugin : Kind::ephemeral;
    integration.isEnabled = object.value("isEnabled").toBool();
    return integration;
}
