#include "tools/scripting/ScriptChildProcesses.h"

#include <cerrno>
#include <csignal>
#include <vector>

ScriptChildProcesses &ScriptChildProcesses::shared()
{
    // Never destroyed: a script thread may still end its call while the process exits.
    static auto *registry = new ScriptChildProcesses;
    return *registry;
}

void ScriptChildProcesses::add(pid_t group, const void *owner)
{
    if (group <= 0)
        return;
    std::lock_guard lock(m_mutex);
    m_groups.insert_or_assign(group, owner);
}

void ScriptChildProcesses::remove(pid_t group)
{
    std::lock_guard lock(m_mutex);
    m_groups.erase(group);
}

void ScriptChildProcesses::endGroupsOf(const void *owner)
{
    std::vector<pid_t> ending;
    {
        std::lock_guard lock(m_mutex);
        for (auto it = m_groups.begin(); it != m_groups.end();) {
            if (it->second == owner) {
                ending.push_back(it->first);
                it = m_groups.erase(it);
            } else {
                ++it;
            }
        }
    }
    for (pid_t group : ending)
        endGroup(group);
}

void ScriptChildProcesses::endAll()
{
    std::map<pid_t, const void *> ending;
    {
        std::lock_guard lock(m_mutex);
        ending.swap(m_groups);
    }
    for (const auto &entry : ending)
        endGroup(entry.first);
}

size_t ScriptChildProcesses::count() const
{
    std::lock_guard lock(m_mutex);
    return m_groups.size();
}

bool ScriptChildProcesses::endGroup(pid_t group)
{
    // A group id of 0 or 1 would name the caller's own group or every process.
    if (group <= 1)
        return false;
    return ::kill(-group, SIGKILL) == 0;
}

bool ScriptChildProcesses::hasMembers(pid_t group)
{
    if (group <= 1)
        return false;
    // EPERM: a member that changed its user is still a member.
    return ::kill(-group, 0) == 0 || errno == EPERM;
}
