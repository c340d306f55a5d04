#pragma once

#include <JavaScriptCore/JavaScript.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <vector>

#include "tools/scripting/ScriptValue.h"

class ScriptBridge;

// Idle JavaScriptCore context groups (virtual machines), lent out one at a time, and the
// contexts prepared in them ahead of the next call.
//
// Making a group costs several times what a context inside a warm group costs, and every
// script call needs a fresh context. A context takes a group of its own for its whole life
// and gives it back at its end, so a group serves many calls one after another while two
// calls that overlap never share one and run in parallel on their threads.
//
// A thread gets back the group it used last. A group's garbage collector has to stop every
// live thread that ever entered the group to scan its stack, so groups passed around among
// long-lived threads would make each collection wait for all of them. The engine's workers
// are short-lived: when one ends, its group goes to the shared stock for the next thread.
//
// What a call leaves behind is cleared off its thread while no other call runs: when a
// context ends, one helper thread collects the group's garbage (every kCollectEvery
// contexts), releases the context and makes the thread's next one in the same group, with
// the host object, `stdOut`, `stdErr`, `console` and the pre-processor in place. The
// thread's next call takes that context (waiting, if it comes first, until it is ready), so
// neither the collection nor the making of a context stands between a request and its
// answer. Calls that overlap do that work on their own threads, as one helper behind all of
// them would hold them up.
class ScriptContextGroupPool {
public:
    static ScriptContextGroupPool &shared();

    // Groups kept in the shared stock beyond this number are released: each holds its own
    // heap, and the groups of a past burst would otherwise stay for good. Busy threads keep
    // theirs, so a steady load makes no new groups.
    static constexpr size_t maxIdleGroups = 1;
    // A group's garbage is collected as every this many of its contexts end: a group stays a
    // few megabytes.
    static constexpr unsigned kCollectEvery = 2;

    // A group, and a context prepared in it (or none).
    struct Lent {
        JSContextGroupRef group = nullptr;
        JSGlobalContextRef context = nullptr;
        std::shared_ptr<ScriptBridge> bridge;  // behind the prepared context's `Kelvara`
        std::shared_ptr<ScriptValue::String> preprocessor;  // the pre-processor's text it evaluated
    };

    // The calling thread's last group with its prepared context, or one from the shared
    // stock, or a new one; the caller owns one reference to the group and to the context and
    // gives both back with finish() (or the group alone with release()).
    Lent acquire();
    // The end of a context: the helper thread releases it and prepares the thread's next.
    void finish(JSContextGroupRef group, JSGlobalContextRef context);
    // Takes back a group without a context.
    void release(JSContextGroupRef group);
    // Ends a context and its group for good: the group's whole heap goes with it.
    void discard(JSContextGroupRef group, JSGlobalContextRef context);

    // For a process that is ending: no context is prepared from now on, and the one being
    // prepared is waited for (at most `limitMs`), so that the helper thread touches nothing
    // that the exit tears down. True when it is idle.
    bool stopPreparing(int limitMs = 2000);

    // Groups in the shared stock (not those kept by a thread).
    size_t idleCount() const;

    ScriptContextGroupPool();
    ~ScriptContextGroupPool();
    ScriptContextGroupPool(const ScriptContextGroupPool &) = delete;
    ScriptContextGroupPool &operator=(const ScriptContextGroupPool &) = delete;

    struct Mailbox;
    struct Job;

private:
    friend struct ThreadGroupSlot;
    void releaseToStock(JSContextGroupRef group);
    void post(Job job);
    void runHelper();
    static Lent prepare(JSContextGroupRef group);

    mutable std::mutex m_mutex;
    std::vector<JSContextGroupRef> m_idle;  // most recently used last
    std::atomic<int> m_lent{0};             // groups lent out now
    std::unique_ptr<struct HelperQueue> m_helper;
};
