#pragma once

#include "base/AppError.h"

// Errors raised by HttpClient itself. Failures of the transfer (refused connection, time-out)
// carry the domain "libcurl" and curl's code instead; a download's bad status carries the
// HTTP status as its code.
namespace HttpClientError {

inline QString domain()
{
    return QStringLiteral("com.tamsel.kelvara.HttpClient");
}

enum Code {
    CannotEncodeJSON = 1001,
    JSONNotAnObject = 1002,
    InvalidParamsJSON = 1010,
    MalformedURL = 1011,
    InvalidHeadersJSON = 1012,
    CannotEncodeBody = 1013,
    MalformedDownloadURL = 1020,
    ResponseTooLarge = 1030,
    TransferStopped = 1031,
};

inline AppError make(int code, const QString &description)
{
    return AppError{domain(), code, description};
}

inline AppError cannotEncodeJSON() { return make(CannotEncodeJSON, QStringLiteral("Cannot encode JSON string as UTF-8 data")); }
inline AppError jsonNotAnObject() { return make(JSONNotAnObject, QStringLiteral("JSON value is not an object / dictionary")); }
inline AppError invalidParamsJSON(const AppError &cause) { return make(InvalidParamsJSON, QStringLiteral("Invalid params JSON: ") + cause.description); }
inline AppError malformedURL(const QString &url) { return make(MalformedURL, QStringLiteral("Malformed URL: ") + url); }
inline AppError invalidHeadersJSON(const AppError &cause) { return make(InvalidHeadersJSON, QStringLiteral("Invalid headers JSON: ") + cause.description); }
inline AppError cannotEncodeBody() { return make(CannotEncodeBody, QStringLiteral("Cannot encode request body as UTF-8")); }
inline AppError malformedDownloadURL(const QString &url) { return make(MalformedDownloadURL, QStringLiteral("Malformed URL: ") + url); }
// limitKey names the setting, so that the message says where the limit comes from.
inline AppError responseTooLarge(qint64 limit, const QString &limitKey)
{
    return make(ResponseTooLarge, QStringLiteral("The response is larger than %1 bytes, the limit of %2").arg(limit).arg(limitKey));
}
// The caller's reason, such as a script's time limit.
inline AppError transferStopped(const QString &reason) { return make(TransferStopped, reason); }
inline AppError httpStatus(long status) { return make(int(status), QStringLiteral("Server returned HTTP %1").arg(status)); }

}  // namespace HttpClientError
