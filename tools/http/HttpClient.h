#pragma once

#include "base/Result.h"
#include "tools/http/HttpClientResult.h"
#include "tools/http/HttpRequest.h"

#include <QString>
#include <optional>

// A small blocking HTTP client for code that runs a tool (scripts through the host object,
// plug-in bridges, link resources). Every operation blocks the calling thread until the
// exchange is over; concurrent calls on one client are fine.
//
// Each transfer is its own libcurl easy handle: nothing persists between requests (no
// cookie engine, no cache, no connection reuse), and libcurl takes the proxy from the
// environment (http_proxy, https_proxy, no_proxy, all_proxy).
//
// Time-outs follow the model of a URL session. The request time-out (timeoutInterval, which
// each request copies when it is built) is how long a transfer may go without any data
// moving: it is libcurl's connect time-out, and an idle watch in the progress callback ends
// a transfer whose byte counts have stood still that long. The resource time-out, fixed at
// creation to four times the initial timeoutInterval, caps the whole transfer
// (CURLOPT_TIMEOUT_MS). Both surface as the error "The request timed out.".
//
// A response body is held in memory only up to a size (maxResponseBytes): past it the
// transfer ends with an error that names the limit. A download, which goes to a file, has no
// such limit. Every transfer also ends early when the check its thread installed
// (TransferStopCheck, a script's time and memory limits) gives a reason to stop.
//
// Each "JSON" argument is a text holding a JSON object; an empty or null text counts as none.
class HttpClient
{
public:
    // The settings key of the largest response body in bytes; 16 MiB when unset or not
    // positive, like the largest file a tool reads.
    static inline const QString maxResponseBytesKey = QStringLiteral("mcp.http.maxResponseBytes");
    static constexpr qint64 defaultMaxResponseBytes = qint64(16) << 20;
    static qint64 configuredMaxResponseBytes();

    explicit HttpClient(double timeoutInterval = 30.0);

    // The process-wide client, made on first use.
    static HttpClient &shared();

    // Plain fields, set once after creation.
    double timeoutInterval;
    bool verboseLogging = false;
    // The largest response body in bytes; 0 or less for the configured one, read at each request.
    qint64 maxResponseBytes = 0;

    // The session's cap on a whole transfer, in seconds.
    double resourceTimeoutInterval() const { return m_resourceTimeoutInterval; }

    // The exchange as scripts and plug-ins see it: a request that can't be built or a
    // transfer that fails comes back in the result's error, as an HTTP error status does in
    // its status.
    HttpClientResult get(const QString &url, const QString &query = {});
    HttpClientResult post(const QString &url, const QString &body, const QString &headersJSON = {});
    HttpClientResult request(const QString &method, const QString &url, const QString &body,
                             const QString &paramsJSON, const QString &headersJSON);
    // Writes the response body to destination, which is replaced only after a 2xx answer.
    Result<void> downloadFile(const QString &url, const QString &destination);

    Result<HttpRequest> buildRequest(const QString &method, const QString &url, const QString &body,
                                     const QString &paramsJSON, const QString &headersJSON);
    HttpClientResult executeRequest(const HttpRequest &request);

private:
    double m_resourceTimeoutInterval;
};
