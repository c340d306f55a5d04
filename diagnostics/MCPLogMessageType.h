#pragma once

#include <QString>

// Level of a log line; the numbers are the engine's LogMessageType values, so the two
// convert with a plain cast. Values outside the five are carried as they are.
enum class MCPLogMessageType : int { Critical = 0, Error = 1, Warning = 2, Info = 3, Debug = 4 };

// The three-character label a log row shows: "[E]" for both critical and error lines,
// "[S]" for any value outside the five.
inline QString mcpLogLabel(MCPLogMessageType type)
{
    switch (type) {
    case MCPLogMessageType::Critical:
    case MCPLogMessageType::Error:
        return QStringLiteral("[E]");
    case MCPLogMessageType::Warning:
        return QStringLiteral("[W]");
    case MCPLogMessageType::Info:
        return QStringLiteral("[I]");
    case MCPLogMessageType::Debug:
        return QStringLiteral("[D]");
    }
    return QStringLiteral("[S]");
}

// Level of a script's log call, from its lower-cased word: "debug", "error", "warning",
// anything else is information.
inline MCPLogMessageType mcpLogMessageTypeFromWord(const QString &word)
{
    const QString lower = word.toLower();
    if (lower == QLatin1String("debug"))
        return MCPLogMessageType::Debug;
    if (lower == QLatin1String("error"))
        return MCPLogMessageType::Error;
    if (lower == QLatin1String("warning"))
        return MCPLogMessageType::Warning;
    return MCPLogMessageType::Info;
}
