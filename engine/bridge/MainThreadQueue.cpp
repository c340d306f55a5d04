#include "engine/bridge/MainThreadQueue.h"

#include <QCoreApplication>
#include <QMetaObject>

MainThreadQueue::MainThreadQueue() : m_state(std::make_shared<State>()) {}

MainThreadQueue &MainThreadQueue::logLines()
{
    static MainThreadQueue *queue = new MainThreadQueue();
    return *queue;
}

void MainThreadQueue::post(std::function<void()> fn)
{
    auto *app = QCoreApplication::instance();
    if (!app) {
        fn();
        return;
    }
    {
        std::lock_guard lock(m_state->mutex);
        m_state->pending.push_back(std::move(fn));
        if (m_state->scheduled)
            return;
        m_state->scheduled = true;
    }
    QMetaObject::invokeMethod(
        app,
        [state = m_state] {
            std::vector<std::function<void()>> batch;
            {
                std::lock_guard lock(state->mutex);
                batch.swap(state->pending);
                state->scheduled = false;
            }
            // What these functions queue in turn runs in the next step, after them.
            for (auto &queued : batch)
                queued();
        },
        Qt::QueuedConnection);
}
