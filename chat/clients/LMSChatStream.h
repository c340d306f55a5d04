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
// reason), or cancel(); after cancel() nothing more is delivered.
class LMSChatStream : public QObject {
    Q_OBJECT

public:
    // base: the server's address ("http://localhost:1234"); token: sent as a bearer token
    // when not empty.
    LMSChatStream(QString base, QString token, QObject *parent = nullptr);
    ~LMSChatStream() override;

    // Starts the transfer; once per object.
    void start(const LMSChatRequest &request);
    void cancel();
    bool isRunning() const { return m_running; }

    // "HTTP 500: Request failed." and, on the next line, the body.
    static QString httpErrorText(int status, const QString &body);

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
};
