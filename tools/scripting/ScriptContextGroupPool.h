#pragma once

#include <JavaScriptCore/JavaScript.h>

#include <mutex>
#include <vector>

// Idle JavaScriptCore context groups (virtual machines), lent out one at a time.
//
// Making a group costs several times what a context inside a warm group costs, and every
// script call needs a fresh context. A context takes a group of its own for its whole life
// and gives it back at its end, so a group serves many calls one after another while two
// calls that overlap never share one and run in parallel on their threads.
//
// A thread gets back the group it used last. A group's garbage collector has to stop every
// live thread that ever entered the group to scan its stack, so groups passed around among
// long-lived threads would make each collection wait for all of them. A thread that ends
// hands its group to the shared stock for the next thread; the script threads
// (ScriptThreadPool) keep theirs for life and release it themselves before they end.
class ScriptContextGroupPool {
public:
    static ScriptContextGroupPool &shared();

    // Groups kept in the shared stock beyond this number are released: each holds its own
    // heap, and the groups of a past burst would otherwise stay for good. Busy threads keep
    // theirs, so a steady load makes no new groups.
    static constexpr size_t maxIdleGroups = 1;

    // The calling thread's last group, or one from the shared stock, or a new one; the
    // caller owns one reference and gives it back with release().
    JSContextGroupRef acquire();
    void release(JSContextGroupRef group);

    // Releases the calling thread's own group, if it keeps one: for a thread about to end,
    // which must not leave it to its thread-local teardown.
    void releaseThreadGroup();

    // Groups in the shared stock (not those kept by a thread).
    size_t idleCount() const;

    ScriptContextGroupPool() = default;
    ~ScriptContextGroupPool();
    ScriptContextGroupPool(const ScriptContextGroupPool &) = delete;
    ScriptContextGroupPool &operator=(const ScriptContextGroupPool &) = delete;

private:
    friend struct ThreadGroupSlot;
    void releaseToStock(JSContextGroupRef group);

    mutable std::mutex m_mutex;
    std::vector<JSContextGroupRef> m_idle;  // most recently used last
};
