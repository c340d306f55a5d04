#include "chat/clients/ChatHttpSession.h"

#include <QStringDecoder>
#include <QUrl>

#include <curl/curl.h>
#include <mutex>

namespace {

size_t collect(char *data, size_t size, size_t count, void *context)
{
    static_cast<QByteArray *>(context)->append(data, qsizetype(size * count));
    return size * count;
}

} // namespace

ChatHttpSession::Reply ChatHttpSession::perform(const Request &request)
{
    static std::once_flag once;
    std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
    Reply reply;
    CURL *curl = curl_easy_init();
    if (!curl) {
        reply.transportError = QStringLiteral("The HTTP library could not start a transfer.");
        return reply;
    }
    char errorBuffer[CURL_ERROR_SIZE] = {};
    curl_slist *headers = nullptr;
    for (const auto &[name, value] : request.headers)
        headers = curl_slist_append(headers, (name + ": " + value).constData());
    // libcurl would add "Expect: 100-continue" to larger bodies and wait for it.
    headers = curl_slist_append(headers, "Expect:");
    const QByteArray url = request.url.toUtf8();
    curl_easy_setopt(curl, CURLOPT_URL, url.constData());
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, errorBuffer);
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers);
    curl_easy_setopt(curl, CURLOPT_CUSTOMREQUEST, request.method.constData());
    if (request.method != "GET") {
        curl_easy_setopt(curl, CURLOPT_POSTFIELDS, request.body.constData());
        curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE, long(request.body.size()));
    } else {
        curl_easy_setopt(curl, CURLOPT_HTTPGET, 1L);
    }
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, &collect);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &reply.body);
    curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT, request.connectTimeoutSeconds);
    curl_easy_setopt(curl, CURLOPT_TIMEOUT, request.totalTimeoutSeconds);
    if (request.stallTimeoutSeconds > 0) {
        curl_easy_setopt(curl, CURLOPT_LOW_SPEED_LIMIT, 1L);
        curl_easy_setopt(curl, CURLOPT_LOW_SPEED_TIME, request.stallTimeoutSeconds);
    }
    const CURLcode code = curl_easy_perform(curl);
    long status = 0;
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
    curl_slist_free_all(headers);
    curl_easy_cleanup(curl);
    reply.status = int(status);
    if (code != CURLE_OK)
        reply.transportError = QString::fromLocal8Bit(errorBuffer[0] ? errorBuffer : curl_easy_strerror(code));
    return reply;
}

QString ChatHttpSession::routeUrl(const QString &base, const QString &path)
{
    auto trimmed = [](QString text) {
        while (text.startsWith(QLatin1Char('/')))
            text.remove(0, 1);
        while (text.endsWith(QLatin1Char('/')))
            text.chop(1);
        return text;
    };
    const QString joined = trimmed(base) + QLatin1Char('/') + trimmed(path);
    return QUrl(joined, QUrl::StrictMode).isValid() ? joined : base;
}

bool ChatHttpSession::isValidBaseURL(const QString &base)
{
    const QUrl url(base, QUrl::StrictMode);
    return url.isValid() && !url.scheme().isEmpty() && !url.host().isEmpty();
}

std::optional<QString> ChatHttpSession::utf8(const QByteArray &bytes)
{
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString text = decoder.decode(bytes);
    if (decoder.hasError())
        return std::nullopt;
    return text;
}
