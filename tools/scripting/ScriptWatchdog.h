#pragma once

#include <JavaScriptCore/JavaScript.h>

#include <QString>

#include <atomic>
#include <chrono>
#include <memory>
#include <optional>
#include <utility>

namespace MCP {
struct CancellationToken;
}
class TransferStopCheck;

// Ends a script call that runs past its time limit or its memory limit, so that a handler
// like `while (true) {}` or one that allocates without end frees its worker (and the memory)
// instead of holding it for the rest of the process's life.
//
// Armed on the call's context group for the watchdog's life. JavaScriptCore checks the
// group's clock while the script runs and asks this object whether to end it; the script is
// then ended with an uncatchable termination. The host calls that wait (a child process, an
// HTTP transfer) ask it too, through reasonToStop(), and end early with the same reason; the
// script then ends as soon as it runs JavaScript again. A cancellation of the tool call
// (the thread's current token) and a shutdown (terminateAll) end the script the same way.
//
// The memory limit bounds the growth of the whole process's resident memory since the call
// began (which takes in the script's JavaScript heap and what its host calls hold): the
// engine has no public measure of one heap, and the process's memory is what runs out. A call
// that allocates beside another busy one may thus be ended for the other's share.
//
// The children the call started (ScriptChildProcesses) end with the watchdog, however the call
// ended. One call per thread at a time; the watchdog belongs to that thread.
class ScriptWatchdog {
public:
    // The settings key of the limit in seconds; 30 when unset, none when 0 or less.
    static inline const QString timeLimitKey = QStringLiteral("mcp.script.timeLimit");
    static constexpr double defaultTimeLimit = 30;
    // The settings key of the memory limit in MiB; 512 when unset, none when 0 or less.
    static inline const QString memoryLimitKey = QStringLiteral("mcp.script.memoryLimit");
    static constexpr double defaultMemoryLimit = 512;

    // The limits the settings give now.
    static double configuredTimeLimit();
    static double configuredMemoryLimit();
    // Both, seconds and MiB, from one reading of the settings: what each call arms.
    static std::pair<double, double> configuredLimits();
    // "Script exceeded its time limit of 30 s"
    static QString exceededText(double seconds);
    // "Script exceeded its memory limit of 512 MiB"
    static QString memoryExceededText(double mebibytes);
    static QString shutdownText();
    static QString cancelledText();

    enum class Stop { None, TimeLimit, MemoryLimit, Shutdown, Cancelled };

    // Arms the group with the limits, seconds on the clock and MiB of growth; 0 or less arms
    // none (but terminateAll and a cancellation still reach the script). Becomes the calling
    // thread's current watchdog.
    ScriptWatchdog(JSContextGroupRef group, double seconds, double memoryMebibytes = 0);
    ~ScriptWatchdog();
    ScriptWatchdog(const ScriptWatchdog &) = delete;
    ScriptWatchdog &operator=(const ScriptWatchdog &) = delete;

    // True once a limit, a cancellation or a shutdown ended the script.
    bool fired() const { return stopped() != Stop::None; }
    Stop stopped() const { return Stop(m_stop.load()); }
    // The message of the stop; empty while there is none.
    QString stopText() const;
    double limit() const { return m_limit; }
    double memoryLimit() const { return m_memoryLimit; }

    // The watchdog of the call that runs on the calling thread, or null.
    static ScriptWatchdog *current();

    // Whether the call is to stop now, and why; decided on the way. For the host calls that
    // wait: the script itself is then ended at its next line of JavaScript.
    std::optional<QString> reasonToStop();

    // Ends every script that runs now, at its next check (within a quarter second of its
    // own running time), its host calls at their next look, and every child process that
    // scripts started: for a process that is shutting down.
    static void terminateAll();

    // The process's resident memory in bytes; 0 when the system does not say.
    static qint64 residentBytes();

private:
    static bool shouldTerminate(JSContextRef context, void *watchdog);
    void arm(double interval);
    Stop check(bool forceMemoryLook);
    // When the engine should look next, from how fast the memory grew since its last look.
    double nextInterval();

    JSContextGroupRef m_group;
    double m_limit;
    double m_memoryLimit;
    qint64 m_memoryLimitBytes;
    std::chrono::steady_clock::time_point m_start;
    std::chrono::steady_clock::time_point m_lastMemoryLook;
    qint64 m_startResident;
    qint64 m_growth = 0;
    qint64 m_lastLookGrowth = 0;
    double m_lastLookCpu = 0;
    unsigned m_generation;
    const MCP::CancellationToken *m_token;
    std::atomic<int> m_stop{int(Stop::None)};
    ScriptWatchdog *m_previous;
    std::unique_ptr<TransferStopCheck> m_transferCheck;
};
