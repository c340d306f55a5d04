#include "tools/scripting/ScriptThreadPool.h"

#include "engine/CancellationToken.h"
#include "tools/scripting/PluginScripting.h"
#include "tools/scripting/ScriptBridge.h"
#include "tools/scripting/ScriptBridgeExports.h"
#include "tools/scripting/ScriptContext.h"
#include "tools/scripting/ScriptContextGroupPool.h"
#include "tools/scripting/ScriptSourceCache.h"
#include "tools/scripting/ScriptWatchdog.h"

#include <algorithm>

ScriptThreadPool &ScriptThreadPool::shared()
{
    // Never destroyed: a call that comes during the exit finds a stopped pool, not a freed
    // one. kelvara serve stops it before it returns from main.
    static auto *pool = new ScriptThreadPool;
    return *pool;
}

ScriptThreadPool::~ScriptThreadPool()
{
    stop();
}

bool ScriptThreadPool::run(const Job &job, const MCP::CancellationToken *token)
{
    std::vector<std::thread> exited;
    {
        std::unique_lock lock(m_mutex);
        if (m_stopped)
            return false;
        exited = takeExited();
        // A thread that is still clearing up and preparing is worth waiting for: a new
        // thread means a new virtual machine, with its own helper threads and cold caches.
        // Never longer than a preparation may take (the time limit ends it); a bounded wait
        // would start threads exactly when the machine is too busy to prepare in time.
        m_ready.wait(lock, [&] { return !m_idle.empty() || m_preparing == 0 || m_stopped; });
        if (m_stopped)
            return false;
        Worker *worker = nullptr;
        if (!m_idle.empty()) {
            // The warmest thread: its group and caches were used last.
            worker = m_idle.back();
            m_idle.pop_back();
        } else {
            // Every thread is busy or still preparing: one more, which serves this call with
            // a context made on the way and prepares ahead from then on.
            m_workers.push_back(std::make_unique<Worker>());
            worker = m_workers.back().get();
        }
        worker->job = &job;
        worker->token = token;
        worker->finished = false;
        if (worker->thread.joinable())
            worker->wake.notify_one();
        else
            worker->thread = std::thread([this, worker] { serve(worker); });
        worker->done.wait(lock, [worker] { return worker->finished; });
    }
    for (std::thread &thread : exited)
        thread.join();
    return true;
}

void ScriptThreadPool::serve(Worker *worker)
{
    Slot slot;
    std::unique_lock lock(m_mutex);
    for (;;) {
        if (const Job *job = worker->job) {
            const MCP::CancellationToken *token = worker->token;
            lock.unlock();
            {
                const MCP::CancellationToken::Scope current(token);
                (*job)(slot);
            }
            lock.lock();
            worker->job = nullptr;
            worker->finished = true;
            worker->done.notify_all();
            ++m_preparing;
            const bool stopping = m_stopped;
            lock.unlock();
            // The caller has its answer: what the call leaves is cleared now, and the next
            // call's context made, while the answer goes out.
            slot.finished.reset();
            if (!stopping)
                prepare(slot);
            lock.lock();
            --m_preparing;
            m_ready.notify_all();
            if (m_stopped)
                break;
            m_idle.push_back(worker);
            continue;
        }
        const bool woken = worker->wake.wait_for(lock, idleLife, [&] { return worker->job || m_stopped; });
        if (worker->job)
            continue;
        if (m_stopped)
            break;
        if (!woken && m_idle.size() > maxIdleThreads)
            break;
    }
    m_idle.erase(std::remove(m_idle.begin(), m_idle.end(), worker), m_idle.end());
    worker->exited = true;
    lock.unlock();
    // Released here, on the thread that made them, while it is whole.
    slot.clear();
    ScriptContextGroupPool::shared().releaseThreadGroup();
}

std::vector<std::thread> ScriptThreadPool::takeExited()
{
    std::vector<std::thread> threads;
    for (auto it = m_workers.begin(); it != m_workers.end();) {
        if ((*it)->exited) {
            threads.push_back(std::move((*it)->thread));
            it = m_workers.erase(it);
        } else {
            ++it;
        }
    }
    return threads;
}

void ScriptThreadPool::stop()
{
    std::vector<std::thread> threads;
    {
        std::lock_guard lock(m_mutex);
        m_stopped = true;
        m_ready.notify_all();
        // The workers stay (a caller may still be looking at its worker's flag); their
        // threads are joined.
        for (const std::unique_ptr<Worker> &worker : m_workers) {
            worker->wake.notify_all();
            if (worker->thread.joinable())
                threads.push_back(std::move(worker->thread));
        }
    }
    for (std::thread &thread : threads)
        thread.join();
}

size_t ScriptThreadPool::threadCount() const
{
    std::lock_guard lock(m_mutex);
    return size_t(std::count_if(m_workers.begin(), m_workers.end(),
                                [](const std::unique_ptr<Worker> &worker) { return !worker->exited; }));
}

size_t ScriptThreadPool::idleThreadCount() const
{
    std::lock_guard lock(m_mutex);
    return m_idle.size();
}

void ScriptThreadPool::prepare(Slot &slot)
{
    slot.clear();
    // The pre-processor as the next call will most likely find it; a call that finds another
    // text (the file changed) makes a context of its own.
    std::optional<ScriptValue::String> preprocessor =
        ScriptSourceCache::shared().load(PluginScripting::preprocessorPath());
    if (!preprocessor)
        return;
    const std::shared_ptr<ScriptContext> context = ScriptContext::create();
    if (!context)
        return;
    bool failed = false;
    context->setExceptionHandler([&failed](JSContextRef, JSValueRef) { failed = true; });
    // An edited pre-processor that does not end must not hold the thread for good (a stop
    // joins it): the default time limit, and a shutdown, end it as they end a call.
    ScriptWatchdog watchdog(context->group(), ScriptWatchdog::defaultTimeLimit);
    JSGlobalContextRef ctx = context->jsContext();
    auto bridge = std::make_shared<ScriptBridge>(QString());
    context->setObjectForKeyedSubscript(QStringLiteral("Kelvara"), ScriptBridgeExports::makeHostObject(ctx, bridge));
    context->setObjectForKeyedSubscript(QStringLiteral("stdOut"), JSObjectMakeArray(ctx, 0, nullptr, nullptr));
    context->setObjectForKeyedSubscript(QStringLiteral("stdErr"), JSObjectMakeArray(ctx, 0, nullptr, nullptr));
    context->evaluateScript(PluginScripting::consoleSource());
    // The pre-processor reads __moduleDir only when a script uses it, after the call set it.
    context->evaluateScript(preprocessor->get(), QStringLiteral("bootstrap.js"));
    context->setExceptionHandler(nullptr);
    failed = failed || watchdog.fired();
    // Whatever went wrong is for the call to meet, and report, in a context of its own.
    if (failed)
        return;
    slot.prepared = context;
    slot.preparedBridge = std::move(bridge);
    slot.preparedWith.emplace(std::move(*preprocessor));
}
