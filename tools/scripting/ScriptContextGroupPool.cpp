#include "tools/scripting/ScriptContextGroupPool.h"

#include <utility>


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

ScriptContextGroupPool &ScriptContextGroupPool::shared()
{
    // Never destroyed: threads ending during the exit still hand their groups back.
    // JavaScriptCore's allocator keeps handing freed pages back to the system on its timer:
    // keeping them saved some CPU under load but held the high-water mark for good (270 MB
    // after eight clients), so a server that was busy once would stay that large.
    static auto *pool = new ScriptContextGroupPool;
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

void ScriptContextGroupPool::releaseThreadGroup()
{
    if (JSContextGroupRef own = std::exchange(t_slot.group, nullptr))
        JSContextGroupRelease(own);
}

size_t ScriptContextGroupPool::idleCount() const
{
    std::lock_guard lock(m_mutex);
    return m_idle.size();
}
