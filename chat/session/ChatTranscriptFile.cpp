#include "chat/session/ChatTranscriptFile.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace {

QString isoDate(const QDateTime &date)
{
    return date.toUTC().toString(QStringLiteral("yyyy-MM-ddTHH:mm:ss.zzzZ"));
}

std::optional<QDateTime> parseDate(const QJsonValue &value)
{
    if (!value.isString())
        return std::nullopt;
    QDateTime date = QDateTime::fromString(value.toString(), Qt::ISODateWithMs);
    if (!date.isValid())
        date = QDateTime::fromString(value.toString(), Qt::ISODate);
    if (!date.isValid())
        return std::nullopt;
    return date;
}

QUuid parseId(const QJsonValue &value)
{
    const QUuid id = QUuid::fromString(value.toString());
    return id.isNull() ? QUuid::createUuid() : id;
}

// Reads a required member of a type; false (with *error) when it is missing or mistyped.
bool require(const QJsonObject &object, const char *key, QJsonValue::Type type, QString *error)
{
    if (object.value(QLatin1String(key)).type() == type)
        return true;
    *error = QStringLiteral("The key \"%1\" is missing or not of its type.").arg(QLatin1String(key));
    return false;
}

}  // namespace

QByteArray ChatTranscriptFile::encode(const Contents &contents, const QDateTime &createdAt)
{
    QJsonArray messages;
    for (const TranscriptMessage &message : contents.transcript) {
        QJsonArray calls;
        for (const MCPToolCall &call : message.toolCalls) {
            QJsonObject item{{QStringLiteral("id"), call.id.toString(QUuid::WithoutBraces)},
                             {QStringLiteral("tool"), call.tool},
                             {QStringLiteral("serverLabel"), call.serverLabel},
                             {QStringLiteral("arguments"), call.argumentsText()},
                             {QStringLiteral("timestamp"), isoDate(call.timestamp)},
                             {QStringLiteral("isCompleted"), call.isCompleted}};
            if (call.output)
                item.insert(QStringLiteral("output"), *call.output);
            if (call.error)
                item.insert(QStringLiteral("error"), *call.error);
            calls.append(item);
        }
        QJsonObject item{{QStringLiteral("id"), message.id.toString(QUuid::WithoutBraces)},
                         {QStringLiteral("role"), TranscriptMessage::rawValue(message.role)},
                         {QStringLiteral("content"), message.content},
                         {QStringLiteral("timestamp"), isoDate(message.timestamp)},
                         {QStringLiteral("isComplete"), message.isComplete},
                         {QStringLiteral("toolCalls"), calls}};
        if (message.reasoning)
            item.insert(QStringLiteral("reasoning"), *message.reasoning);
        if (message.stats)
            item.insert(QStringLiteral("stats"), message.stats->toJson());
        messages.append(item);
    }
    QJsonObject root{{QStringLiteral("version"), 1},
                     {QStringLiteral("createdAt"), isoDate(createdAt)},
                     {QStringLiteral("baseURL"), contents.baseURL},
                     {QStringLiteral("selectedModel"), contents.selectedModel},
                     {QStringLiteral("systemPrompt"), contents.systemPrompt},
                     {QStringLiteral("transcript"), messages}};
    if (contents.selectedProviderRaw)
        root.insert(QStringLiteral("selectedProviderRaw"), *contents.selectedProviderRaw);
    if (contents.lastResponseID)
        root.insert(QStringLiteral("lastResponseID"), *contents.lastResponseID);
    return QJsonDocument(root).toJson(QJsonDocument::Indented);  // QJsonObject keeps keys sorted
}

std::optional<ChatTranscriptFile::Contents> ChatTranscriptFile::decode(const QByteArray &bytes, QString *error)
{
    QString ignored;
    QString &why = error ? *error : ignored;
    QJsonParseError parse;
    const QJsonDocument document = QJsonDocument::fromJson(bytes, &parse);
    if (parse.error != QJsonParseError::NoError || !document.isObject()) {
        why = parse.error != QJsonParseError::NoError ? parse.errorString() : QStringLiteral("The file holds no JSON object.");
        return std::nullopt;
    }
    const QJsonObject root = document.object();
    for (auto [key, type] : {std::pair{"version", QJsonValue::Double}, {"baseURL", QJsonValue::String},
                             {"selectedModel", QJsonValue::String}, {"systemPrompt", QJsonValue::String},
                             {"transcript", QJsonValue::Array}}) {
        if (!require(root, key, type, &why))
            return std::nullopt;
    }
    if (!parseDate(root.value(QStringLiteral("createdAt")))) {
        why = QStringLiteral("The key \"createdAt\" is no ISO 8601 date.");
        return std::nullopt;
    }
    Contents contents;
    if (root.contains(QStringLiteral("selectedProviderRaw")))
        contents.selectedProviderRaw = root.value(QStringLiteral("selectedProviderRaw")).toString();
    contents.baseURL = root.value(QStringLiteral("baseURL")).toString();
    contents.selectedModel = root.value(QStringLiteral("selectedModel")).toString();
    contents.systemPrompt = root.value(QStringLiteral("systemPrompt")).toString();
    if (root.value(QStringLiteral("lastResponseID")).isString())
        contents.lastResponseID = root.value(QStringLiteral("lastResponseID")).toString();

    const QDateTime now = QDateTime::currentDateTimeUtc();
    for (const QJsonValue &value : root.value(QStringLiteral("transcript")).toArray()) {
        const QJsonObject item = value.toObject();
        for (auto [key, type] : {std::pair{"id", QJsonValue::String}, {"role", QJsonValue::String},
                                 {"content", QJsonValue::String}, {"isComplete", QJsonValue::Bool},
                                 {"toolCalls", QJsonValue::Array}}) {
            if (!require(item, key, type, &why))
                return std::nullopt;
        }
        const std::optional<QDateTime> timestamp = parseDate(item.value(QStringLiteral("timestamp")));
        if (!timestamp) {
            why = QStringLiteral("A message's \"timestamp\" is no ISO 8601 date.");
            return std::nullopt;
        }
        TranscriptMessage message;
        message.id = parseId(item.value(QStringLiteral("id")));
        message.role = TranscriptMessage::roleFromRawValue(item.value(QStringLiteral("role")).toString())
                           .value_or(TranscriptMessage::Role::user);
        message.content = item.value(QStringLiteral("content")).toString();
        if (item.value(QStringLiteral("reasoning")).isString())
            message.reasoning = item.value(QStringLiteral("reasoning")).toString();
        if (item.contains(QStringLiteral("stats"))) {
            message.stats = AIChatStats::fromJson(item.value(QStringLiteral("stats")).toObject());
            if (!message.stats) {
                why = QStringLiteral("A message's \"stats\" are not complete.");
                return std::nullopt;
            }
        }
        message.timestamp = *timestamp;
        message.isComplete = item.value(QStringLiteral("isComplete")).toBool();
        // Tool calls come back in outline: what was called where, and "done".
        for (const QJsonValue &callValue : item.value(QStringLiteral("toolCalls")).toArray()) {
            const QJsonObject stored = callValue.toObject();
            if (!require(stored, "tool", QJsonValue::String, &why) || !require(stored, "serverLabel", QJsonValue::String, &why))
                return std::nullopt;
            MCPToolCall call;
            call.id = parseId(stored.value(QStringLiteral("id")));
            call.tool = stored.value(QStringLiteral("tool")).toString();
            call.serverLabel = stored.value(QStringLiteral("serverLabel")).toString();
            call.output = QStringLiteral("done");
            call.timestamp = now;
            call.isCompleted = true;
            message.toolCalls.append(call);
        }
        contents.transcript.append(message);
    }
    return contents;
}

QString ChatTranscriptFile::suggestedFileName(const QDateTime &now)
{
    return QStringLiteral("chat-") + isoDate(now).replace(u':', u'-') + QStringLiteral(".json");
}
