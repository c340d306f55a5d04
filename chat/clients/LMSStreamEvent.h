#pragma once

#include "chat/clients/LMSChatResponse.h"

#include <QJsonObject>
#include <QString>
#include <optional>

// What one frame of an LM Studio chat stream says, chosen by the frame's "type". A field the
// frame lacks, or gives with the wrong type, takes its default ("" for texts, 0 for numbers,
// "Unknown" for tool names, "unknown" and "Unknown error" for an error).
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
    QString tool;             // tool_call.*: the tool (for tool_call.start the frame's type)
    QString serverLabel;      // tool_call.name
    QJsonObject arguments;    // tool_call.arguments
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
