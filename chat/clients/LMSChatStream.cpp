#include "chat/clients/LMSChatStream.h"

#include "chat/clients/ChatHttpSession.h"
#include "chat/clients/LMSStreamParser.h"

#include <QJsonDocument>
#include <QMetaObject>
#include <QPointer>

#include <curl/curl.h>
#include <algorithm>
#include <chrono>
#include <mutex>

// What the worker and the object share: the worker keeps it alive through its own pointer,
// and checks `cancelled` before each delivery and in every callback.
struct LMSChatStream::Shared {
    std::atomic<bool> cancelled{false};
    QPointer<LMSChatStream> owner;
    LMSStreamParser parser;
    long status = 0;
    QByteArray errorBody;
    bool ended = false;  // chat.end came
    // The stall watch: the time of the last byte (the start at first), in steady-clock ticks,
    // and the limit; the worker alone touches them.
    std::chrono::steady_clock::time_point lastByte = std::chrono::steady_clock::now();
    std::chrono::seconds stallLimit{0};
    bool stalled = false;
};

namespace {

size_t onBody(char *data, size_t size, size_t count, void *context)
{
    auto *shared = static_cast<LMSChatStream::Shared *>(context);
    const size_t bytes = size * count;
    if (shared->cancelled.load())
        return 0;
    shared->lastByte = std::chrono::steady_clock::now();
    if (shared->status < 200 || shared->status > 299) {
        shared->errorBody.append(data, qsizetype(bytes));
        return bytes;
    }
    const QList<LMSStreamEvent> events = shared->parser.feed(QByteArrayView(data, qsizetype(bytes)));
    for (const LMSStreamEvent &event : events) {
        QPointer<LMSChatStream> owner = shared->owner;
        auto *cancelled = &shared->cancelled;
        // In order on the owner's thread; a cancel between here and there drops it.
        QMetaObject::invokeMethod(
            owner.data(),
            [owner, event, cancelled] {
                if (owner && !cancelled->load())
                    emit owner->event(event);
            },
            Qt::QueuedConnection);
    }
    if (shared->parser.finished()) {
        shared->ended = true;
        return 0;  // stop reading: the reply is complete
    }
    return bytes;
}

size_t onHeader(char *data, size_t size, size_t count, void *context)
{
    auto *shared = static_cast<LMSChatStream::Shared *>(context);
    shared->lastByte = std::chrono::steady_clock::now();
    const QByteArray line(data, qsizetype(size * count));
    if (line.startsWith("HTTP/")) {
        const QList<QByteArray> parts = line.split(' ');
        if (parts.size() > 1)
            shared->status = parts.at(1).toLong();
    }
    return size * count;
}

// libcurl calls this about once a second also while nothing arrives, so a silent server is
// noticed within a second of the limit. Header bytes count as bytes too.
int onProgress(void *context, curl_off_t, curl_off_t, curl_off_t, curl_off_t)
{
    auto *shared = static_cast<LMSChatStream::Shared *>(context);
    if (shared->cancelled.load())
        return 1;
    if (shared->stallLimit.count() > 0 && std::chrono::steady_clock::now() - shared->lastByte >= shared->stallLimit) {
        shared->stalled = true;
        return 1;
    }
    return 0;
}

}  // namespace

LMSChatStream::LMSChatStream(QString base, QString token, QObject *parent)
    : QObject(parent), m_base(std::move(base)), m_token(std::move(token)), m_shared(std::make_shared<Shared>())
{
    m_shared->owner = this;
}

LMSChatStream::~LMSChatStream()
{
    cancel();
    if (m_worker.joinable())
        m_worker.join();
}

QString LMSChatStream::httpErrorText(int status, const QString &body)
{
    return QStringLiteral("HTTP %1: Request failed.\n%2").arg(status).arg(body);
}

QString LMSChatStream::stallText(int seconds)
{
    return QStringLiteral("No data from the model for %1 s: the answer was stopped.").arg(seconds);
}

void LMSChatStream::cancel()
{
    m_shared->cancelled.store(true);
}

void LMSChatStream::start(const LMSChatRequest &request)
{
    if (m_running || m_worker.joinable())
        return;
    m_running = true;
    const QByteArray url = ChatHttpSession::routeUrl(m_base, QStringLiteral("/api/v1/chat")).toUtf8();
    const QByteArray body = QJsonDocument(request.toJson()).toJson(QJsonDocument::Compact);
    const QByteArray authorization = m_token.isEmpty() ? QByteArray() : ("Authorization: Bearer " + m_token.toUtf8());
    std::shared_ptr<Shared> shared = m_shared;
    shared->stallLimit = std::chrono::seconds(std::max(0, m_stallSeconds));
    shared->lastByte = std::chrono::steady_clock::now();
    const int stallSeconds = m_stallSeconds;
    m_worker = std::thread([shared, url, body, authorization, stallSeconds] {
        static std::once_flag once;
        std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
        CURL *curl = curl_easy_init();
        char errorBuffer[CURL_ERROR_SIZE] = {};
        curl_slist *headers = nullptr;
        headers = curl_slist_append(headers, "Content-Type: application/json");
        headers = curl_slist_append(headers, "Accept: text/event-stream");
        if (!authorization.isEmpty())
            headers = curl_slist_append(headers, authorization.constData());
        curl_easy_setopt(curl, CURLOPT_URL, url.constData());
        curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
        curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, errorBuffer);
        curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers);
        curl_easy_setopt(curl, CURLOPT_POSTFIELDS, body.constData());
        curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE, long(body.size()));
        curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, &onBody);
        curl_easy_setopt(curl, CURLOPT_WRITEDATA, shared.get());
        curl_easy_setopt(curl, CURLOPT_HEADERFUNCTION, &onHeader);
        curl_easy_setopt(curl, CURLOPT_HEADERDATA, shared.get());
        curl_easy_setopt(curl, CURLOPT_XFERINFOFUNCTION, &onProgress);
        curl_easy_setopt(curl, CURLOPT_XFERINFODATA, shared.get());
        curl_easy_setopt(curl, CURLOPT_NOPROGRESS, 0L);
        // A local model may take minutes to load before its first token.
        curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT, 60L);
        const CURLcode code = curl_easy_perform(curl);
        curl_slist_free_all(headers);
        curl_easy_cleanup(curl);
        shared->parser.end();

        std::optional<QString> error;
        const bool stalled = shared->stalled && !shared->cancelled.load();
        if (stalled)
            error = LMSChatStream::stallText(stallSeconds);
        else if (shared->status != 0 && (shared->status < 200 || shared->status > 299))
            error = LMSChatStream::httpErrorText(int(shared->status), QString::fromUtf8(shared->errorBody));
        else if (code != CURLE_OK && !shared->ended && !shared->cancelled.load())
            error = QString::fromLocal8Bit(errorBuffer[0] ? errorBuffer : curl_easy_strerror(code));
        QPointer<LMSChatStream> owner = shared->owner;
        auto *cancelled = &shared->cancelled;
        QMetaObject::invokeMethod(
            owner.data(),
            [owner, error, cancelled, shared, stalled] {
                if (!owner)
                    return;
                owner->m_running = false;
                owner->m_stalled = stalled;
                if (!cancelled->load())
                    emit owner->finished(error);
            },
            Qt::QueuedConnection);
    });
}
