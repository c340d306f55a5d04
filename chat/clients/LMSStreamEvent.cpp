#include "chat/clients/LMSStreamEvent.h"

#include <QHash>
#include <QJsonDocument>

#include <cstdio>

namespace {

QString text(const QJsonObject &object, const char *key, const QString &fallback = QString())
{
    const QJsonValue value = object.value(QLatin1String(key));
    return value.isString() ? value.toString() : fallback;
}

double number(const QJsonObject &object, const char *key)
{
    const QJsonValue value = object.value(QLatin1String(key));
    return value.isDouble() ? value.toDouble() : 0.0;
}

// Who provides a tool: "provider_info" holds an MCP server's "server_label" or a plugin's
// "plugin_id".
QString providerLabel(const QJsonObject &object)
{
    const QJsonObject info = object.value(QStringLiteral("provider_info")).toObject();
    const QString label = text(info, "server_label");
    return label.isEmpty() ? text(info, "plugin_id") : label;
}

}  // namespace

std::optional<LMSStreamEvent> LMSStreamEvent::fromFrame(const QString &data)
{
    const QJsonDocument document = QJsonDocument::fromJson(data.toUtf8());
    if (!document.isObject())
        return std::nullopt;
    const QJsonObject frame = document.object();
    if (!frame.value(QStringLiteral("type")).isString())
        return std::nullopt;

    static const QHash<QString, Kind> kinds{
        {QStringLiteral("chat.start"), Kind::chatStart},
        {QStringLiteral("chat.end"), Kind::chatEnd},
        {QStringLiteral("model_load.start"), Kind::modelLoadStart},
        {QStringLiteral("model_load.progress"), Kind::modelLoadProgress},
        {QStringLiteral("model_load.end"), Kind::modelLoadEnd},
        {QStringLiteral("prompt_processing.start"), Kind::promptProcessingStart},
        {QStringLiteral("prompt_processing.progress"), Kind::promptProcessingProgress},
        {QStringLiteral("prompt_processing.end"), Kind::promptProcessingEnd},
        {QStringLiteral("reasoning.start"), Kind::reasoningStart},
        {QStringLiteral("reasoning.delta"), Kind::reasoningDelta},
        {QStringLiteral("reasoning.end"), Kind::reasoningEnd},
        {QStringLiteral("message.start"), Kind::messageStart},
        {QStringLiteral("message.delta"), Kind::messageDelta},
        {QStringLiteral("message.end"), Kind::messageEnd},
        {QStringLiteral("tool_call.start"), Kind::toolCallStart},
        {QStringLiteral("tool_call.name"), Kind::toolCallName},
        {QStringLiteral("tool_call.arguments"), Kind::toolCallArguments},
        {QStringLiteral("tool_call.success"), Kind::toolCallSuccess},
        {QStringLiteral("tool_call.failure"), Kind::toolCallFailure},
        {QStringLiteral("error"), Kind::streamError}};

    LMSStreamEvent event;
    event.type = frame.value(QStringLiteral("type")).toString();
    event.kind = kinds.value(event.type, Kind::unknown);
    switch (event.kind) {
    case Kind::chatStart:
    case Kind::modelLoadStart:
        event.modelInstanceId = text(frame, "model_instance_id");
        break;
    case Kind::modelLoadProgress:
        event.modelInstanceId = text(frame, "model_instance_id");
        event.progress = number(frame, "progress");
        break;
    case Kind::modelLoadEnd:
        event.modelInstanceId = text(frame, "model_instance_id");
        event.loadTimeSeconds = number(frame, "load_time_seconds");
        break;
    case Kind::promptProcessingProgress:
        event.progress = number(frame, "progress");
        break;
    case Kind::reasoningDelta:
    case Kind::messageDelta:
        event.content = text(frame, "content");
        break;
    case Kind::toolCallStart:
        event.tool = text(frame, "tool");  // "" in the earlier form: tool_call.name follows
        event.serverLabel = providerLabel(frame);
        break;
    case Kind::toolCallName:
        event.tool = text(frame, "tool_name", QStringLiteral("Unknown"));
        event.serverLabel = providerLabel(frame);
        break;
    case Kind::toolCallArguments:
        event.tool = text(frame, "tool", QStringLiteral("Unknown"));
        event.serverLabel = providerLabel(frame);
        event.arguments = frame.value(QStringLiteral("arguments")).toObject();
        break;
    case Kind::toolCallSuccess:
        event.tool = text(frame, "tool", QStringLiteral("Unknown"));
        event.serverLabel = providerLabel(frame);
        event.arguments = frame.value(QStringLiteral("arguments")).toObject();
        event.output = text(frame, "output");
        break;
    case Kind::toolCallFailure: {
        event.reason = text(frame, "reason");
        const QJsonObject metadata = frame.value(QStringLiteral("metadata")).toObject();
        event.tool = text(metadata, "tool_name");
        event.serverLabel = providerLabel(metadata);
        event.arguments = metadata.value(QStringLiteral("arguments")).toObject();
        break;
    }
    case Kind::streamError: {
        const QJsonObject error = frame.value(QStringLiteral("error")).toObject();
        event.errorType = text(error, "type", QStringLiteral("unknown"));
        event.errorMessage = text(error, "message", QStringLiteral("Unknown error"));
        break;
    }
    case Kind::chatEnd: {
        const QJsonValue result = frame.value(QStringLiteral("result"));
        event.result = result.isObject() ? LMSChatResponse::fromJson(result.toObject()) : std::nullopt;
        if (!event.result)
            event.kind = Kind::unknown;  // the stream goes on, as for any frame it cannot use
        break;
    }
    case Kind::unknown:
        std::fprintf(stdout, "OOPS: Unknown tool call type: %s\n", qPrintable(event.type));
        break;
    default:
        break;
    }
    return event;
}
