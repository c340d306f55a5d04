#include "chat/integrations/MCPIntegrationManager.h"

#include "diagnostics/LogController.h"

#include <QCoreApplication>
#include <QHash>
#include <QJsonDocument>
#include <QSet>
#include <QUrl>
#include <QtDebug>

namespace {

// What changes the running server's tools must be visible where the user looks: the app's log.
void note(const QString &line)
{
    qInfo().noquote() << line;
    LogController::shared()->log(line, -1, MCPLogMessageType::Info);
}

} // namespace

MCPIntegrationManager::MCPIntegrationManager(QSettings &defaults, MCPIntegrationHost &host, QObject *parent)
    : QObject(parent), m_defaults(defaults), m_host(host)
{
    load();
}

void MCPIntegrationManager::load()
{
    const QByteArray data = m_defaults.value(QLatin1String(persistKey)).toByteArray();
    if (data.isEmpty())
        return;
    const QJsonDocument document = QJsonDocument::fromJson(data);
    if (!document.isArray())
        return; // unreadable: treated as none, without a word
    for (const QJsonValue &value : document.array()) {
        if (!value.isObject()) {
            m_servers.clear();
            return;
        }
        m_servers.append(MCPIntegration::fromJson(value.toObject()));
    }
    for (MCPIntegration &server : m_servers)
        syncTools(server);
}

void MCPIntegrationManager::add(const MCPIntegration &server)
{
    m_servers.append(server);
    save();
}

void MCPIntegrationManager::update(const MCPIntegration &server)
{
    for (MCPIntegration &existing : m_servers)
        if (existing.id == server.id) {
            existing = server;
            save();
            return;
        }
}

void MCPIntegrationManager::remove(const QUuid &id)
{
    m_servers.removeIf([&](const MCPIntegration &server) { return server.id == id; });
    save();
}

void MCPIntegrationManager::toggleEnabled(const QUuid &id)
{
    for (MCPIntegration &server : m_servers)
        if (server.id == id)
            server.isEnabled = !server.isEnabled;
    save();
}

void MCPIntegrationManager::save()
{
    QJsonArray array;
    for (const MCPIntegration &server : m_servers)
        array.append(server.toJson());
    m_defaults.setValue(QLatin1String(persistKey), QJsonDocument(array).toJson(QJsonDocument::Compact));
    applyToLiveServer();
    emit changed();
}

void MCPIntegrationManager::syncTools(MCPIntegration &server)
{
    const std::optional<QList<QJsonObject>> configs = m_host.toolConfigs();
    if (!configs || configs->isEmpty())
        return; // nothing to go by: keep the choice as it stands
    QList<QJsonObject> built;
    QHash<QString, QJsonObject> builtByName;
    for (const QJsonObject &config : *configs) {
        const QString name = config.value("name").toString();
        if (name.trimmed().isEmpty())
            continue;
        built.append(config);
        builtByName.insert(name, config);
    }
    if (built.isEmpty())
        return;
    QSet<QString> known;
    for (const ToolIntegration &tool : server.integratedTools)
        known.insert(tool.name());
    QList<ToolIntegration> tools;
    for (const QJsonObject &config : built)
        if (!known.contains(config.value("name").toString()))
            tools.append({config, false});
    // A known tool keeps its switch but takes the store's configuration as it is now: it is
    // what the server registers, and the user may have edited the tool since.
    for (const ToolIntegration &tool : server.integratedTools)
        if (builtByName.contains(tool.name()))
            tools.append({builtByName.value(tool.name()), tool.isEnabled});
    server.integratedTools = tools;
}

QString MCPIntegrationManager::localServerLabel() const
{
    const QString label = m_host.serverLabel().trimmed();
    return label.isEmpty() ? QCoreApplication::applicationName() : label;
}

std::optional<QString> MCPIntegrationManager::localServerURL() const
{
    const int port = m_host.serverPort();
    if (port < 1)
        return std::nullopt;
    return QStringLiteral("http://127.0.0.1:%1").arg(port);
}

bool MCPIntegrationManager::pointsAt(const QString &url, const QString &localURL)
{
    const QUrl a(url.trimmed(), QUrl::StrictMode);
    const QUrl b(localURL, QUrl::StrictMode);
    if (!a.isValid() || !b.isValid() || a.host().isEmpty())
        return false;
    if (a.port(80) != b.port(80))
        return false;
    static const QSet<QString> loopback{"localhost", "127.0.0.1", "::1", "[::1]"};
    const QString hostA = a.host().toLower();
    const QString hostB = b.host().toLower();
    if (loopback.contains(hostA) && loopback.contains(hostB))
        return true;
    return hostA == hostB;
}

QJsonArray MCPIntegrationManager::integrationPayloads() const
{
    const std::optional<QString> localURL = localServerURL();
    QJsonArray payloads;
    for (const MCPIntegration &server : m_servers) {
        const std::optional<QJsonObject> object = server.toDictionary();
        if (object && !(localURL && pointsAt(server.url, *localURL)))
            payloads.append(*object);
    }
    // The local server's own payload; its integration's switch is not looked at here, the
    // registration honours it.
    for (const MCPIntegration &server : m_servers) {
        if (server.kind != MCPIntegration::Kind::plugin)
            continue;
        const QString label = localServerLabel();
        if (!server.enabledTools().isEmpty() && localURL && !label.isEmpty()) {
            QJsonObject local{{"type", "ephemeral_mcp"}, {"server_label", label}, {"server_url", *localURL}};
            if (const QString token = m_host.serverToken(); !token.isEmpty())
                local.insert("headers", QJsonObject{{"Authorization", QStringLiteral("Bearer ") + token}});
            payloads.insert(0, local);
        }
        break;
    }
    return payloads;
}

void MCPIntegrationManager::applyToLiveServer()
{
    if (m_servers.isEmpty())
        return;
    note(QStringLiteral("[MCP-IM] Remove tools from life server"));
    m_host.resetToolRegistry();
    for (MCPIntegration &server : m_servers) {
        if (server.kind != MCPIntegration::Kind::plugin) {
            note(QStringLiteral("[MCP-IM] Skip remote MCP server: ") + server.label);
            continue;
        }
        if (!server.isEnabled) {
            note(QStringLiteral("[MCP-IM] Skip disabled MCP server: ") + server.label);
            continue;
        }
        syncTools(server);
        for (const QJsonObject &config : server.enabledTools()) {
            note(QStringLiteral("[MCP-IM] Register enabled tool: ") + config.value("name").toString());
            m_host.registerTool(config);
        }
    }
}

QString MCPIntegrationManager::limitNotice() const
{
    if (m_servers.isEmpty())
        return {}; // nothing is applied to the server
    const std::optional<QList<QJsonObject>> configs = m_host.toolConfigs();
    if (!configs)
        return {};
    QSet<QString> stored;
    for (const QJsonObject &config : *configs)
        if (!config.value("name").toString().trimmed().isEmpty())
            stored.insert(config.value("name").toString());
    QSet<QString> served;
    const MCPIntegration *limiting = nullptr;
    for (const MCPIntegration &server : m_servers) {
        if (server.kind != MCPIntegration::Kind::plugin)
            continue;
        if (!limiting)
            limiting = &server;
        if (!server.isEnabled)
            continue;
        for (const QJsonObject &config : server.enabledTools())
            if (stored.contains(config.value("name").toString()))
                served.insert(config.value("name").toString());
    }
    if (served.size() >= stored.size())
        return {};
    if (!limiting)
        limiting = &m_servers.first();
    const QString label = limiting->label.trimmed().isEmpty() ? MCPIntegration::kindLabel(limiting->kind) : limiting->label;
    return QStringLiteral("Serving %1 of %2 tools: limited by the AI Chat integration '%3'")
        .arg(served.size())
        .arg(stored.size())
        .arg(label);
}

void MCPIntegrationManager::serveAllTools()
{
    for (MCPIntegration &server : m_servers) {
        if (server.kind != MCPIntegration::Kind::plugin)
            continue;
        syncTools(server);
        for (ToolIntegration &tool : server.integratedTools)
            tool.isEnabled = true;
        server.isEnabled = true;
    }
    note(QStringLiteral("[MCP-IM] Serve all tools again"));
    save();
}
