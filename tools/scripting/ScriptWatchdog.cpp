#include "tools/scripting/ScriptWatchdog.h"

#include "base/UserDefaults.h"
#include "engine/CancellationToken.h"
#include "tools/http/TransferStopCheck.h"
#include "tools/scripting/ScriptChildProcesses.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <unistd.h>

// JavaScriptCore's execution time limit. The functions are exported by the library but
// declared only in a header the -dev package does not ship.
extern "C" {
typedef bool (*JSShouldTerminateCallback)(JSContextRef ctx, void *context);
JS_EXPORT void JSContextGroupSetExecutionTimeLimit(JSContextGroupRef group, double limit,
                                                   JSShouldTerminateCallback callback, void *context);
JS_EXPORT void JSContextGroupClearExecutionTimeLimit(JSContextGroupRef group);
}

namespace {

using Clock = std::chrono::steady_clock;

// How often a running script is looked at: the limits are checked this often, and a shutdown
// reaches the script within this much of its running time. Each look costs the engine the
// optimised code of the functions on the stack, so it is not made much more often.
constexpr double kCheckInterval = 0.25;
// While memory grows, the next look comes before the growth could reach the limit at the
// rate it had, but not sooner than this; the first look comes this soon too, as the rate is
// not known yet. A script that takes a gigabyte a second is thus ended a few tens of
// megabytes past its limit, one that takes little is looked at only every quarter second.
constexpr double kMemoryLookMin = 0.01;
constexpr double kFirstMemoryLook = 0.02;
// Once a host call has found the reason to stop, the script ends after this much more
// running time instead of a whole interval.
constexpr double kPromptCheck = 0.001;
// Host calls that wait ask many times a second; the memory is read at most this often then.
constexpr std::chrono::milliseconds kMemoryLookInterval{50};

std::atomic<unsigned> g_terminateGeneration{0};

double threadCpuSeconds()
{
    timespec now{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return double(now.tv_sec) + double(now.tv_nsec) / 1e9;
}
thread_local ScriptWatchdog *t_current = nullptr;

// A limit shorter than the interval is checked at its own length.
double checkInterval(double limit)
{
    return limit > 0 ? std::min(limit, kCheckInterval) : kCheckInterval;
}

double storedNumber(const QSettings &settings, const QString &key, double fallback)
{
    const QVariant value = settings.value(key);
    bool ok = false;
    const double number = value.toDouble(&ok);
    return value.isValid() && ok ? number : fallback;
}

}  // namespace

double ScriptWatchdog::configuredTimeLimit()
{
    return storedNumber(*UserDefaults::standard(), timeLimitKey, defaultTimeLimit);
}

double ScriptWatchdog::configuredMemoryLimit()
{
    return storedNumber(*UserDefaults::standard(), memoryLimitKey, defaultMemoryLimit);
}

std::pair<double, double> ScriptWatchdog::configuredLimits()
{
    const auto settings = UserDefaults::standard();
    return {storedNumber(*settings, timeLimitKey, defaultTimeLimit),
            storedNumber(*settings, memoryLimitKey, defaultMemoryLimit)};
}

QString ScriptWatchdog::exceededText(double seconds)
{
    return QStringLiteral("Script exceeded its time limit of %1 s").arg(seconds);
}

QString ScriptWatchdog::memoryExceededText(double mebibytes)
{
    return QStringLiteral("Script exceeded its memory limit of %1 MiB").arg(mebibytes);
}

QString ScriptWatchdog::shutdownText()
{
    return QStringLiteral("Script stopped because Kelvara is shutting down");
}

QString ScriptWatchdog::cancelledText()
{
    return QStringLiteral("Script stopped because its tool call was cancelled");
}

ScriptWatchdog::ScriptWatchdog(JSContextGroupRef group, double seconds, double memoryMebibytes)
    : m_group(group), m_limit(seconds), m_memoryLimit(memoryMebibytes),
      m_memoryLimitBytes(memoryMebibytes > 0 ? qint64(memoryMebibytes * 1024 * 1024) : 0), m_start(Clock::now()),
      m_lastMemoryLook(m_start), m_startResident(m_memoryLimitBytes > 0 ? residentBytes() : 0),
      m_generation(g_terminateGeneration.load()), m_token(MCP::CancellationToken::current()), m_previous(t_current)
{
    t_current = this;
    m_transferCheck = std::make_unique<TransferStopCheck>([this] { return reasonToStop(); });
    m_lastLookCpu = threadCpuSeconds();
    m_lastLookGrowth = 0;
    arm(m_memoryLimitBytes > 0 ? std::min(kFirstMemoryLook, checkInterval(m_limit)) : checkInterval(m_limit));
}

ScriptWatchdog::~ScriptWatchdog()
{
    JSContextGroupClearExecutionTimeLimit(m_group);
    m_transferCheck.reset();
    t_current = m_previous;
    // Whatever the call left running in the background ends with it.
    ScriptChildProcesses::shared().endGroupsOf(this);
}

ScriptWatchdog *ScriptWatchdog::current()
{
    return t_current;
}

void ScriptWatchdog::arm(double interval)
{
    JSContextGroupSetExecutionTimeLimit(m_group, interval, &ScriptWatchdog::shouldTerminate, this);
}

QString ScriptWatchdog::stopText() const
{
    switch (stopped()) {
    case Stop::TimeLimit:
        return exceededText(m_limit);
    case Stop::MemoryLimit:
        return memoryExceededText(m_memoryLimit);
    case Stop::Shutdown:
        return shutdownText();
    case Stop::Cancelled:
        return cancelledText();
    case Stop::None:
        break;
    }
    return {};
}

ScriptWatchdog::Stop ScriptWatchdog::check(bool forceMemoryLook)
{
    if (fired())
        return stopped();
    Stop found = Stop::None;
    const auto now = Clock::now();
    if (g_terminateGeneration.load() != m_generation) {
        found = Stop::Shutdown;
    } else if (m_token && m_token->isCancelled()) {
        found = Stop::Cancelled;
    } else if (m_limit > 0 && std::chrono::duration<double>(now - m_start).count() >= m_limit) {
        // The engine counts the script's processor time; the limit the user sets is time on
        // the clock, which a script that also waits for its host calls reaches sooner.
        found = Stop::TimeLimit;
    } else if (m_memoryLimitBytes > 0 && (forceMemoryLook || now - m_lastMemoryLook >= kMemoryLookInterval)) {
        m_lastMemoryLook = now;
        const qint64 resident = residentBytes();
        m_growth = resident > 0 ? resident - m_startResident : 0;
        if (m_growth > m_memoryLimitBytes)
            found = Stop::MemoryLimit;
    }
    if (found != Stop::None)
        m_stop.store(int(found));
    return found;
}

std::optional<QString> ScriptWatchdog::reasonToStop()
{
    const bool wasRunning = !fired();
    if (check(false) == Stop::None)
        return std::nullopt;
    // The script ends as soon as it runs again, not a whole interval later.
    if (wasRunning)
        arm(kPromptCheck);
    return stopText();
}

void ScriptWatchdog::terminateAll()
{
    ++g_terminateGeneration;
    ScriptChildProcesses::shared().endAll();
}

bool ScriptWatchdog::shouldTerminate(JSContextRef, void *data)
{
    auto *self = static_cast<ScriptWatchdog *>(data);
    if (self->check(true) != Stop::None)
        return true;
    // The engine asks once per arming: without a new one the script would run unwatched.
    self->arm(self->nextInterval());
    return false;
}

double ScriptWatchdog::nextInterval()
{
    const double regular = checkInterval(m_limit);
    if (m_memoryLimitBytes <= 0)
        return regular;
    // The engine's interval is the script's processor time; so is the rate.
    const double cpu = threadCpuSeconds();
    const double spent = cpu - m_lastLookCpu;
    const double rate = spent > 0 ? double(m_growth - m_lastLookGrowth) / spent : 0;
    m_lastLookCpu = cpu;
    m_lastLookGrowth = m_growth;
    if (rate <= 0)
        return regular;
    const double headroom = double(m_memoryLimitBytes - m_growth);
    return std::clamp(0.5 * headroom / rate, kMemoryLookMin, regular);
}

qint64 ScriptWatchdog::residentBytes()
{
    // Plain calls: this runs several times a second while a script runs.
    const int fd = ::open("/proc/self/statm", O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return 0;
    char buffer[128];
    ssize_t got;
    do {
        got = ::read(fd, buffer, sizeof buffer - 1);
    } while (got < 0 && errno == EINTR);
    ::close(fd);
    if (got <= 0)
        return 0;
    buffer[got] = '\0';
    unsigned long long size = 0;
    unsigned long long resident = 0;
    if (std::sscanf(buffer, "%llu %llu", &size, &resident) != 2)
        return 0;
    return qint64(resident) * qint64(::sysconf(_SC_PAGESIZE));
}
