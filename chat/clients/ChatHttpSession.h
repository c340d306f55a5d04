#pragma once

#include <QByteArray>
#include <QList>
#include <QPair>
#include <QString>
#include <optional>

// One blocking HTTP request on libcurl for the providers' clients. Any thread; each call has its
// own handle, so calls on several threads share nothing.
class ChatHttpSession {
public:
    struct Request {
        QString url;
        QByteArray method = "GET";
        QList<QPair<QByteArray, QByteArray>> headers;
        QByteArray body;
        long connectTimeoutSeconds = 60;
        long totalTimeoutSeconds = 130; // the whole transfer; 0 for none
        // Given up when no byte (below one a second) comes for this long, also while the
        // server works on its answer; 0 for no limit.
        long stallTimeoutSeconds = 0;
    };

    struct Reply {
        int status = 0;   // 0 when no response came
        QByteArray body;
        QString transportError; // set when the transfer failed
    };

    static Reply perform(const Request &request);

    // The base and the path each without their outer "/", joined with one; the base as it
    // stands when the join doesn't parse.
    static QString routeUrl(const QString &base, const QString &path);
    // Whether a base URL parses with a scheme and a host.
    static bool isValidBaseURL(const QString &base);
    // Nothing when the bytes aren't valid UTF-8.
    static std::optional<QString> utf8(const QByteArray &bytes);
};
