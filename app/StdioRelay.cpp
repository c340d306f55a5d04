#include "app/StdioRelay.h"

#include "app/RunningServer.h"
#include "store/ServerAccessSettings.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <curl/curl.h>

#include <cstdlib>
#include <stdio.h>

#include <memory>

namespace {

struct Answer {
    bool reached = false;  // a server answered at all
    long status = 0;
    QByteArray contentType;
    QByteArray sessionId;
    QByteArray body;
    QString failure;  // why nothing answered
};

size_t collectBody(char *data, size_t size, size_t count, void *target)
{
    static_cast<QByteArray *>(target)->append(data, qsizetype(size * count));
    return size * count;
}

size_t collectHeader(char *data, size_t size, size_t count, void *target)
{
    auto *answer = static_cast<Answer *>(target);
    const QByteArray line = QByteArray(data, qsizetype(size * count)).trimmed();
    const qsizetype colon = line.indexOf(':');
    if (colon > 0) {
        const QByteArray name = line.left(colon).trimmed().toLower();
        const QByteArray value = line.mid(colon + 1).trimmed();
        if (name == "content-type")
            answer->contentType = value;
        else if (name == "mcp-session-id")
            answer->sessionId = value;
    }
    return size * count;
}

// One request to the server; method POST with the line, or DELETE to end the session.
Answer exchange(int port, const char *method, const QByteArray &body, const QByteArray &sessionId,
                const QByteArray &protocolVersion)
{
    Answer answer;
    std::unique_ptr<CURL, void (*)(CURL *)> curl(curl_easy_init(), curl_easy_cleanup);
    if (!curl) {
        answer.failure = QStringLiteral("no HTTP client");
        return answer;
    }
    const QByteArray url = QByteArray("http://127.0.0.1:") + QByteArray::number(port) + "/mcp";
    curl_slist *headers = nullptr;
    const QByteArray authorization = "Authorization: Bearer " + ServerAccessSettings::token().toUtf8();
    headers = curl_slist_append(headers, "Content-Type: application/json");
    headers = curl_slist_append(headers, "Accept: application/json, text/event-stream");
    headers = curl_slist_append(headers, authorization.constData());
    const QByteArray session = "Mcp-Session-Id: " + sessionId;
    if (!sessionId.isEmpty())
        headers = curl_slist_append(headers, session.constData());
    const QByteArray version = "MCP-Protocol-Version: " + protocolVersion;
    if (!protocolVersion.isEmpty())
        headers = curl_slist_append(headers, version.constData());
    curl_easy_setopt(curl.get(), CURLOPT_URL, url.constData());
    curl_easy_setopt(curl.get(), CURLOPT_CUSTOMREQUEST, method);
    if (qstrcmp(method, "POST") == 0) {
        curl_easy_setopt(curl.get(), CURLOPT_POSTFIELDS, body.constData());
        curl_easy_setopt(curl.get(), CURLOPT_POSTFIELDSIZE_LARGE, curl_off_t(body.size()));
    }
    curl_easy_setopt(curl.get(), CURLOPT_HTTPHEADER, headers);
    curl_easy_setopt(curl.get(), CURLOPT_NOPROXY, "*");  // loopback, never through a proxy
    curl_easy_setopt(curl.get(), CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl.get(), CURLOPT_CONNECTTIMEOUT, 10L);
    curl_easy_setopt(curl.get(), CURLOPT_WRITEFUNCTION, collectBody);
    curl_easy_setopt(curl.get(), CURLOPT_WRITEDATA, &answer.body);
    curl_easy_setopt(curl.get(), CURLOPT_HEADERFUNCTION, collectHeader);
    curl_easy_setopt(curl.get(), CURLOPT_HEADERDATA, &answer);
    const CURLcode code = curl_easy_perform(curl.get());
    curl_slist_free_all(headers);
    if (code != CURLE_OK) {
        answer.failure = QString::fromUtf8(curl_easy_strerror(code));
        return answer;
    }
    answer.reached = true;
    curl_easy_getinfo(curl.get(), CURLINFO_RESPONSE_CODE, &answer.status);
    return answer;
}

void writeMessage(std::FILE *out, const QByteArray &message)
{
    std::fwrite(message.constData(), 1, size_t(message.size()), out);
    std::fputc('\n', out);
    std::fflush(out);
}

void note(std::FILE *log, const QString &text)
{
    std::fputs((QStringLiteral("kelvara serve: ") + text + QLatin1Char('\n')).toLocal8Bit().constData(), log);
    std::fflush(log);
}

// The protocol version an initialize result agreed on, sent with every later request.
QByteArray agreedVersion(const QList<QByteArray> &messages)
{
    for (const QByteArray &message : messages) {
        const QJsonObject result = QJsonDocument::fromJson(message).object().value(QStringLiteral("result")).toObject();
        if (result.contains(QStringLiteral("protocolVersion")) && result.contains(QStringLiteral("serverInfo")))
            return result.value(QStringLiteral("protocolVersion")).toString().toUtf8();
    }
    return {};
}

}  // namespace

QList<QByteArray> StdioRelay::messagesOf(const QByteArray &contentType, const QByteArray &body)
{
    QList<QByteArray> texts;
    const QByteArray type = contentType.split(';').first().trimmed().toLower();
    if (type == "text/event-stream") {
        // Events end at a blank line; an event's data lines join with line ends.
        QByteArray data;
        bool hasData = false;
        const QByteArray normalised = QByteArray(body).replace("\r\n", "\n").replace('\r', '\n') + "\n\n";
        for (const QByteArray &line : normalised.split('\n')) {
            if (line.isEmpty()) {
                if (hasData)
                    texts.append(data);
                data.clear();
                hasData = false;
            } else if (line.startsWith("data:")) {
                QByteArray value = line.mid(5);
                if (value.startsWith(' '))
                    value.remove(0, 1);
                if (hasData)
                    data += '\n';
                data += value;
                hasData = true;
            }
        }
    } else if (!body.trimmed().isEmpty()) {
        texts.append(body);
    }
    QList<QByteArray> messages;
    for (const QByteArray &text : texts) {
        QJsonParseError error;
        const QJsonDocument document = QJsonDocument::fromJson(text, &error);
        if (error.error == QJsonParseError::NoError && !document.isNull())
            messages.append(document.toJson(QJsonDocument::Compact));
    }
    return messages;
}

QByteArray StdioRelay::errorFor(const QJsonValue &id, int code, const QString &message)
{
    const QJsonObject response{{QStringLiteral("jsonrpc"), QStringLiteral("2.0")},
                               {QStringLiteral("id"), id},
                               {QStringLiteral("error"), QJsonObject{{QStringLiteral("code"), code},
                                                                     {QStringLiteral("message"), message}}}};
    return QJsonDocument(response).toJson(QJsonDocument::Compact);
}

QList<QJsonValue> StdioRelay::requestIds(const QByteArray &line)
{
    QList<QJsonValue> ids;
    const QJsonDocument document = QJsonDocument::fromJson(line);
    QJsonArray messages;
    if (document.isArray())
        messages = document.array();
    else if (document.isObject())
        messages.append(document.object());
    for (const QJsonValue &message : messages) {
        const QJsonObject object = message.toObject();
        if (object.contains(QStringLiteral("method")) && object.contains(QStringLiteral("id")))
            ids.append(object.value(QStringLiteral("id")));
    }
    return ids;
}

int StdioRelay::run(qint64 holder, std::FILE *in, std::FILE *out, std::FILE *log)
{
    curl_global_init(CURL_GLOBAL_DEFAULT);
    // The server to relay to: the one the holder of the store published, if it still runs.
    auto currentPort = [holder]() -> int {
        const std::optional<RunningServer::Record> record = RunningServer::read();
        return record && (holder == 0 || record->pid == holder) ? record->port : 0;
    };
    int port = currentPort();
    if (port)
        note(log, QStringLiteral("the store is in use by Kelvara (process %1): relaying to its MCP server at "
                                 "http://127.0.0.1:%2/mcp")
                      .arg(holder)
                      .arg(port));
    else
        note(log, stoppedText);

    QByteArray sessionId;
    QByteArray protocolVersion;
    char *buffer = nullptr;
    size_t capacity = 0;
    ssize_t length = 0;
    while ((length = ::getline(&buffer, &capacity, in)) >= 0) {
        const QByteArray line = QByteArray(buffer, qsizetype(length)).trimmed();
        if (line.isEmpty())
            continue;
        const QList<QJsonValue> ids = requestIds(line);
        auto failEach = [&](int code, const QString &message) {
            for (const QJsonValue &id : ids)
                writeMessage(out, errorFor(id, code, message));
        };
        // A window started or restarted its server meanwhile: find where it listens now.
        if (!port)
            port = currentPort();
        Answer answer;
        if (port)
            answer = exchange(port, "POST", line, sessionId, protocolVersion);
        if (port && !answer.reached) {
            port = currentPort();
            if (port)
                answer = exchange(port, "POST", line, sessionId, protocolVersion);
        }
        if (!answer.reached) {
            if (port)
                note(log, QStringLiteral("Kelvara's MCP server at port %1 did not answer: %2").arg(port).arg(answer.failure));
            port = 0;
            failEach(stoppedCode, stoppedText);
            continue;
        }
        if (!answer.sessionId.isEmpty())
            sessionId = answer.sessionId;
        const QList<QByteArray> messages = messagesOf(answer.contentType, answer.body);
        if (messages.isEmpty() && answer.status >= 400) {
            failEach(stoppedCode, QStringLiteral("Kelvara's MCP server answered HTTP %1: %2")
                                      .arg(answer.status)
                                      .arg(QString::fromUtf8(answer.body.trimmed().left(500))));
            continue;
        }
        if (const QByteArray version = agreedVersion(messages); !version.isEmpty())
            protocolVersion = version;
        for (const QByteArray &message : messages)
            writeMessage(out, message);
    }
    std::free(buffer);
    // The session ends with the client, as a client of the server itself would end it.
    if (port && !sessionId.isEmpty())
        exchange(port, "DELETE", {}, sessionId, protocolVersion);
    curl_global_cleanup();
    return 0;
}
