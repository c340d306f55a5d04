#pragma once

#include "chat/integrations/ToolIntegration.h"

#include <QJsonObject>
#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>
#include <QUuid>
#include <optional>

// One MCP server the chat may offer LM Studio: a remote one by URL ("ephemeral") or the
// application's own ("plugin") with a choice per tool. A value; the manager stores the list.
struct MCPIntegration {
    enum class Kind { ephemeral, plugin };

    QUuid id = QUuid::createUuid();
    QString label;
    QString url;
    QString remoteToken;
    QMap<QString, QString> headers;
    QList<ToolIntegration> integratedTools;
    Kind kind = Kind::ephemeral;
    bool isEnabled = false;

    static QString rawValue(Kind kind);
    // "Remote (URL)" or "Internal Tools".
    static QString kindLabel(Kind kind);

    void setToolEnabled(const QString &name, bool value);
    void disableAllTools();
    void setToolsEnabled(const QStringList &names, bool value);
    QList<QJsonObject> enabledTools() const;

    // The request object of an enabled remote integration with a label and a URL; else nothing.
    std::optional<QJsonObject> toDictionary() const;

    // The stored form: all eight keys; every key optional on reading.
    QJsonObject toJson() const;
    static MCPIntegration fromJson(const QJsonObject &object);

    bool operator==(const MCPIntegration &) const = default;
};
