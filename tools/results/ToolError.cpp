#include "tools/results/ToolError.h"

#include "diagnostics/LogController.h"

JSONToolResult ToolError::report(LogController *log, const QString &message, int code, MCPLogMessageType level,
                                 const QVariantMap &extra)
{
    if (log)
        log->log(message, code, level);
    JSONToolResult result =
        JSONToolResult::errorResult(QStringLiteral("Error ") + QString::number(code) + QLatin1Char(' ') + message);
    for (auto it = extra.cbegin(); it != extra.cend(); ++it) {
        if (auto value = AnyCodable::fromVariant(it.value()))
            result.structuredContent.insert(it.key(), *value);
    }
    result.structuredContent.insert(QStringLiteral("success"), AnyCodable(false));
    result.structuredContent.insert(QStringLiteral("error_message"), AnyCodable(message));
    result.structuredContent.insert(QStringLiteral("error_code"), AnyCodable(code));
    return result;
}
