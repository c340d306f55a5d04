#pragma once

#include "chat/clients/LMSChatResponse.h"

#include <QJsonObject>
#include <QString>
#include <optional>

// What one frame of an LM Studio chat stream says, chosen by the frame's "type". A field the
// frame lacks, or gives with the wrong type, takes its default ("" for texts, 0 for numbers,
// "Unknown" for the tool of tool_call.name, .arguments and .success, "unknown" and
// "Unknown error" for an error).
//
// Tool calls come in two forms. LM Studio's REST API v1 (0.4.0 on) names the tool and its
// provider in tool_call.start and repeats them in tool_call.arguments and tool_call.success; a
// tool_call.failure names it under "metadata". Earlier servers sent a bare tool_call.start and
// then tool_call.name with "tool_name". Both are read; a call has no id on the wire either way.
struct LMSStreamEvent {
    enum class Kind {
        chatStart, chatEnd, modelLoadStart, modelLoadProgress, modelLoadEnd,
        promptProcessingStart, promptProcessingProgress, promptProcessingEnd,
        reasoningStart, reasoningDelta, reasoningEnd, messageStart, messageDelta, messageEnd,
        toolCallStart, toolCallName, toolCallArguments, toolCallSuccess, toolCallFailure,
        streamError, unknown
    };

    Kind kind = Kind::unknown;
    QString type;             // the frame's "type"; for unknown, the text it had
    QString modelInstanceId;  // chat.start, model_load.*
    double progress = 0;      // model_load.progress, prompt_processing.progress
    double loadTimeSeconds = 0;
    QString content;          // reasoning.delta, message.delta
    QString tool;             // tool_call.*: the tool; "" for a tool_call.start or .failure naming none
    QString serverLabel;      // tool_call.*: the MCP server's label, or the plugin's id; "" if none
    QJsonObject arguments;    // tool_call.arguments, .success, .failure
    QString output;           // tool_call.success
    QString reason;           // tool_call.failure
    QString errorType;        // error
    QString errorMessage;     // error
    std::optional<LMSChatResponse> result;  // chat.end

    // The event of a frame's data text; nothing when it is not a JSON object with a string
    // "type". A chat.end whose result does not decode is unknown("chat.end").
    static std::optional<LMSStreamEvent> fromFrame(const QString &data);
    bool operator==(const LMSStreamEvent &) const = default;
};
