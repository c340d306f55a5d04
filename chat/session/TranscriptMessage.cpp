#include "chat/session/TranscriptMessage.h"

#include <QStringList>

QString TranscriptMessage::rawValue(Role role)
{
    switch (role) {
    case Role::user:
        return QStringLiteral("user");
    case Role::assistant:
        return QStringLiteral("assistant");
    case Role::reasoning:
        return QStringLiteral("reasoning");
    case Role::toolCall:
        return QStringLiteral("toolCall");
    }
    return QString();
}

std::optional<TranscriptMessage::Role> TranscriptMessage::roleFromRawValue(const QString &raw)
{
    for (Role role : {Role::user, Role::assistant, Role::reasoning, Role::toolCall}) {
        if (rawValue(role) == raw)
            return role;
    }
    return std::nullopt;
}

QString TranscriptMessage::searchText() const
{
    QStringList calls;
    for (const MCPToolCall &call : toolCalls)
        calls.append(call.searchLine());
    return QStringList{content, reasoning.value_or(QString()), calls.join(u' ')}.join(u'\n');
}
