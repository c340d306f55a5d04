#include "tests/chatclients/peer/ProviderPeer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QUrl>
#include <QJsonObject>

namespace {

TestHttpServer::Response json(const QByteArray &body, int status = 200)
{
    TestHttpServer::Response response;
    response.status = status;
    response.headers.append(qMakePair(QByteArray("Content-Type"), QByteArray("application/json")));
    response.body = body;
    return response;
}

const QByteArray kChatResult =
    R"({"model_instance_id":"qwen-7b","response_id":"resp_1","output":[{"type":"reasoning","content":"Let me look."},)"
    R"({"type":"tool_call","tool":"read_file","arguments":{"path":"/tmp/a"},"output":"hello"},)"
    R"({"type":"message","content":"Hello, "},{"type":"message","content":"world."}],)"
    R"("stats":{"input_tokens":12,"total_output_tokens":34,"reasoning_output_tokens":5,"tokens_per_second":42.5,)"
    R"("time_to_first_token_seconds":0.25,"model_load_time_seconds":1.5}})";

QByteArray frame(const QJsonObject &object)
{
    return "data: " + QJsonDocument(object).toJson(QJsonDocument::Compact) + "\n\n";
}

QJsonObject mcpProvider(const QString &serverLabel)
{
    return {{"type", "ephemeral_mcp"}, {"server_label", serverLabel}};
}

} // namespace

ProviderPeer::ProviderPeer()
    : m_server(std::make_unique<TestHttpServer>([this](const TestHttpServer::Request &request) { return answer(request); }))
{
}

ProviderPeer::~ProviderPeer()
{
    m_server->stop();
}

void ProviderPeer::setChatStream(const QByteArray &bytes)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_chatStream = bytes;
}

QString ProviderPeer::baseURL() const
{
    return QStringLiteral("http://127.0.0.1:%1").arg(m_server->port());
}

QString ProviderPeer::geminiBaseURL() const
{
    return baseURL() + QStringLiteral("/v1beta");
}

const char *ProviderPeer::serverErrorBody()
{
    return R"({"error":{"message":"You exceeded your current quota.","type":"insufficient_quota"}})";
}

QByteArray ProviderPeer::toolCallFrames(StreamForm form, const QString &tool, const QString &serverLabel,
                                        const QJsonObject &arguments, const QString &output)
{
    if (form == StreamForm::earlier)
        return frame({{"type", "tool_call.start"}})
               + frame({{"type", "tool_call.name"}, {"tool_name", tool}, {"provider_info", QJsonObject{{"server_label", serverLabel}}}})
               + frame({{"type", "tool_call.arguments"}, {"tool", tool}, {"arguments", arguments}})
               + frame({{"type", "tool_call.success"}, {"tool", tool}, {"output", output}});
    const QJsonObject provider = mcpProvider(serverLabel);
    return frame({{"type", "tool_call.start"}, {"tool", tool}, {"provider_info", provider}})
           + frame({{"type", "tool_call.arguments"}, {"tool", tool}, {"arguments", arguments}, {"provider_info", provider}})
           + frame({{"type", "tool_call.success"}, {"tool", tool}, {"arguments", arguments}, {"output", output},
                    {"provider_info", provider}});
}

QByteArray ProviderPeer::chatStream(StreamForm form)
{
    return "event: chat.start\r\ndata: {\"type\":\"chat.start\",\"model_instance_id\":\"qwen-7b\"}\r\n\r\n"
           "data: {\"type\":\"reasoning.start\"}\n\n"
           "data: {\"type\":\"reasoning.delta\",\"content\":\"Let me look.\"}\n\n"
           "data: {\"type\":\"reasoning.end\"}\n\n"
        + toolCallFrames(form, QStringLiteral("read_file"), QStringLiteral("kelvara"), QJsonObject{{"path", "/tmp/a"}},
                         QStringLiteral("hello"))
        + "data: {\"type\":\"message.start\"}\n\n"
          "data: {\"type\":\"message.delta\",\"content\":\"Hello, \"}\n\n"
          "data: {\"type\":\"message.delta\",\n"
          "data: \"content\":\"world.\"}\n\n"
          "data: {\"type\":\"message.end\"}\n\n"
          "data: {\"type\":\"chat.end\",\"result\":"
        + kChatResult + "}\n\n";
}

QByteArray ProviderPeer::toolFailureStream(StreamForm form)
{
    const QJsonObject arguments{{"path", 7}};
    const QString refused = QStringLiteral("Invalid arguments for read_file: path must be a string.");
    const QString unknown = QStringLiteral("Cannot find tool with name open_browser.");
    QByteArray stream = frame({{"type", "chat.start"}, {"model_instance_id", "qwen-7b"}});
    if (form == StreamForm::earlier) {
        stream += frame({{"type", "tool_call.start"}});
        stream += frame({{"type", "tool_call.name"}, {"tool_name", "read_file"}, {"provider_info", QJsonObject{{"server_label", "kelvara"}}}});
        stream += frame({{"type", "tool_call.arguments"}, {"tool", "read_file"}, {"arguments", arguments}});
        stream += frame({{"type", "tool_call.failure"}, {"reason", refused}});
        stream += frame({{"type", "tool_call.failure"}, {"reason", unknown}});
    } else {
        stream += frame({{"type", "tool_call.start"}, {"tool", "read_file"}, {"provider_info", mcpProvider("kelvara")}});
        stream += frame({{"type", "tool_call.failure"}, {"reason", refused},
                         {"metadata", QJsonObject{{"type", "invalid_arguments"}, {"tool_name", "read_file"},
                                                  {"arguments", arguments}, {"provider_info", mcpProvider("kelvara")}}}});
        stream += frame({{"type", "tool_call.failure"}, {"reason", unknown},
                         {"metadata", QJsonObject{{"type", "invalid_name"}, {"tool_name", "open_browser"}}}});
    }
    stream += frame({{"type", "message.delta"}, {"content", "I could not read it."}});
    stream += "data: {\"type\":\"chat.end\",\"result\":" + kChatResult + "}\n\n";
    return stream;
}

namespace {

// One JSON-RPC request to an MCP server over HTTP, blocking, on the peer's thread, with the
// integration's headers as LM Studio sends them.
QJsonObject callMcp(const QUrl &url, const QJsonObject &headers, const QJsonObject &message)
{
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    if (fd < 0)
        return {};
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(quint16(url.port(80)));
    ::inet_pton(AF_INET, url.host().toUtf8().constData(), &address.sin_addr);
    timeval timeout{10, 0};
    ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
    QByteArray reply;
    if (::connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0) {
        const QByteArray body = QJsonDocument(message).toJson(QJsonDocument::Compact);
        const QByteArray path = url.path().isEmpty() ? QByteArray("/") : url.path().toUtf8();
        QByteArray extra;
        for (auto it = headers.begin(); it != headers.end(); ++it)
            extra += it.key().toUtf8() + ": " + it.value().toString().toUtf8() + "\r\n";
        const QByteArray request = "POST " + path + " HTTP/1.1\r\nHost: " + url.host().toUtf8() +
                                   "\r\nContent-Type: application/json\r\nAccept: application/json, text/event-stream\r\n" +
                                   extra + "Connection: close\r\nContent-Length: " + QByteArray::number(body.size()) +
                                   "\r\n\r\n" + body;
        qsizetype sent = 0;
        while (sent < request.size()) {
            const ssize_t n = ::send(fd, request.constData() + sent, size_t(request.size() - sent), MSG_NOSIGNAL);
            if (n <= 0)
                break;
            sent += n;
        }
        char buffer[4096];
        for (ssize_t n; (n = ::recv(fd, buffer, sizeof buffer, 0)) > 0;)
            reply.append(buffer, n);
    }
    ::close(fd);
    return QJsonDocument::fromJson(reply.mid(reply.indexOf("\r\n\r\n") + 4)).object();
}

}  // namespace

QByteArray ProviderPeer::toolCallingStream(const QJsonObject &body, StreamForm form)
{
    // As LM Studio does with an ephemeral MCP integration: the model asks for read_file on the
    // first absolute path of the input, the server answers, the model says what it read.
    const QJsonObject integration = body.value("integrations").toArray().at(0).toObject();
    const QUrl server(integration.value("server_url").toString());
    const QString label = integration.value("server_label").toString();
    QString path;
    for (const QString &word : body.value("input").toString().split(QRegularExpression("\\s+"))) {
        if (word.startsWith(u'/')) {
            path = word;
            break;
        }
    }
    const QJsonObject arguments{{"file_path", path}};
    const QJsonObject reply = callMcp(server, integration.value("headers").toObject(), {{"jsonrpc", "2.0"}, {"id", 1}, {"method", "tools/call"},
                                               {"params", QJsonObject{{"name", "read_file"}, {"arguments", arguments}}}});
    const QJsonArray content = reply.value("result").toObject().value("content").toArray();
    const QString text = content.at(0).toObject().value("text").toString();
    const QString output = QString::fromUtf8(QJsonDocument(content).toJson(QJsonDocument::Compact));
    const QString answer = QStringLiteral("The file says: ") + text.trimmed();
    QByteArray stream = frame({{"type", "chat.start"}, {"model_instance_id", "qwen-7b"}});
    stream += toolCallFrames(form, QStringLiteral("read_file"), label, arguments, output);
    stream += frame({{"type", "message.delta"}, {"content", answer}});
    const QJsonObject result{
        {"model_instance_id", "qwen-7b"}, {"response_id", "resp_tools"},
        {"output", QJsonArray{QJsonObject{{"type", "tool_call"}, {"tool", "read_file"}, {"arguments", arguments}, {"output", output}},
                              QJsonObject{{"type", "message"}, {"content", answer}}}},
        {"stats", QJsonObject{{"input_tokens", 20}, {"total_output_tokens", 9}, {"reasoning_output_tokens", 0},
                              {"tokens_per_second", 30.0}, {"time_to_first_token_seconds", 0.1}}}};
    stream += frame({{"type", "chat.end"}, {"result", result}});
    return stream;
}

QByteArray ProviderPeer::markdownStream(StreamForm form)
{
    // An answer worth looking at: reasoning, a tool call, then Markdown with a list, a table
    // and a code block, a few words at a time.
    const QString answer = QStringLiteral(
        "## The server's tools\n\nKelvara lists **three file tools** and a script tool:\n\n"
        "1. `read_file` reads a text file\n2. `write_file` writes one\n3. `list_files` lists a folder\n\n"
        "| Tool | Kind |\n|---|---|\n| read_file | built-in |\n| text_statistics | script |\n\n"
        "Call one from a client like this:\n\n```json\n{\"jsonrpc\": \"2.0\", \"id\": 1, \"method\": \"tools/call\",\n"
        " \"params\": {\"name\": \"read_file\", \"arguments\": {\"file_path\": \"/etc/hostname\"}}}\n```\n\n"
        "> The reply carries the text and, in `structuredContent`, its line count.");
    const QJsonObject arguments{{"path", "/home/ada/notes"}};
    const QString output = QStringLiteral(R"([{"type":"text","text":"notes.txt\nplan.md\ntodo.txt"}])");
    QByteArray stream = frame({{"type", "chat.start"}, {"model_instance_id", "qwen-7b"}});
    stream += frame({{"type", "reasoning.delta"}, {"content", "The user wants the tools. I will list a folder first."}});
    stream += toolCallFrames(form, QStringLiteral("list_files"), QStringLiteral("Kelvara Server"), arguments, output);
    for (qsizetype at = 0; at < answer.size(); at += 12)
        stream += frame({{"type", "message.delta"}, {"content", answer.mid(at, 12)}});
    const QJsonObject result{{"model_instance_id", "qwen-7b"}, {"response_id", "resp_md"},
                             {"output", QJsonArray{QJsonObject{{"type", "message"}, {"content", answer}}}},
                             {"stats", QJsonObject{{"input_tokens", 40}, {"total_output_tokens", 168}, {"reasoning_output_tokens", 14},
                                                   {"tokens_per_second", 61.0}, {"time_to_first_token_seconds", 0.18}}}};
    stream += frame({{"type", "chat.end"}, {"result", result}});
    return stream;
}

TestHttpServer::Response ProviderPeer::answer(const TestHttpServer::Request &request)
{
    const Failure failure = m_failure.load();
    if (failure == Failure::serverError)
        return json(serverErrorBody(), 500);
    if (failure == Failure::undecodable)
        return json("<html>Bad gateway</html>");

    const QByteArray path = request.target;
    const QJsonObject body = QJsonDocument::fromJson(request.body).object();
    TestHttpServer::Response response;
    if (path == "/api/v1/models") {
        response = json(R"({"models":[)"
                        R"({"type":"llm","publisher":"qwen","key":"qwen-7b","display_name":"Qwen 7B","size_bytes":4000,)"
                        R"("loaded_instances":[{"id":"qwen-7b","config":{"context_length":4096}}],"max_context_length":32768,)"
                        R"("quantization":{"name":"Q4_K_M","bits_per_weight":4.5},"capabilities":{"vision":false,"trained_for_tool_use":true}},)"
                        R"({"type":"embedding","publisher":"nomic","key":"nomic-embed","display_name":"Nomic Embed","size_bytes":80,)"
                        R"("loaded_instances":[],"max_context_length":2048}]})");
    } else if (path == "/api/v1/models/load") {
        response = json(R"({"type":"llm","instance_id":")" + body.value("model").toString().toUtf8()
                        + R"(","load_time_seconds":2.5,"status":"loaded","load_config":{"context_length":4096}})");
    } else if (path == "/api/v1/models/unload") {
        response = json(R"({"instance_id":")" + body.value("instance_id").toString().toUtf8() + R"("})");
    } else if (path == "/api/v1/models/download") {
        m_statusPolls.store(0);
        response = json(R"({"job_id":"job-1","status":"downloading","total_size_bytes":1000,"downloaded_bytes":0})");
    } else if (path.startsWith("/api/v1/models/download/status/")) {
        const int poll = ++m_statusPolls;
        response = poll < 3 ? json(R"({"job_id":"job-1","status":"downloading","total_size_bytes":1000,"downloaded_bytes":)"
                                   + QByteArray::number(poll * 400) + R"(,"bytes_per_second":400.0})")
                            : json(R"({"job_id":"job-1","status":"completed","total_size_bytes":1000,)"
                                   R"("downloaded_bytes":1000,"completed_at":"2026-01-01T00:00:00Z"})");
    } else if (path == "/api/v1/chat") {
        if (body.value("stream").toBool()) {
            response.headers.append(qMakePair(QByteArray("Content-Type"), QByteArray("text/event-stream")));
            const QJsonArray integrations = body.value("integrations").toArray();
            const StreamForm form = m_form.load();
            QByteArray given;
            {
                std::lock_guard<std::mutex> lock(m_mutex);
                given = m_chatStream;
            }
            if (!given.isEmpty())
                response.body = given;
            else if (failure == Failure::toolFailure)
                response.body = toolFailureStream(form);
            else if (integrations.at(0).toObject().value("type").toString() == "ephemeral_mcp")
                response.body = toolCallingStream(body, form);
            else if (body.value("input").toString().contains("markdown", Qt::CaseInsensitive))
                response.body = markdownStream(form);
            else
                response.body = chatStream(form);
            if (failure == Failure::cutStream)
                response.body = response.body.left(response.body.indexOf("message.end") + 5);
            if (failure == Failure::errorFrame) {
                const qsizetype end = response.body.indexOf("data: {\"type\":\"chat.end\"");
                response.body.insert(end, frame({{"type", "error"},
                                                 {"error", QJsonObject{{"type", "mcp_connection_error"},
                                                                       {"message", "The MCP server went away."}}}}));
            }
            // Byte by byte: every frame and UTF-8 sequence is split somewhere.
            response.mode = TestHttpServer::Response::Mode::Dribble;
            if (failure == Failure::stall) {
                const QByteArray delta = "\"message.delta\"";
                const qsizetype first = response.body.indexOf(delta);
                response.stallAfter = response.body.indexOf("\n\n", first) + 2;
            }
        } else {
            response = json(kChatResult);
        }
    } else if (path == "/v1/models" && !request.header("x-api-key").isNull()) {
        // Anthropic's list comes in pages, the next one asked for by the last id of this one.
        response = json(R"({"data":[{"id":"claude-a","display_name":"Claude A"},{"id":"claude-b"}],)"
                        R"("has_more":true,"first_id":"claude-a","last_id":"claude-b"})");
    } else if (path == "/v1/models?after_id=claude-b" && !request.header("x-api-key").isNull()) {
        response = json(R"({"data":[{"id":"claude-c","display_name":"Claude C"}],)"
                        R"("has_more":false,"first_id":"claude-c","last_id":"claude-c"})");
    } else if (path == "/v1/models") {
        response = json(R"({"object":"list","data":[{"id":"gpt-b","object":"model"},{"id":"gpt-a"}]})");
    } else if (path == "/v1/chat/completions") {
        // OpenAI's reasoning models refuse the older limit and any temperature but the default.
        const QString model = body.value("model").toString();
        const bool reasoning = model.startsWith("o1") || model.startsWith("o3") || model.startsWith("o4") ||
                               model.startsWith("gpt-5");
        if (reasoning && body.contains("max_tokens"))
            return json(R"({"error":{"message":"Unsupported parameter: 'max_tokens' is not supported with this model. )"
                        R"(Use 'max_completion_tokens' instead.","type":"invalid_request_error","param":"max_tokens",)"
                        R"("code":"unsupported_parameter"}})",
                        400);
        if (reasoning && body.contains("temperature") && body.value("temperature").toDouble() != 1.0)
            return json(R"({"error":{"message":"Unsupported value: 'temperature' does not support this value with this )"
                        R"(model. Only the default (1) value is supported.","type":"invalid_request_error",)"
                        R"("param":"temperature","code":"unsupported_value"}})",
                        400);
        response = json(R"({"id":"chatcmpl-1","choices":[{"message":{"role":"assistant","content":"Hi from OpenAI"}}],)"
                        R"("usage":{"prompt_tokens":9,"completion_tokens":3,"total_tokens":12}})");
    } else if (path == "/v1/messages") {
        response = json(R"({"id":"msg_1","content":[{"type":"text","text":"Hi from "},{"type":"text","text":"Claude"}],)"
                        R"("usage":{"input_tokens":8,"output_tokens":4}})");
    } else if (path == "/v1beta/models") {
        // Gemini lists embedding models too, and pages by a token.
        response = json(R"({"models":[{"name":"models/gemini-pro","displayName":"Gemini Pro",)"
                        R"("supportedGenerationMethods":["generateContent","countTokens"]},)"
                        R"({"name":"models/text-embedding-004","supportedGenerationMethods":["embedContent"]},)"
                        R"({"name":"models/flash"}],"nextPageToken":"page-2"})");
    } else if (path == "/v1beta/models?pageToken=page-2") {
        response = json(R"({"models":[{"name":"models/gemini-late","displayName":"Gemini Late",)"
                        R"("supportedGenerationMethods":["generateContent"]}]})");
    } else if (path.startsWith("/v1beta/models/") && path.endsWith(":generateContent")) {
        response = json(R"({"candidates":[{"content":{"parts":[{"text":"Hi from Gemini"}]}}],)"
                        R"("usageMetadata":{"promptTokenCount":7,"candidatesTokenCount":5}})");
    } else {
        response = json(R"({"error":"no such route"})", 404);
    }
    if (failure == Failure::slow) {
        response.mode = TestHttpServer::Response::Mode::Dribble;
        response.dribbleDelayMs = 20;
    }
    return response;
}
