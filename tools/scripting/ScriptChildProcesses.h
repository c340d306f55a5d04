#pragma once

#include <sys/types.h>

#include <cstddef>
#include <map>
#include <mutex>

// The process groups of the children that scripts started (Kelvara.process and
// Kelvara.shell) and that may still run. Each child leads a group of its own, which takes in
// whatever it starts in the background; the group belongs to the script call that started
// it, and ends (SIGKILL) when that call ends, however it ends. A process that stops ends all
// of them.
//
// A group is forgotten once it has been ended; its number is used for as long as any member
// lives, so a signal to it reaches no stranger. Any thread.
class ScriptChildProcesses {
public:
    static ScriptChildProcesses &shared();

    // Records the group (the id of its leader) for the call owner; when a group of that
    // number was recorded before, its members are all gone, and the new one takes its place.
    void add(pid_t group, const void *owner);
    // Forgets the group without ending it (it has no members left).
    void remove(pid_t group);
    // Ends and forgets every group of the call.
    void endGroupsOf(const void *owner);
    // Ends and forgets every group: for a process that is shutting down.
    void endAll();

    size_t count() const;

    // Sends SIGKILL to every member of the group; false when none was left.
    static bool endGroup(pid_t group);
    // Whether the group has a member left.
    static bool hasMembers(pid_t group);

private:
    mutable std::mutex m_mutex;
    std::map<pid_t, const void *> m_groups;
};
