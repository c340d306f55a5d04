#pragma once

#include <QJsonObject>
#include <QString>
#include <optional>

// One item of a chat reply's output, chosen by its "type": a message, reasoning, a tool call,
// an invalid tool call, or a type this client does not know (kept by name).
struct LMSOutputItem {
    enum class Kind { message, reasoning, toolCall, invalidToolCall, unknown };

    Kind kind = Kind::unknown;
    QString type;     // the "type" text, for every kind
    QString content;  // message and reasoning
    QString tool;     // tool call
    QString output;   // tool call
    QJsonObject arguments;  // tool call
    QString reason;   // invalid tool call

    // Nothing when "type" is missing or a known kind lacks one of its required fields.
    static std::optional<LMSOutputItem> fromJson(const QJsonObject &object);
    bool operator==(const LMSOutputItem &) const = default;
};
