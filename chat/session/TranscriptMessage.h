#pragma once

#include "chat/service/AIChatStats.h"
#include "chat/session/MCPToolCall.h"

#include <QDateTime>
#include <QList>
#include <QString>
#include <QUuid>
#include <optional>

// One bubble of the chat. An answer grows while isComplete is false; its role turns to toolCall
// when a tool call starts in it. Reasoning lives in its own field; no message is ever made
// with the role reasoning, which exists for the transcript file.
struct TranscriptMessage {
    enum class Role { user, assistant, reasoning, toolCall };

    QUuid id = QUuid::createUuid();
    Role role = Role::user;
    QString content;
    std::optional<QString> reasoning;
    std::optional<AIChatStats> stats;
    QDateTime timestamp = QDateTime::currentDateTimeUtc();
    bool isComplete = false;
    QList<MCPToolCall> toolCalls;

    static QString rawValue(Role role);
    // Nothing for a raw value no role has.
    static std::optional<Role> roleFromRawValue(const QString &raw);
    // Content, reasoning and a line over the tool calls: what the transcript search looks in.
    QString searchText() const;
};
