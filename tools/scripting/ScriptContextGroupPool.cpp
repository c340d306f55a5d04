#include "tools/scripting/ScriptContextGroupPool.h"

#include "tools/scripting/PluginScripting.h"
#include "tools/scripting/ScriptBridge.h"
#include "tools/scripting/ScriptBridgeExports.h"
#include "tools/scripting/ScriptSourceCache.h"
#include "tools/scripting/ScriptValue.h"

#include <chrono>
#include <condition_variable>
#include <deque>
#include <thread>

// A full collection now; exported by the library but declared only in a header the -dev
// package does not ship. The public JSGarbageCollect only hints, and a group that makes a
// global object per call then grows to tens of megabytes before its collector runs.
extern "C" JS_EXPORT void JSSynchronousGarbageCollectForDebugging(JSContextRef context);

// A thread's group, and the context being prepared in it or ready there.
struct ScriptContextGroupPool::Mailbox {
    std::mutex mutex;
    std::condition_variable ready;
    bool pending = false;   // the helper holds the group
    bool orphaned = false;  // the thread ended meanwhile
    Lent lent;
};

struct ScriptContextGroupPool::Job {
    JSContextGroupRef group;
    JSGlobalContextRef finished;
    std::weak_ptr<Mailbox> box;
    bool prepareNext = true;  // false: only release the context and stock the group
};

struct HelperQueue {
    std::mutex mutex;
    std::condition_variable wake;
    std::condition_variable idle;
    std::deque<ScriptContextGroupPool::Job> jobs;
    bool busy = false;
    bool stopped = false;
    std::once_flag started;
};

// The group a thread used last; handed to the shared stock when the thread ends.
struct ThreadGroupSlot {
    std::shared_ptr<ScriptContextGroupPool::Mailbox> box = std::make_shared<ScriptContextGroupPool::Mailbox>();
    ~ThreadGroupSlot()
    {
        ScriptContextGroupPool::Lent left;
        {
            std::lock_guard lock(box->mutex);
            if (box->pending) {
                box->orphaned = true;  // the helper stocks the group when it is done
                return;
            }
            left = std::exchange(box->lent, {});
        }
        if (left.context) {
            // Not released here: an ending thread that entered the engine now would be one
            // the next collection of the group tries to stop after it is gone.
            ScriptContextGroupPool::shared().post({left.group, left.context, {}, false});
            return;
        }
        if (left.group)
            ScriptContextGroupPool::shared().releaseToStock(left.group);
    }
};

namespace {
thread_local ThreadGroupSlot t_slot;
}

ScriptContextGroupPool &ScriptContextGroupPool::shared()
{
    // Never destroyed: threads ending during the exit still hand their groups back.
    // JavaScriptCore's allocator keeps handing freed pages back to the system on its timer:
    // keeping them saved some CPU under load but held the high-water mark for good (270 MB
    // after eight clients), so a server that was busy once would stay that large.
    static auto *pool = new ScriptContextGroupPool;
    return *pool;
}

ScriptContextGroupPool::ScriptContextGroupPool() : m_helper(std::make_unique<HelperQueue>()) {}

ScriptContextGroupPool::~ScriptContextGroupPool()
{
    for (JSContextGroupRef group : m_idle)
        JSContextGroupRelease(group);
}

ScriptContextGroupPool::Lent ScriptContextGroupPool::acquire()
{
    m_lent.fetch_add(1);
    Mailbox &box = *t_slot.box;
    {
        std::unique_lock lock(box.mutex);
        box.ready.wait(lock, [&] { return !box.pending; });
        if (box.lent.group)
            return std::exchange(box.lent, {});
    }
    {
        std::lock_guard lock(m_mutex);
        if (!m_idle.empty()) {
            // The warmest group: its heap and caches were used last.
            JSContextGroupRef group = m_idle.back();
            m_idle.pop_back();
            return Lent{group};
        }
    }
    return Lent{JSContextGroupCreate()};
}

void ScriptContextGroupPool::release(JSContextGroupRef group)
{
    if (!group)
        return;
    m_lent.fetch_sub(1);
    Mailbox &box = *t_slot.box;
    {
        std::lock_guard lock(box.mutex);
        if (!box.pending && !box.lent.group) {
            box.lent.group = group;
            return;
        }
    }
    releaseToStock(group);
}

void ScriptContextGroupPool::discard(JSContextGroupRef group, JSGlobalContextRef context)
{
    m_lent.fetch_sub(1);
    JSGlobalContextRelease(context);
    // The last reference: the group's heap goes with it.
    JSContextGroupRelease(group);
}

void ScriptContextGroupPool::finish(JSContextGroupRef group, JSGlobalContextRef context)
{
    // Calls that overlap each keep their own work: one helper behind several threads would
    // hold them up, and every group it entered would have to stop it at each collection.
    const bool alone = m_lent.fetch_sub(1) == 1;
    const std::shared_ptr<Mailbox> box = t_slot.box;
    bool held = false;
    bool helped = false;
    {
        std::lock_guard lock(box->mutex);
        held = box->pending || box->lent.group;
        if (!held && alone) {
            std::lock_guard queue(m_helper->mutex);
            helped = m_helper->jobs.empty() && !m_helper->stopped;
        }
        if (helped)
            box->pending = true;
    }
    if (!helped) {
        thread_local unsigned ended = 0;
        if (++ended % kCollectEvery == 0)
            JSSynchronousGarbageCollectForDebugging(context);
        JSGlobalContextRelease(context);
        // A thread that already holds a group (a context of a session shared by two calls
        // ended on the thread of the other) gives this one to the stock.
        if (held) {
            releaseToStock(group);
        } else {
            std::lock_guard lock(box->mutex);
            box->lent.group = group;
        }
        return;
    }
    post({group, context, box, true});
}

void ScriptContextGroupPool::post(Job job)
{
    std::call_once(m_helper->started, [this] { std::thread([this] { runHelper(); }).detach(); });
    {
        std::lock_guard lock(m_helper->mutex);
        if (m_helper->stopped && !job.prepareNext)
            return;  // the process is ending: the context goes with it
        m_helper->jobs.push_back(std::move(job));
    }
    m_helper->wake.notify_one();
}

ScriptContextGroupPool::Lent ScriptContextGroupPool::prepare(JSContextGroupRef group)
{
    JSGlobalContextRef context = JSGlobalContextCreateInGroup(group, nullptr);
    if (!context)
        return Lent{group};
    // The pre-processor as the next call will find it; a call that finds another text (the
    // file changed) or none makes its own context instead.
    std::optional<ScriptValue::String> preprocessor = ScriptSourceCache::shared().load(PluginScripting::preprocessorPath());
    auto bridge = std::make_shared<ScriptBridge>(QString());
    JSObjectRef global = JSContextGetGlobalObject(context);
    JSValueRef exception = nullptr;
    auto set = [&](const char *name, JSValueRef value) {
        ScriptValue::String key{QString::fromLatin1(name)};
        JSObjectSetProperty(context, global, key.get(), value, kJSPropertyAttributeNone, &exception);
    };
    set("Kelvara", ScriptBridgeExports::makeHostObject(context, bridge));
    set("stdOut", JSObjectMakeArray(context, 0, nullptr, nullptr));
    set("stdErr", JSObjectMakeArray(context, 0, nullptr, nullptr));
    if (!exception) {
        const ScriptValue::String console(PluginScripting::consoleSource());
        JSEvaluateScript(context, console.get(), nullptr, nullptr, 1, &exception);
    }
    if (!exception && preprocessor) {
        const ScriptValue::String url(QStringLiteral("bootstrap.js"));
        JSEvaluateScript(context, preprocessor->get(), nullptr, url.get(), 1, &exception);
    }
    if (exception || !preprocessor) {
        // Whatever went wrong is for the call to meet and report in a context of its own.
        JSGlobalContextRelease(context);
        return Lent{group};
    }
    auto text = std::make_shared<ScriptValue::String>(std::move(*preprocessor));
    return Lent{group, context, std::move(bridge), std::move(text)};
}

void ScriptContextGroupPool::runHelper()
{
    unsigned ended = 0;
    for (;;) {
        Job job;
        {
            std::unique_lock lock(m_helper->mutex);
            m_helper->wake.wait(lock, [&] { return !m_helper->jobs.empty(); });
            job = m_helper->jobs.front();
            m_helper->jobs.pop_front();
            m_helper->busy = true;
        }
        // Collected while the finished context still holds the group.
        if (job.prepareNext && ++ended % kCollectEvery == 0)
            JSSynchronousGarbageCollectForDebugging(job.finished);
        JSGlobalContextRelease(job.finished);
        Lent next = job.prepareNext ? prepare(job.group) : Lent{job.group};
        bool delivered = false;
        if (const std::shared_ptr<Mailbox> box = job.box.lock()) {
            std::lock_guard lock(box->mutex);
            if (!box->orphaned) {
                box->lent = std::move(next);
                delivered = true;
            }
            box->pending = false;
            box->ready.notify_all();
        }
        if (!delivered) {
            if (next.context)
                JSGlobalContextRelease(next.context);
            releaseToStock(job.group);
        }
        {
            std::lock_guard lock(m_helper->mutex);
            m_helper->busy = false;
        }
        m_helper->idle.notify_all();
    }
}

bool ScriptContextGroupPool::stopPreparing(int limitMs)
{
    std::unique_lock lock(m_helper->mutex);
    m_helper->stopped = true;
    return m_helper->idle.wait_for(lock, std::chrono::milliseconds(limitMs),
                                   [&] { return m_helper->jobs.empty() && !m_helper->busy; });
}

void ScriptContextGroupPool::releaseToStock(JSContextGroupRef group)
{
    {
        std::lock_guard lock(m_mutex);
        if (m_idle.size() < maxIdleGroups) {
            m_idle.push_back(group);
            return;
        }
    }
    JSContextGroupRelease(group);
}

size_t ScriptContextGroupPool::idleCount() const
{
    std::lock_guard lock(m_mutex);
    return m_idle.size();
}
