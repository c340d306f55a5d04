#pragma once

#include <QByteArray>
#include <QJsonValue>
#include <QList>
#include <QString>

#include <cstdio>

// `kelvara serve --stdio` while a running Kelvara holds the store: instead of failing, each
// line the client writes is posted to that Kelvara's MCP server over loopback (with the
// token, and the session the server gave at initialize), and every message of the answer,
// a JSON body or the events of an event stream, is written back as one line. The handshake
// and notifications go out in order; requests after the handshake run side by side, so that
// a cancellation or a ping is not held behind a long call. While that server is stopped each
// request gets one JSON-RPC error saying what to do.
class StdioRelay {
public:
    static inline const QString stoppedText =
        QStringLiteral("Kelvara is running and its MCP server is stopped: press Start server, or close Kelvara");
    static constexpr int stoppedCode = -32000;

    // Relays from in to out until the end of in; notes go to log. holder is the process
    // that holds the store (0 when unknown). Returns the exit code, 0.
    static int run(qint64 holder, std::FILE *in, std::FILE *out, std::FILE *log);

    // The messages an HTTP answer carries, each a compact JSON text: the body itself, or the
    // data of each event when contentType is text/event-stream. Data that is not JSON is
    // left out.
    static QList<QByteArray> messagesOf(const QByteArray &contentType, const QByteArray &body);
    // One JSON-RPC error response line (without the line end).
    static QByteArray errorFor(const QJsonValue &id, int code, const QString &message);
    // The ids of the requests a client line holds (a batch may hold several); notifications,
    // responses and lines that are not JSON have none.
    static QList<QJsonValue> requestIds(const QByteArray &line);
};
