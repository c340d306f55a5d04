#include "chat/session/MCPToolCall.h"

#include "chat/session/ToolCallDisplay.h"

#include <QStringList>

QString MCPToolCall::argumentsText() const
{
    QStringList pairs;
    for (auto it = arguments.begin(); it != arguments.end(); ++it)
        pairs.append(QStringLiteral("\"%1\": %2").arg(it.key(), ToolCallDisplay::valueText(it.value())));
    return QLatin1Char('[') + pairs.join(QStringLiteral(", ")) + QLatin1Char(']');
}

QString MCPToolCall::searchLine() const
{
    QStringList parts{tool, serverLabel, argumentsText()};
    if (output)
        parts.append(*output);
    if (error)
        parts.append(*error);
    return parts.join(u' ');
}
