#include "tools/scripting/ScriptContextGroupPool.h"

#include <dlfcn.h>

// The group a thread used last; handed to the shared stock when the thread ends.
struct ThreadGroupSlot {
    JSContextGroupRef group = nullptr;
    ~ThreadGroupSlot()
    {
        if (group)
            ScriptContextGroupPool::shared().releaseToStock(group);
    }
};

namespace {
thread_local ThreadGroupSlot t_slot;
}

namespace {

// JavaScriptCore's allocator hands freed pages back to the system on a timer. Every script
// call makes and drops a whole global object, so those pages are faulted in again moments
// later: with eight calls at once that is a fifth of the CPU time. The switch that keeps
// them is exported by the library but not declared in its headers, so it is looked up and
// left alone when absent; memory then stays at its high-water mark.
void keepAllocatorPages()
{
    using Switch = void (*)();
    if (auto disable = reinterpret_cast<Switch>(dlsym(RTLD_DEFAULT, "_ZN3WTF20fastDisableScavengerEv")))
        disable();
}

}  // namespace

ScriptContextGroupPool &ScriptContextGroupPool::shared()
{
    // Never destroyed: threads ending during the exit still hand their groups back.
    static auto *pool = [] {
        keepAllocatorPages();
        return new ScriptContextGroupPool;
    }();
    return *pool;
}

ScriptContextGroupPool::~ScriptContextGroupPool()
{
    for (JSContextGroupRef group : m_idle)
        JSContextGroupRelease(group);
}

JSContextGroupRef ScriptContextGroupPool::acquire()
{
    if (JSContextGroupRef own = t_slot.group) {
        t_slot.group = nullptr;
        return own;
    }
    {
        std::lock_guard lock(m_mutex);
        if (!m_idle.empty()) {
            // The warmest group: its heap and caches were used last.
            JSContextGroupRef group = m_idle.back();
            m_idle.pop_back();
            return group;
        }
    }
    return JSContextGroupCreate();
}

void ScriptContextGroupPool::release(JSContextGroupRef group)
{
    if (!group)
        return;
    if (!t_slot.group) {
        t_slot.group = group;
        return;
    }
    releaseToStock(group);
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
