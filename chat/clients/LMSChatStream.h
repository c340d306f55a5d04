#pragma once

#include "chat/clients/LMSChatRequest.h"
#include "chat/clients/LMSStreamEvent.h"

#include <QObject>
#include <QString>
#include <atomic>
#include <memory>
#include <optional>
#include <thread>

// One streamed chat with an LM Studio server: POST "/api/v1/chat" with "Accept:
// text/event-stream", read on a worker thread as the bytes arrive, each event delivered on the
// thread that owns this object (the main thread), in order. The stream ends with chat.end, the
// end of the reply, an error ("HTTP 500: Request failed." and the body, or the transfer's
// reason), a stall (no byte for the stall timeout: stalled() is then true and the error is
// stallText), or cancel(); after cancel() nothing more is delivered.
class LMSChatStream : public QObject {
    Q_OBJECT

public:
    // base: the server's address ("http://localhost:1234"); token: sent as a bearer token
    // when not empty.
    LMSChatStream(QString base, QString token, QObject *parent = nullptr);
    ~LMSChatStream() override;

    // How long the server may send nothing before the stream is given up; 0 for no limit.
    // Set before start().
    void setStallTimeout(int seconds) { m_stallSeconds = seconds; }
    int stallTimeout() const { return m_stallSeconds; }
    // Starts the transfer; once per object.
    void start(const LMSChatRequest &request);
    void cancel();
    bool isRunning() const { return m_running; }
    // True once the stream has ended because the server went silent.
    bool stalled() const { return m_stalled; }

    // "HTTP 500: Request failed." and, on the next line, the body.
    static QString httpErrorText(int status, const QString &body);
    // "No data from the model for 120 s: the answer was stopped."
    static QString stallText(int seconds);

    // What the transfer's thread and the object share.
    struct Shared;

signals:
    void event(const LMSStreamEvent &event);
    // error: nothing when the stream ended well (chat.end or the end of the reply).
    void finished(const std::optional<QString> &error);

private:
    QString m_base;
    QString m_token;
    std::shared_ptr<Shared> m_shared;
    std::thread m_worker;
    bool m_running = false;
    bool m_stalled = false;
    int m_stallSeconds = 0;
};
