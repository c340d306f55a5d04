#pragma once

#include <chrono>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>

// Runs functions queued from any thread on the Qt main thread, in the order they were
// queued. What is queued while a run is already pending joins it, so a burst (the log lines
// of busy workers) costs one event-loop wake-up, not one per function. Without an
// application object there is no main loop, and a function runs at once.
//
// What waits is bounded: past the capacity (in functions or in their stated cost, such as
// the bytes of a log line), the oldest pending functions are dropped, and the overflow
// handler is told how many, on the main thread, before the rest run.
class MainThreadQueue {
public:
    MainThreadQueue();

    // The queue that every log line travels on, so that lines from the engine and from the
    // application keep one order.
    static MainThreadQueue &logLines();

    // cost: what the function holds (bytes); counted against the byte capacity.
    void post(std::function<void()> fn, size_t cost = 0);

    // Defaults: 10,000 functions or 16 MiB, whichever comes first.
    void setCapacity(size_t functions, size_t cost);
    void setOverflowHandler(std::function<void(size_t dropped)> handler);
    // Functions waiting now (for tests and the bench).
    size_t pendingCount() const;
    // The longest time a function has waited for the main thread since the last reset:
    // how far the main thread fell behind the threads that queue.
    std::chrono::microseconds longestWait() const;
    void resetLongestWait();

private:
    struct Item {
        std::function<void()> fn;
        size_t cost = 0;
    };
    struct State {
        mutable std::mutex mutex;
        std::deque<Item> pending;
        size_t pendingCost = 0;
        size_t dropped = 0;
        size_t maxFunctions = 10000;
        size_t maxCost = 16u << 20;
        bool scheduled = false;
        // When the pending run was scheduled: the first function of a batch waits longest.
        std::chrono::steady_clock::time_point scheduledAt{};
        std::chrono::microseconds longestWait{0};
        std::function<void(size_t)> overflow;
    };
    std::shared_ptr<State> m_state;
};
