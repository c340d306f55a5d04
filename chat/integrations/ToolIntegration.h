#pragma once

#include <QJsonObject>
#include <QString>

// One tool of the local server with the user's choice. Its identity is the config's "name".
struct ToolIntegration {
    QJsonObject config; // the tool's JSON config
    bool isEnabled = false;

    QString name() const { return config.value(QStringLiteral("name")).toString(); }
    bool operator==(const ToolIntegration &other) const
    {
        return name() == other.name() && isEnabled == other.isEnabled;
    }
};
