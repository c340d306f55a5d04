#pragma once

#include "chat/session/MCPToolCall.h"

#include <QList>
#include <QString>

// What a tool call's bubble shows: its parameters as key and value rows, its result blocks and
// its error, each cut for display past 256 characters (copying gives the whole text).
namespace ToolCallDisplay {

struct KVPair {
    QString key;
    QString value;
};
struct ToolResult {
    QString type;
    QString text;
};

// null, "quoted \"strings\"", plain numbers, true/false, [a,b], else compact JSON.
QString valueText(const QJsonValue &value);
QList<KVPair> parameters(const MCPToolCall &call);
// The output read as a JSON array of {"type","text"} blocks; anything else is one "text" block.
QList<ToolResult> results(const QString &output);
// The first 256 characters and "...(N more chars)"; shorter text as it is.
QString cut(const QString &text);

}  // namespace ToolCallDisplay
