#pragma once

#include <atomic>

namespace MCP {

// Cooperative cancellation of one tool call: set by a cancel notification on another
// connection, tested by the call before and after the tool runs.
struct CancellationToken {
    std::atomic<bool> cancelled{false};

    void cancel() { cancelled.store(true); }
    bool isCancelled() const { return cancelled.load(); }

    // The token of the tool call that runs on this thread, or null: for code far below the
    // route (a script's transfer or child process) that can stop early when it is set.
    static const CancellationToken *current() { return t_current; }

    // Makes a token the thread's current one for the scope's life.
    class Scope {
    public:
        explicit Scope(const CancellationToken *token) : m_previous(t_current) { t_current = token; }
        ~Scope() { t_current = m_previous; }
        Scope(const Scope &) = delete;
        Scope &operator=(const Scope &) = delete;

    private:
        const CancellationToken *m_previous;
    };

private:
    static inline thread_local const CancellationToken *t_current = nullptr;
};

}  // namespace MCP
