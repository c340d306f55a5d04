#pragma once

#include <QString>

// Who the server says it is in the answer to "initialize".
struct MCPServerInfo {
    QString name;
    QString title;
    QString version;

    void setName(const QString &value) { name = value; }
    void setTitle(const QString &value) { title = value; }
    void setVersion(const QString &value) { version = value; }
};
