#pragma once

#include <QByteArray>
#include <QList>
#include <QPair>
#include <QString>

#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

// A small HTTP/1.1 server on 127.0.0.1 for the client's tests: it records every request it
// gets and answers what the test's handler says, one connection per request.
class TestHttpServer
{
public:
    struct Request {
        QByteArray method;
        QByteArray target;  // path and query as sent
        QList<QPair<QByteArray, QByteArray>> headers;
        QByteArray body;

        // The value of the first field of that name (any case); null when absent.
        QByteArray header(const QByteArray &name) const;
        int headerCount(const QByteArray &name) const;
    };

    struct Response {
        enum class Mode {
            Answer,       // status, headers and body at once
            NeverAnswer,  // read the request, then keep the connection open and silent
            Dribble,      // the body one byte at a time, dribbleDelayMs apart
            Endless,      // no length, the body over and over, dribbleDelayMs apart (0: as fast as it
                          // is taken), until the peer or the server stops
        };
        int status = 200;
        QList<QPair<QByteArray, QByteArray>> headers;
        QByteArray body;
        Mode mode = Mode::Answer;
        int dribbleDelayMs = 0;
        // Dribble: after this many body bytes the connection stays open and silent until the
        // peer closes it or the server stops; -1 for never.
        qsizetype stallAfter = -1;
    };

    using Handler = std::function<Response(const Request &)>;

    explicit TestHttpServer(Handler handler);
    ~TestHttpServer();
    TestHttpServer(const TestHttpServer &) = delete;
    TestHttpServer &operator=(const TestHttpServer &) = delete;

    bool isListening() const { return m_listenFd >= 0; }
    int port() const { return m_port; }
    QString url(const QString &pathAndQuery = QStringLiteral("/")) const;
    QList<Request> requests() const;
    // The body bytes sent so far, over all connections.
    qint64 bytesSent() const { return m_bytesSent.load(); }
    void stop();

private:
    void acceptLoop();
    void serve(int fd);
    bool waitOrStop(int ms);

    Handler m_handler;
    int m_listenFd = -1;
    int m_port = 0;
    std::atomic<bool> m_stopping{false};
    std::atomic<qint64> m_bytesSent{0};
    std::thread m_acceptThread;
    mutable std::mutex m_mutex;
    std::condition_variable m_stopped;
    std::vector<std::thread> m_connections;
    QList<Request> m_requests;
};
