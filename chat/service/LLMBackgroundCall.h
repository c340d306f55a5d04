#pragma once

#include "base/Result.h"
#include "chat/clients/ChatClientError.h"

#include <QMetaObject>
#include <QObject>
#include <QPointer>

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <thread>

// Runs one blocking provider call (LLMChatService, LMStudioClient) on a worker thread of its own
// and hands the outcome to the thread of `context` (the main thread). Start it from that thread.
// cancel(), or the destruction of `context`, stops the delivery; the transfer itself runs to its
// end or its time-out on the worker, which keeps what it needs alive.
template<typename T>
class LLMBackgroundCall {
public:
    using Done = std::function<void(Result<T> outcome)>;

    LLMBackgroundCall(QObject *context, std::function<Result<T>()> work, Done done)
    {
        QPointer<QObject> owner(context);
        auto cancelled = m_cancelled;
        std::thread([owner, cancelled, work = std::move(work), done = std::move(done)]() mutable {
            std::optional<Result<T>> outcome;
            try {
                outcome.emplace(work());
            } catch (const std::exception &thrown) {
                // Only the library can still throw here (memory, a container's bounds).
                outcome.emplace(ChatClientError::make(ChatClientError::Kind::transport, QString::fromUtf8(thrown.what())));
            }
            if (cancelled->load() || !owner)
                return;
            QMetaObject::invokeMethod(
                owner.data(),
                [cancelled, done = std::move(done), outcome = std::move(*outcome)] {
                    if (!cancelled->load())
                        done(outcome);
                },
                Qt::QueuedConnection);
        }).detach();
    }

    void cancel() { m_cancelled->store(true); }

private:
    std::shared_ptr<std::atomic<bool>> m_cancelled = std::make_shared<std::atomic<bool>>(false);
};
