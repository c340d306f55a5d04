#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <vector>

// Runs functions queued from any thread on the Qt main thread, in the order they were
// queued. What is queued while a run is already pending joins it, so a burst (the log lines
// of busy workers) costs one event-loop wake-up, not one per function. Without an
// application object there is no main loop, and a function runs at once.
class MainThreadQueue {
public:
    MainThreadQueue();

    // The queue that every log line travels on, so that lines from the engine and from the
    // application keep one order.
    static MainThreadQueue &logLines();

    void post(std::function<void()> fn);

private:
    struct State {
        std::mutex mutex;
        std::vector<std::function<void()>> pending;
        bool scheduled = false;
    };
    std::shared_ptr<State> m_state;
};
