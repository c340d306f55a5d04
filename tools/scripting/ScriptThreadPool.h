#pragma once

#include "tools/scripting/ScriptValue.h"

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace MCP {
struct CancellationToken;
}
class ScriptBridge;
class ScriptContext;

// The threads script calls run on. Each keeps a context group (a virtual machine) of its
// own for its whole life, and between two calls prepares the next call's context in it:
// host object, `stdOut`, `stdErr`, `console` and the pre-processor in place. A call hands
// its work to an idle thread and waits for it; the thread releases the finished context
// (collecting the group's garbage every few calls) and prepares the next one after the
// caller has its answer, so neither stands between a request and its answer.
//
// No other thread enters a thread's group, so a collection never has to stop another
// thread, and every group is made, used and released on the one thread that owns it. An
// idle thread beyond maxIdleThreads ends after idleLife. A call waits for a thread that is
// still preparing rather than start another, so there are no more threads (and groups, each
// with the engine's own helper threads) than calls at once; stop() ends them all and joins
// them: the order of a stop is fixed (the threads end, each releasing its own context and
// group, before the process's globals go), never left to the exit.
//
// Any thread may call run(). Not from the main thread: a script may wait for the main
// thread (MainThread::runBlocking), which would then wait for the script.
class ScriptThreadPool {
public:
    static ScriptThreadPool &shared();

    // Idle threads kept beyond this number end after idleLife without work.
    static constexpr size_t maxIdleThreads = 2;
    static constexpr std::chrono::seconds idleLife{10};

    // What a call finds on its thread, and what it leaves there.
    struct Slot {
        // A context prepared ahead, its bridge (behind `Kelvara`) and the pre-processor's
        // text it evaluated; empty when preparing failed. A call that uses it takes it.
        std::shared_ptr<ScriptContext> prepared;
        std::shared_ptr<ScriptBridge> preparedBridge;
        std::optional<ScriptValue::String> preparedWith;
        // The call's context, kept until the caller has its answer and released then.
        std::shared_ptr<ScriptContext> finished;

        // Lets go of all of it, the prepared context first.
        void clear()
        {
            prepared.reset();
            preparedBridge.reset();
            preparedWith.reset();
            finished.reset();
        }
    };
    using Job = std::function<void(Slot &)>;

    // Runs job on a pool thread with token as that thread's current cancellation token, and
    // waits for it. False (and job not run) once the pool is stopped.
    bool run(const Job &job, const MCP::CancellationToken *token);

    // Ends every thread once its call (if any) is done and joins it; later calls get false
    // from run(). Call it after the calls ended (ScriptWatchdog::terminateAll ends them).
    void stop();

    size_t threadCount() const;
    size_t idleThreadCount() const;

    ScriptThreadPool() = default;
    ~ScriptThreadPool();
    ScriptThreadPool(const ScriptThreadPool &) = delete;
    ScriptThreadPool &operator=(const ScriptThreadPool &) = delete;

    // Makes the next context in the calling thread's group: nothing when the pre-processor
    // cannot be read or fails (the call then meets that in a context of its own).
    static void prepare(Slot &slot);

private:
    struct Worker {
        std::thread thread;
        std::condition_variable wake;  // the worker waits for a job or the stop
        std::condition_variable done;  // the caller waits for the job's end
        const Job *job = nullptr;
        const MCP::CancellationToken *token = nullptr;
        bool finished = false;
        bool exited = false;
    };

    void serve(Worker *worker);
    // Joins the threads that ended on their own; under m_mutex, the threads out of it.
    std::vector<std::thread> takeExited();

    mutable std::mutex m_mutex;
    std::vector<std::unique_ptr<Worker>> m_workers;
    std::vector<Worker *> m_idle;  // most recently used last
    size_t m_preparing = 0;        // threads between their answer and being idle again
    std::condition_variable m_ready;
    bool m_stopped = false;
};
