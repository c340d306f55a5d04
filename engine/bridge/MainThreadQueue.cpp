#include "engine/bridge/MainThreadQueue.h"

#include <QCoreApplication>
#include <QMetaObject>

MainThreadQueue::MainThreadQueue() : m_state(std::make_shared<State>()) {}

MainThreadQueue &MainThreadQueue::logLines()
{
    static MainThreadQueue *queue = new MainThreadQueue();
    return *queue;
}

void MainThreadQueue::setCapacity(size_t functions, size_t cost)
{
    std::lock_guard lock(m_state->mutex);
    m_state->maxFunctions = std::max<size_t>(1, functions);
    m_state->maxCost = std::max<size_t>(1, cost);
}

void MainThreadQueue::setOverflowHandler(std::function<void(size_t dropped)> handler)
{
    std::lock_guard lock(m_state->mutex);
    m_state->overflow = std::move(handler);
}

size_t MainThreadQueue::pendingCount() const
{
    std::lock_guard lock(m_state->mutex);
    return m_state->pending.size();
}

std::chrono::microseconds MainThreadQueue::longestWait() const
{
    std::lock_guard lock(m_state->mutex);
    return m_state->longestWait;
}

void MainThreadQueue::resetLongestWait()
{
    std::lock_guard lock(m_state->mutex);
    m_state->longestWait = std::chrono::microseconds(0);
}

void MainThreadQueue::post(std::function<void()> fn, size_t cost)
{
    auto *app = QCoreApplication::instance();
    if (!app) {
        fn();
        return;
    }
    {
        std::lock_guard lock(m_state->mutex);
        State &state = *m_state;
        state.pending.push_back({std::move(fn), cost});
        state.pendingCost += cost;
        // The newest is kept: under load the latest lines say most about the present.
        while (state.pending.size() > 1 &&
               (state.pending.size() > state.maxFunctions || state.pendingCost > state.maxCost)) {
            state.pendingCost -= state.pending.front().cost;
            state.pending.pop_front();
            ++state.dropped;
        }
        if (state.scheduled)
            return;
        state.scheduled = true;
        state.scheduledAt = std::chrono::steady_clock::now();
    }
    QMetaObject::invokeMethod(
        app,
        [state = m_state] {
            std::deque<Item> batch;
            size_t dropped = 0;
            std::function<void(size_t)> overflow;
            {
                std::lock_guard lock(state->mutex);
                batch.swap(state->pending);
                state->pendingCost = 0;
                dropped = std::exchange(state->dropped, 0);
                overflow = state->overflow;
                state->scheduled = false;
                const auto waited = std::chrono::duration_cast<std::chrono::microseconds>(
                    std::chrono::steady_clock::now() - state->scheduledAt);
                state->longestWait = std::max(state->longestWait, waited);
            }
            if (dropped > 0 && overflow)
                overflow(dropped);
            // What these functions queue in turn runs in the next step, after them.
            for (auto &queued : batch)
                queued.fn();
        },
        Qt::QueuedConnection);
}
