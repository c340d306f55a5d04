#include "app/StdioRelay.h"

#include "app/config/RunningServer.h"
#include "store/ServerAccessSettings.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <curl/curl.h>

#include <cstdlib>
#include <stdio.h>

#include <memory>
#include <chrono>
#include <future>
#include <mutex>
#include <vector>

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

namespace {

// One relay's state, shared by the requests in flight.
class Relay {
public:
    Relay(qint64 holder, std::FILE *out, std::FILE *log) : m_holder(holder), m_out(out), m_log(log) {}

    // The server to relay to: the one the holder of the store published, if it still runs.
    int currentPort() const
    {
        const std::optional<RunningServer::Record> record = RunningServer::read();
        return record && (m_holder == 0 || record->pid == m_holder) ? record->port : 0;
    }

    void start()
    {
        m_port = currentPort();
        if (m_port)
            note(m_log, QStringLiteral("the store is in use by Kelvara (process %1): relaying to its MCP server at "
                                       "http://127.0.0.1:%2/mcp")
                            .arg(m_holder)
                            .arg(m_port));
        else
            note(m_log, StdioRelay::stoppedText);
    }

    // Whether requests may go out side by side: once the session is set up, a long call
    // must not hold back a cancellation or a ping behind it.
    bool initialized() const
    {
        const std::lock_guard lock(m_mutex);
        return m_initialized;
    }

    void handle(const QByteArray &line)
    {
        const QList<QJsonValue> ids = StdioRelay::requestIds(line);
        auto failEach = [&](int code, const QString &message) {
            const std::lock_guard lock(m_outMutex);
            for (const QJsonValue &id : ids)
                writeMessage(m_out, StdioRelay::errorFor(id, code, message));
        };
        int port = 0;
        QByteArray sessionId;
        QByteArray protocolVersion;
        {
            const std::lock_guard lock(m_mutex);
            // A window started or restarted its server meanwhile: find where it listens now.
            if (!m_port)
                m_port = currentPort();
            port = m_port;
            sessionId = m_sessionId;
            protocolVersion = m_protocolVersion;
        }
        Answer answer;
        if (port)
            answer = exchange(port, "POST", line, sessionId, protocolVersion);
        if (port && !answer.reached) {
            port = currentPort();
            if (port)
                answer = exchange(port, "POST", line, sessionId, protocolVersion);
        }
        if (!answer.reached) {
            {
                const std::lock_guard lock(m_mutex);
                m_port = 0;
            }
            if (port) {
                const std::lock_guard lock(m_outMutex);
                note(m_log, QStringLiteral("Kelvara's MCP server at port %1 did not answer: %2").arg(port).arg(answer.failure));
            }
            failEach(StdioRelay::stoppedCode, StdioRelay::stoppedText);
            return;
        }
        const QList<QByteArray> messages = StdioRelay::messagesOf(answer.contentType, answer.body);
        {
            const std::lock_guard lock(m_mutex);
            m_port = port;
            if (!answer.sessionId.isEmpty())
                m_sessionId = answer.sessionId;
            if (const QByteArray version = agreedVersion(messages); !version.isEmpty()) {
                m_protocolVersion = version;
                m_initialized = true;
            }
        }
        if (messages.isEmpty() && answer.status >= 400) {
            failEach(StdioRelay::stoppedCode, QStringLiteral("Kelvara's MCP server answered HTTP %1: %2")
                                                  .arg(answer.status)
                                                  .arg(QString::fromUtf8(answer.body.trimmed().left(500))));
            return;
        }
        const std::lock_guard lock(m_outMutex);
        for (const QByteArray &message : messages)
            writeMessage(m_out, message);
    }

    // The session ends with the client, as a client of the server itself would end it.
    void finish()
    {
        if (m_port && !m_sessionId.isEmpty())
            exchange(m_port, "DELETE", {}, m_sessionId, m_protocolVersion);
    }

private:
    const qint64 m_holder;
    std::FILE *const m_out;
    std::FILE *const m_log;
    mutable std::mutex m_mutex;  // the fields below
    int m_port = 0;
    QByteArray m_sessionId;
    QByteArray m_protocolVersion;
    bool m_initialized = false;
    std::mutex m_outMutex;  // whole lines on the output and the log
};

}  // namespace

int StdioRelay::run(qint64 holder, std::FILE *in, std::FILE *out, std::FILE *log)
{
    curl_global_init(CURL_GLOBAL_DEFAULT);
    Relay relay(holder, out, log);
    relay.start();
    std::vector<std::future<void>> inFlight;
    char *buffer = nullptr;
    size_t capacity = 0;
    ssize_t length = 0;
    while ((length = ::getline(&buffer, &capacity, in)) >= 0) {
        const QByteArray line = QByteArray(buffer, qsizetype(length)).trimmed();
        if (line.isEmpty())
            continue;
        // Notifications and the handshake go out in order, each before the next line is
        // read; requests after the handshake run side by side.
        std::erase_if(inFlight, [](const std::future<void> &request) {
            return request.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
        });
        if (relay.initialized() && !requestIds(line).isEmpty())
            inFlight.push_back(std::async(std::launch::async, [&relay, line] { relay.handle(line); }));
        else
            relay.handle(line);
    }
    std::free(buffer);
    for (std::future<void> &request : inFlight)
        request.wait();
    relay.finish();
    curl_global_cleanup();
    return 0;
}
