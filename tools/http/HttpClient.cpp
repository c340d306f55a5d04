#include "tools/http/HttpClient.h"

#include "base/SystemLog.h"
#include "base/UserDefaults.h"
#include "tools/http/HttpClientError.h"
#include "tools/http/TransferStopCheck.h"
#include "tools/http/Utf8Text.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>
#include <QRandomGenerator>
#include <QStringDecoder>

#include <curl/curl.h>

#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <mutex>
#include <system_error>
#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;
using Fields = QList<QPair<QString, QString>>;

const char *const kDefaultAccept = "application/json, text/plain, text/html, text/xml, */*";

QString yesNo(bool value)
{
    return value ? QStringLiteral("YES") : QStringLiteral("NO");
}

void ensureCurlInitialised()
{
    static std::once_flag once;
    std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

AppError posixError(int code)
{
    return AppError{QStringLiteral("POSIX"), code, QString::fromLocal8Bit(std::strerror(code))};
}

// The text form of a JSON value used for query items and header values.
QString textForm(const QJsonValue &value)
{
    switch (value.type()) {
    case QJsonValue::String:
        return value.toString();
    case QJsonValue::Bool:
        return value.toBool() ? QStringLiteral("true") : QStringLiteral("false");
    case QJsonValue::Double: {
        const double number = value.toDouble();
        if (std::isfinite(number) && number == std::trunc(number) && std::fabs(number) < 9007199254740992.0)
            return QString::number(qint64(number));
        return QString::number(number, 'g', QLocale::FloatingPointShortest);
    }
    case QJsonValue::Array:
        return QString::fromUtf8(QJsonDocument(value.toArray()).toJson(QJsonDocument::Compact));
    case QJsonValue::Object:
        return QString::fromUtf8(QJsonDocument(value.toObject()).toJson(QJsonDocument::Compact));
    default:
        return QStringLiteral("null");
    }
}

// Parses a JSON argument into name/value pairs of text. An empty text gives no pairs and no
// error. The pairs come in the object's key order.
Result<Fields> parseJSONArgument(const QString &text)
{
    Fields fields;
    if (text.isEmpty())
        return fields;
    if (!Utf8Text::isEncodable(text))
        return HttpClientError::cannotEncodeJSON();
    QJsonParseError parseError{};
    const QJsonDocument document = QJsonDocument::fromJson(text.toUtf8(), &parseError);
    if (parseError.error != QJsonParseError::NoError)
        return AppError{QStringLiteral("QJsonParseError"), int(parseError.error),
                        QStringLiteral("%1 at offset %2").arg(parseError.errorString()).arg(parseError.offset)};
    if (!document.isObject())
        return HttpClientError::jsonNotAnObject();
    const QJsonObject object = document.object();
    for (auto it = object.constBegin(); it != object.constEnd(); ++it)
        fields.append({it.key(), textForm(it.value())});
    return fields;
}

bool isUsableUrl(const QUrl &url)
{
    return url.isValid() && !url.isEmpty();
}

// Appends the items to the URL's query, keeping what is there (and any fragment after it).
QString appendQueryItems(const QString &url, const Fields &items)
{
    QString base = url;
    QString fragment;
    const qsizetype hash = base.indexOf(QLatin1Char('#'));
    if (hash >= 0) {
        fragment = base.mid(hash);
        base.truncate(hash);
    }
    QString query;
    for (const auto &item : items) {
        if (!query.isEmpty())
            query += QLatin1Char('&');
        query += QString::fromLatin1(QUrl::toPercentEncoding(item.first)) + QLatin1Char('=')
                 + QString::fromLatin1(QUrl::toPercentEncoding(item.second));
    }
    if (!base.contains(QLatin1Char('?')))
        base += QLatin1Char('?');
    else if (!base.endsWith(QLatin1Char('?')) && !base.endsWith(QLatin1Char('&')))
        base += QLatin1Char('&');
    return base + query + fragment;
}

QString decodeBody(const QByteArray &data)
{
    if (data.isEmpty())
        return QStringLiteral("");
    QStringDecoder utf8(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless | QStringDecoder::Flag::ConvertInitialBom);
    const QString text = utf8.decode(data);
    if (!utf8.hasError())
        return text;
    // Every byte sequence is ISO Latin 1.
    return QString::fromLatin1(data);
}

// One libcurl transfer on the calling thread.
class Transfer
{
public:
    Transfer(const QUrl &url, double idleTimeout, double totalTimeout)
        : m_url(url.toString(QUrl::FullyEncoded).toUtf8()), m_idleLimit(idleTimeout)
    {
        ensureCurlInitialised();
        m_curl = curl_easy_init();
        m_errorBuffer[0] = '\0';
        if (!m_curl)
            return;
        curl_easy_setopt(m_curl, CURLOPT_URL, m_url.constData());
        curl_easy_setopt(m_curl, CURLOPT_NOSIGNAL, 1L);
        curl_easy_setopt(m_curl, CURLOPT_ERRORBUFFER, m_errorBuffer);
        curl_easy_setopt(m_curl, CURLOPT_PROTOCOLS_STR, "http,https");
        curl_easy_setopt(m_curl, CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
        curl_easy_setopt(m_curl, CURLOPT_FOLLOWLOCATION, 1L);
        curl_easy_setopt(m_curl, CURLOPT_MAXREDIRS, 16L);
        curl_easy_setopt(m_curl, CURLOPT_ACCEPT_ENCODING, "");
        curl_easy_setopt(m_curl, CURLOPT_USERAGENT, "Kelvara/" KELVARA_VERSION);
        curl_easy_setopt(m_curl, CURLOPT_FORBID_REUSE, 1L);
        // Connecting counts as waiting for data; the total cap covers everything.
        curl_easy_setopt(m_curl, CURLOPT_CONNECTTIMEOUT_MS, toMilliseconds(idleTimeout));
        curl_easy_setopt(m_curl, CURLOPT_TIMEOUT_MS, toMilliseconds(totalTimeout));
        curl_easy_setopt(m_curl, CURLOPT_NOPROGRESS, 0L);
        curl_easy_setopt(m_curl, CURLOPT_XFERINFOFUNCTION, &Transfer::onProgress);
        curl_easy_setopt(m_curl, CURLOPT_XFERINFODATA, this);
        curl_easy_setopt(m_curl, CURLOPT_HEADERFUNCTION, &Transfer::onHeader);
        curl_easy_setopt(m_curl, CURLOPT_HEADERDATA, this);
        curl_easy_setopt(m_curl, CURLOPT_WRITEFUNCTION, &Transfer::onBody);
        curl_easy_setopt(m_curl, CURLOPT_WRITEDATA, this);
    }

    ~Transfer()
    {
        if (m_headerList)
            curl_slist_free_all(m_headerList);
        if (m_curl)
            curl_easy_cleanup(m_curl);
    }

    Transfer(const Transfer &) = delete;
    Transfer &operator=(const Transfer &) = delete;

    CURL *handle() const { return m_curl; }

    void setMethodAndBody(const QString &method, const QByteArray &body)
    {
        m_method = method.toUtf8();
        if (m_method == "HEAD") {
            curl_easy_setopt(m_curl, CURLOPT_NOBODY, 1L);
            return;
        }
        if (!body.isEmpty()) {
            // The body stays alive in the request for the whole transfer.
            curl_easy_setopt(m_curl, CURLOPT_POSTFIELDSIZE_LARGE, curl_off_t(body.size()));
            curl_easy_setopt(m_curl, CURLOPT_POSTFIELDS, body.constData());
            if (m_method != "POST")
                curl_easy_setopt(m_curl, CURLOPT_CUSTOMREQUEST, m_method.constData());
        } else if (m_method == "GET") {
            curl_easy_setopt(m_curl, CURLOPT_HTTPGET, 1L);
        } else {
            // No body: no upload either, so libcurl adds no Content-Length or Content-Type.
            curl_easy_setopt(m_curl, CURLOPT_CUSTOMREQUEST, m_method.constData());
        }
    }

    void setHeaders(const Fields &headers)
    {
        bool hasExpect = false;
        for (const auto &header : headers) {
            const QString name = singleLine(header.first).trimmed();
            const QString value = singleLine(header.second).trimmed();
            if (name.isEmpty())
                continue;
            hasExpect = hasExpect || name.compare(QLatin1String("Expect"), Qt::CaseInsensitive) == 0;
            // "Name;" is libcurl's way to send a header with an empty value; "Name:" would drop it.
            const QByteArray line = value.isEmpty() ? name.toUtf8() + ';' : name.toUtf8() + ": " + value.toUtf8();
            m_headerList = curl_slist_append(m_headerList, line.constData());
        }
        // No "Expect: 100-continue" round trip for larger bodies.
        if (!hasExpect)
            m_headerList = curl_slist_append(m_headerList, "Expect:");
        curl_easy_setopt(m_curl, CURLOPT_HTTPHEADER, m_headerList);
    }

    // Body bytes go to the file instead of memory.
    void setOutputFile(int fd) { m_outputFd = fd; }

    // The largest body held in memory; 0 for none. A declared length over it is refused
    // before the body comes.
    void setBodyLimit(qint64 limit)
    {
        m_bodyLimit = limit;
        if (limit > 0)
            curl_easy_setopt(m_curl, CURLOPT_MAXFILESIZE_LARGE, curl_off_t(limit));
    }

    // Runs the transfer. On failure gives the error; otherwise the status is in status().
    std::optional<AppError> perform()
    {
        if (!m_curl)
            return AppError{QStringLiteral("libcurl"), CURLE_FAILED_INIT, QStringLiteral("Could not start a transfer")};
        m_lastActivity = Clock::now();
        // A call that is over already starts nothing.
        if ((m_stopReason = TransferStopCheck::reasonToStop()))
            return HttpClientError::transferStopped(*m_stopReason);
        const CURLcode code = curl_easy_perform(m_curl);
        if (m_stopReason)
            return HttpClientError::transferStopped(*m_stopReason);
        if (m_bodyTooLarge || code == CURLE_FILESIZE_EXCEEDED)
            return HttpClientError::responseTooLarge(m_bodyLimit, HttpClient::maxResponseBytesKey);
        if (m_idleTimedOut || code == CURLE_OPERATION_TIMEDOUT)
            return AppError{QStringLiteral("libcurl"), CURLE_OPERATION_TIMEDOUT, QStringLiteral("The request timed out.")};
        if (code != CURLE_OK) {
            const QString text = m_errorBuffer[0] ? QString::fromUtf8(m_errorBuffer) : QString::fromUtf8(curl_easy_strerror(code));
            return AppError{QStringLiteral("libcurl"), int(code), text};
        }
        long status = 0;
        curl_easy_getinfo(m_curl, CURLINFO_RESPONSE_CODE, &status);
        m_status = status;
        return std::nullopt;
    }

    long status() const { return m_status; }
    const QByteArray &body() const { return m_body; }
    QMap<QString, QString> headers() const
    {
        QMap<QString, QString> map;
        for (const auto &header : m_responseHeaders)
            map.insert(header.first, header.second);
        return map;
    }

private:
    static long toMilliseconds(double seconds)
    {
        if (!(seconds > 0))
            return 0;  // libcurl: no limit
        return long(std::ceil(seconds * 1000.0));
    }

    static QString singleLine(QString text)
    {
        text.replace(QLatin1Char('\r'), QLatin1Char(' '));
        text.replace(QLatin1Char('\n'), QLatin1Char(' '));
        return text;
    }

    static int onProgress(void *self, curl_off_t, curl_off_t dlnow, curl_off_t, curl_off_t ulnow)
    {
        auto *transfer = static_cast<Transfer *>(self);
        // libcurl calls this at least about once a second, also while nothing arrives: a
        // trickling answer ends here as soon as the caller's limit has passed.
        if ((transfer->m_stopReason = TransferStopCheck::reasonToStop()))
            return 1;
        const auto now = Clock::now();
        if (dlnow != transfer->m_lastDownloaded || ulnow != transfer->m_lastUploaded) {
            transfer->m_lastDownloaded = dlnow;
            transfer->m_lastUploaded = ulnow;
            transfer->m_lastActivity = now;
            return 0;
        }
        if (transfer->m_idleLimit > 0
            && std::chrono::duration<double>(now - transfer->m_lastActivity).count() >= transfer->m_idleLimit) {
            transfer->m_idleTimedOut = true;
            return 1;
        }
        return 0;
    }

    static size_t onHeader(char *data, size_t size, size_t count, void *self)
    {
        auto *transfer = static_cast<Transfer *>(self);
        const size_t length = size * count;
        transfer->m_lastActivity = Clock::now();
        const QByteArray line = QByteArray(data, qsizetype(length)).trimmed();
        if (line.startsWith("HTTP/")) {
            // A new response (after a redirect or an interim 1xx) starts a new set of fields.
            transfer->m_responseHeaders.clear();
            return length;
        }
        const qsizetype colon = line.indexOf(':');
        if (colon <= 0)
            return length;
        const QString name = QString::fromLatin1(line.left(colon).trimmed());
        const QString value = QString::fromLatin1(line.mid(colon + 1).trimmed());
        for (auto &header : transfer->m_responseHeaders) {
            if (header.first.compare(name, Qt::CaseInsensitive) == 0) {
                header.second += QStringLiteral(", ") + value;
                return length;
            }
        }
        transfer->m_responseHeaders.append({name, value});
        return length;
    }

    static size_t onBody(char *data, size_t size, size_t count, void *self)
    {
        auto *transfer = static_cast<Transfer *>(self);
        const size_t length = size * count;
        transfer->m_lastActivity = Clock::now();
        if (transfer->m_outputFd < 0) {
            // Counted as it arrives: a body without a length, or one decompressed, has no
            // size to refuse up front.
            if (transfer->m_bodyLimit > 0 && qint64(transfer->m_body.size()) + qint64(length) > transfer->m_bodyLimit) {
                transfer->m_bodyTooLarge = true;
                return 0;  // libcurl ends the transfer with a write error
            }
            transfer->m_body.append(data, qsizetype(length));
            return length;
        }
        size_t written = 0;
        while (written < length) {
            const ssize_t n = ::write(transfer->m_outputFd, data + written, length - written);
            if (n < 0) {
                if (errno == EINTR)
                    continue;
                return 0;  // libcurl ends the transfer with a write error
            }
            written += size_t(n);
        }
        return length;
    }

    CURL *m_curl = nullptr;
    QByteArray m_url;
    QByteArray m_method;
    curl_slist *m_headerList = nullptr;
    char m_errorBuffer[CURL_ERROR_SIZE];
    double m_idleLimit;
    Clock::time_point m_lastActivity = Clock::now();
    curl_off_t m_lastDownloaded = -1;
    curl_off_t m_lastUploaded = -1;
    bool m_idleTimedOut = false;
    int m_outputFd = -1;
    qint64 m_bodyLimit = 0;
    bool m_bodyTooLarge = false;
    std::optional<QString> m_stopReason;
    long m_status = 0;
    QByteArray m_body;
    Fields m_responseHeaders;
};

// The directory part of a path: "" for a bare file name.
QString directoryPart(const QString &path)
{
    const qsizetype slash = path.lastIndexOf(QLatin1Char('/'));
    if (slash < 0)
        return {};
    return slash == 0 ? QStringLiteral("/") : path.left(slash);
}

// A new empty file beside the destination, so the finished download replaces the destination
// by one rename. Permissions follow the umask, as for any new file.
int createPartialFile(const QString &destination, QString *partialPath)
{
    const QString directory = directoryPart(destination);
    const QString name = destination.mid(destination.lastIndexOf(QLatin1Char('/')) + 1);
    for (int attempt = 0; attempt < 100; ++attempt) {
        const QString candidate = (directory.isEmpty() ? QString() : directory + QLatin1Char('/')) + QLatin1Char('.') + name
                                  + QStringLiteral(".%1.download").arg(QRandomGenerator::global()->generate(), 8, 16, QLatin1Char('0'));
        const int fd = ::open(QFile::encodeName(candidate).constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (fd >= 0) {
            *partialPath = candidate;
            return fd;
        }
        if (errno != EEXIST)
            return -1;
    }
    errno = EEXIST;
    return -1;
}

}  // namespace

qint64 HttpClient::configuredMaxResponseBytes()
{
    bool ok = false;
    const qint64 stored = UserDefaults::standard()->value(maxResponseBytesKey).toLongLong(&ok);
    return ok && stored > 0 ? stored : defaultMaxResponseBytes;
}

HttpClient::HttpClient(double timeoutInterval)
    : timeoutInterval(timeoutInterval), m_resourceTimeoutInterval(4.0 * timeoutInterval)
{
    ensureCurlInitialised();
}

HttpClient &HttpClient::shared()
{
    static HttpClient client;
    return client;
}

HttpClientResult HttpClient::get(const QString &url, const QString &query)
{
    const Result<HttpRequest> built = buildRequest(QStringLiteral("GET"), url, QString(), query, QString());
    if (!built) {
        HttpClientResult result = HttpClientResult::withError(built.error());
        result.body = QStringLiteral("");
        return result;
    }
    return executeRequest(*built);
}

HttpClientResult HttpClient::post(const QString &url, const QString &body, const QString &headersJSON)
{
    return request(QStringLiteral("POST"), url, body, QString(), headersJSON);
}

HttpClientResult HttpClient::request(const QString &method, const QString &url, const QString &body,
                                     const QString &paramsJSON, const QString &headersJSON)
{
    const Result<HttpRequest> built = buildRequest(method, url, body, paramsJSON, headersJSON);
    if (!built)
        return HttpClientResult::withError(built.error());
    return executeRequest(*built);
}

Result<HttpRequest> HttpClient::buildRequest(const QString &method, const QString &url, const QString &body,
                                             const QString &paramsJSON, const QString &headersJSON)
{
    QString urlText = url;
    if (!paramsJSON.isEmpty()) {
        const Result<Fields> items = parseJSONArgument(paramsJSON);
        if (!items)
            return HttpClientError::invalidParamsJSON(items.error());
        // A URL that can't be taken apart is left as it is; the next step judges it.
        if (!items->isEmpty() && QUrl(url, QUrl::StrictMode).isValid()) {
            const QString rebuilt = appendQueryItems(url, *items);
            if (!rebuilt.isEmpty())
                urlText = rebuilt;
        }
    }

    const QUrl parsed(urlText, QUrl::StrictMode);
    if (urlText.isEmpty() || !isUsableUrl(parsed))
        return HttpClientError::malformedURL(urlText);

    HttpRequest request;
    request.url = parsed;
    request.method = method.toUpper();
    request.timeoutInterval = timeoutInterval;

    if (!headersJSON.isEmpty()) {
        const Result<Fields> headers = parseJSONArgument(headersJSON);
        if (!headers)
            return HttpClientError::invalidHeadersJSON(headers.error());
        for (const auto &header : *headers)
            request.setValue(header.second, header.first);
    }

    if (!body.isEmpty()) {
        if (!Utf8Text::isEncodable(body))
            return HttpClientError::cannotEncodeBody();
        request.body = body.toUtf8();
        if (!request.hasHeader(QStringLiteral("Content-Length")))
            request.setValue(QString::number(request.body.size()), QStringLiteral("Content-Length"));
        if (!request.hasHeader(QStringLiteral("Content-Type")))
            request.setValue(QStringLiteral("application/json; charset=utf-8"), QStringLiteral("Content-Type"));
    }
    if (!request.hasHeader(QStringLiteral("Accept")))
        request.setValue(QLatin1String(kDefaultAccept), QStringLiteral("Accept"));
    return request;
}

HttpClientResult HttpClient::executeRequest(const HttpRequest &request)
{
    if (verboseLogging)
        SystemLog::write(QStringLiteral("[HttpClient] %1 %2").arg(request.method, request.url.toString()));

    Transfer transfer(request.url, request.timeoutInterval, m_resourceTimeoutInterval);
    transfer.setMethodAndBody(request.method, request.body);
    transfer.setHeaders(request.allHeaderFields());
    transfer.setBodyLimit(maxResponseBytes > 0 ? maxResponseBytes : configuredMaxResponseBytes());

    HttpClientResult result;
    if (const std::optional<AppError> failure = transfer.perform()) {
        result.error = failure;
        result.body = QStringLiteral("");
    } else {
        result.statusCode = int(transfer.status());
        result.success = result.statusCode >= 200 && result.statusCode < 300;
        result.headers = transfer.headers();
        result.body = decodeBody(transfer.body());
    }

    if (verboseLogging)
        SystemLog::write(QStringLiteral("[HttpClient] response status=%1 success=%2").arg(result.statusCode).arg(yesNo(result.success)));
    return result;
}

Result<void> HttpClient::downloadFile(const QString &url, const QString &destination)
{
    auto finish = [&](Result<void> outcome) {
        if (verboseLogging)
            SystemLog::write(QStringLiteral("[HttpClient] download %1 -> %2 success=%3").arg(url, destination, yesNo(outcome.ok())));
        return outcome;
    };

    const QUrl parsed(url, QUrl::StrictMode);
    if (url.isEmpty() || !isUsableUrl(parsed)) 
        return finish(HttpClientError::malformedDownloadURL(url));

    const QString directory = directoryPart(destination);
    if (!directory.isEmpty()) {
        std::error_code code;
        std::filesystem::create_directories(std::filesystem::path(QFile::encodeName(directory).toStdString()), code);
        if (code && code != std::errc::file_exists) 
            return finish(posixError(code.value()));
    }

    QString partialPath;
    const int fd = createPartialFile(destination, &partialPath);
    if (fd < 0) 
        return finish(posixError(errno));
    const QByteArray partialName = QFile::encodeName(partialPath);

    const double timeout = 4.0 * timeoutInterval;
    Transfer transfer(parsed, timeout, m_resourceTimeoutInterval);
    transfer.setOutputFile(fd);
    std::optional<AppError> transferError = transfer.perform();
    const int closed = ::close(fd);
    const int closeErrno = errno;
    if (!transferError && closed != 0)
        transferError = posixError(closeErrno);

    if (transferError) {
        ::unlink(partialName.constData());
        return finish(*transferError);
    }
    const long status = transfer.status();
    if (status < 200 || status >= 300) {
        ::unlink(partialName.constData());
        return finish(HttpClientError::httpStatus(status));
    }
    // One rename replaces the old file, so a reader never sees a half-written destination.
    if (::rename(partialName.constData(), QFile::encodeName(destination).constData()) != 0) {
        const AppError renameError = posixError(errno);
        ::unlink(partialName.constData());
        return finish(renameError);
    }
    return finish({});
}
