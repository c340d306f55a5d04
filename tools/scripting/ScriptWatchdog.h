#pragma once

#include <JavaScriptCore/JavaScript.h>

#include <QString>

#include <atomic>
#include <chrono>

// Ends a script call that runs past its time limit, so that a handler like `while (true) {}`
// frees its worker instead of holding it and a core for the rest of the process's life.
//
// Armed on the call's context group for the watchdog's life. JavaScriptCore checks the
// group's clock while the script runs and asks this object whether to end it; the script is
// then ended with an uncatchable termination. Time spent in a host call (a process, an HTTP
// transfer) is not interrupted: the script ends when it next runs JavaScript.
class ScriptWatchdog {
public:
    // The settings key of the limit in seconds; 30 when unset, none when 0 or less.
    static inline const QString timeLimitKey = QStringLiteral("mcp.script.timeLimit");
    static constexpr double defaultTimeLimit = 30;

    // The limit the settings give now.
    static double configuredTimeLimit();
    // "Script exceeded its time limit of 30 s"
    static QString exceededText(double seconds);

    // Arms the group with the limit in seconds; 0 or less arms nothing (but terminateAll
    // still reaches the script).
    ScriptWatchdog(JSContextGroupRef group, double seconds);
    ~ScriptWatchdog();
    ScriptWatchdog(const ScriptWatchdog &) = delete;
    ScriptWatchdog &operator=(const ScriptWatchdog &) = delete;

    // True once the limit ended the script.
    bool fired() const { return m_fired; }
    double limit() const { return m_limit; }

    // Ends every script that runs now, at its next check (within a quarter second of its
    // own running time): for a process that is shutting down.
    static void terminateAll();

private:
    static bool shouldTerminate(JSContextRef context, void *watchdog);
    void arm();

    JSContextGroupRef m_group;
    double m_limit;
    std::chrono::steady_clock::time_point m_start;
    unsigned m_generation;
    std::atomic<bool> m_fired{false};
};
