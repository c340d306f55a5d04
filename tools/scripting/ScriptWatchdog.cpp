#include "tools/scripting/ScriptWatchdog.h"

#include "base/UserDefaults.h"

#include <algorithm>

// JavaScriptCore's execution time limit. The functions are exported by the library but
// declared only in a header the -dev package does not ship.
extern "C" {
typedef bool (*JSShouldTerminateCallback)(JSContextRef ctx, void *context);
JS_EXPORT void JSContextGroupSetExecutionTimeLimit(JSContextGroupRef group, double limit,
                                                   JSShouldTerminateCallback callback, void *context);
JS_EXPORT void JSContextGroupClearExecutionTimeLimit(JSContextGroupRef group);
}

namespace {

// How often a running script is looked at: the limit is checked this often, and a shutdown
// reaches the script within this much of its running time.
constexpr double kCheckInterval = 0.25;

std::atomic<unsigned> g_terminateGeneration{0};

}  // namespace

double ScriptWatchdog::configuredTimeLimit()
{
    const auto settings = UserDefaults::standard();
    const QVariant value = settings->value(timeLimitKey);
    bool ok = false;
    const double seconds = value.toDouble(&ok);
    return value.isValid() && ok ? seconds : defaultTimeLimit;
}

QString ScriptWatchdog::exceededText(double seconds)
{
    return QStringLiteral("Script exceeded its time limit of %1 s").arg(seconds);
}

ScriptWatchdog::ScriptWatchdog(JSContextGroupRef group, double seconds)
    : m_group(group), m_limit(seconds), m_start(std::chrono::steady_clock::now()),
      m_generation(g_terminateGeneration.load())
{
    arm();
}

void ScriptWatchdog::arm()
{
    const double interval = m_limit > 0 ? std::min(m_limit, kCheckInterval) : kCheckInterval;
    JSContextGroupSetExecutionTimeLimit(m_group, interval, &ScriptWatchdog::shouldTerminate, this);
}

ScriptWatchdog::~ScriptWatchdog() { JSContextGroupClearExecutionTimeLimit(m_group); }

void ScriptWatchdog::terminateAll() { ++g_terminateGeneration; }

bool ScriptWatchdog::shouldTerminate(JSContextRef, void *data)
{
    auto *self = static_cast<ScriptWatchdog *>(data);
    if (g_terminateGeneration.load() != self->m_generation)
        return true;
    // The engine counts the script's processor time; the limit the user sets is time on the
    // clock, which a script that also waits for its host calls reaches sooner.
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - self->m_start;
    if (self->m_limit > 0 && elapsed.count() >= self->m_limit) {
        self->m_fired = true;
        return true;
    }
    // The engine asks once per arming: without a new one the script would run unwatched.
    self->arm();
    return false;
}
