#pragma once

#include <QDateTime>
#include <QJsonObject>
#include <QString>
#include <QUuid>
#include <optional>

// One tool call shown in the transcript. A call has no id on the wire: while it has no name
// yet, prepareIndex is "prepared:" and the index of its message.
struct MCPToolCall {
    QUuid id = QUuid::createUuid();
    QString tool;
    QString serverLabel;
    QJsonObject arguments;
    std::optional<QString> output;
    std::optional<QString> error;
    QDateTime timestamp = QDateTime::currentDateTimeUtc();
    bool isCompleted = false;
    QString prepareIndex;

    // The arguments as people read them: key: value pairs in key order, in brackets.
    QString argumentsText() const;
    // One line for the transcript search: tool, server, arguments, output and error.
    QString searchLine() const;
};
