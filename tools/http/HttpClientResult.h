#pragma once

#include "base/AppError.h"

#include <QMap>
#include <QString>
#include <optional>

// What one HTTP exchange gave. An HTTP error status is no failure here: it shows as
// success false with the status and body, and no error.
struct HttpClientResult {
    int statusCode = 0;  // 0 when no response came
    QString body;
    QMap<QString, QString> headers;
    bool success = false;  // status 200 to 299
    std::optional<AppError> error;

    static HttpClientResult withError(const AppError &error);

    // One compact JSON object with "success", "statusCode", "headers", "body" and "error"
    // (the error's description, "" without an error): the text scripts and plug-ins see.
    QString toJSONString() const;
};
