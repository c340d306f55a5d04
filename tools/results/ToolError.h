#pragma once

#include "diagnostics/MCPLogMessageType.h"
#include "tools/results/JSONToolResult.h"

#include <QString>
#include <QVariantMap>

class LogController;

// How an executor fails a tool call: the line goes to the log, and the call gets the error
// result, text "Error <code> <message>", with extra merged into structuredContent and then
// success false, error_message and error_code (these three win over same-named extras).
// Any thread.
class ToolError {
public:
    static JSONToolResult report(LogController *log, const QString &message, int code, MCPLogMessageType level,
                                 const QVariantMap &extra = {});
};
