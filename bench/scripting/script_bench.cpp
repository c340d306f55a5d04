// Measures PluginScripting::callScript in-process: the latency of one call (p50, p99) and
// the calls per second on one thread and on eight threads at once. Every call does the
// whole contract: it looks at the script and bootstrap.js, evaluates the script in a fresh
// context (made ahead on the script thread that serves it) and clears it.
//
//   script_bench [--calls N] [--seconds S] [--threads T (8)]
//
// It runs inside a temporary XDG sandbox; the log lines the calls make are delivered on the
// main thread as in the application.

#include "diagnostics/LogController.h"
#include "tools/scripting/PluginScripting.h"
#include "tools/scripting/ScriptContextGroupPool.h"
#include "tools/scripting/ScriptThreadPool.h"

#include <JavaScriptCore/JavaScript.h>

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTimer>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <pthread.h>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

const char *kScript = R"JS(
function describe(params) {
    var words = String(params.text || '').split(/\s+/).filter(function (w) { return w.length > 0; });
    return { words: words.length, longest: words.reduce(function (a, w) { return w.length > a.length ? w : a; }, '') };
}
function toolEntry(sid, handlerName, jsonParams) {
    return Tool.dispatch({
        analyse: function (params) {
            var d = describe(params);
            return { text: 'words: ' + d.words, metadata: { words: d.words, longest: d.longest } };
        }
    }, sid, handlerName, jsonParams);
}
)JS";

const QString kParams = QStringLiteral("{\n    \"text\": \"the quick brown fox jumps over the lazy dog\"\n}");

std::atomic<bool> g_failed{false};

void oneCall(const QString &path, int worker, int index)
{
    const QString sid = QStringLiteral("bench-%1-%2").arg(worker).arg(index);
    const JSONToolResult result = PluginScripting::callScript(sid, path, QStringLiteral("analyse"), kParams);
    if (result.content.isEmpty() || result.content.first().text != QLatin1String("words: 9"))
        g_failed = true;
}

double percentile(std::vector<double> samples, double p)
{
    std::sort(samples.begin(), samples.end());
    const size_t at = std::min(samples.size() - 1, size_t(p * double(samples.size() - 1) + 0.5));
    return samples[at];
}

double processCpuSeconds()
{
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return double(now.tv_sec) + double(now.tv_nsec) / 1e9;
}

clockid_t g_mainThreadClock;

double mainThreadCpuSeconds()
{
    timespec now{};
    clock_gettime(g_mainThreadClock, &now);
    return double(now.tv_sec) + double(now.tv_nsec) / 1e9;
}

struct Throughput {
    double callsPerSecond = 0;
    double coresBusy = 0;      // CPU time over wall time: below the thread count when others ran
    double cpuMsPerCall = 0;   // all threads of the process, log delivery included
    double mainMsPerCall = 0;  // the main thread's part: the log lines becoming entries
};

Throughput throughput(const QString &path, int threads, double seconds)
{
    std::atomic<long> calls{0};
    std::atomic<bool> stop{false};
    std::vector<std::thread> workers;
    const auto start = Clock::now();
    const double cpuStart = processCpuSeconds();
    const double mainStart = mainThreadCpuSeconds();
    for (int t = 0; t < threads; ++t) {
        workers.emplace_back([&, t] {
            for (int i = 0; !stop.load(std::memory_order_relaxed); ++i) {
                oneCall(path, t, i);
                calls.fetch_add(1, std::memory_order_relaxed);
            }
        });
    }
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    stop = true;
    for (auto &worker : workers)
        worker.join();
    const double elapsed = std::chrono::duration<double>(Clock::now() - start).count();
    const double cpu = processCpuSeconds() - cpuStart;
    const double main = mainThreadCpuSeconds() - mainStart;
    const double n = double(std::max(1L, calls.load()));
    return Throughput{double(calls.load()) / elapsed, cpu / elapsed, 1000.0 * cpu / n, 1000.0 * main / n};
}

// What a bare context costs when its group is reused, and when every context gets a group
// of its own: the reason for the pool.
void contextCreationFigures()
{
    constexpr int n = 300;
    JSContextGroupRef group = JSContextGroupCreate();
    auto start = Clock::now();
    for (int i = 0; i < n; ++i)
        JSGlobalContextRelease(JSGlobalContextCreateInGroup(group, nullptr));
    const double pooled = std::chrono::duration<double, std::micro>(Clock::now() - start).count() / n;
    JSContextGroupRelease(group);
    start = Clock::now();
    for (int i = 0; i < n; ++i) {
        JSContextGroupRef fresh = JSContextGroupCreate();
        JSGlobalContextRelease(JSGlobalContextCreateInGroup(fresh, nullptr));
        JSContextGroupRelease(fresh);
    }
    const double fresh = std::chrono::duration<double, std::micro>(Clock::now() - start).count() / n;
    std::printf("context creation: %.0f us in a reused group, %.0f us with a new group (%.1fx)\n", pooled, fresh, fresh / pooled);
}

}  // namespace

int main(int argc, char **argv)
{
    int calls = 2000;
    double seconds = 3.0;
    int threads = 8;
    for (int i = 1; i + 1 < argc; ++i) {
        if (std::strcmp(argv[i], "--calls") == 0)
            calls = std::max(10, std::atoi(argv[++i]));
        else if (std::strcmp(argv[i], "--seconds") == 0)
            seconds = std::max(0.5, std::atof(argv[++i]));
        else if (std::strcmp(argv[i], "--threads") == 0)
            threads = std::max(2, std::atoi(argv[++i]));
    }

    QTemporaryDir sandbox(QDir::tempPath() + QStringLiteral("/kelvara-bench-XXXXXX"));
    qputenv("XDG_DATA_HOME", (sandbox.path() + QStringLiteral("/data")).toUtf8());
    qputenv("XDG_CONFIG_HOME", (sandbox.path() + QStringLiteral("/config")).toUtf8());
    if (qEnvironmentVariableIsEmpty("KELVARA_RESOURCES"))
        qputenv("KELVARA_RESOURCES", KELVARA_SOURCE_RESOURCES);
    QCoreApplication app(argc, argv);
    pthread_getcpuclockid(pthread_self(), &g_mainThreadClock);

    const QString path = sandbox.path() + QStringLiteral("/scripts/analyse.js");
    QDir().mkpath(sandbox.path() + QStringLiteral("/scripts"));
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(kScript) < 0)
        return 1;
    file.close();

    // The calls run on worker threads, as tool calls do; this thread takes the log lines.
    LogController::shared();
    std::thread runner([&] {
        for (int i = 0; i < 200; ++i)
            oneCall(path, 0, i);  // warm-up

        std::vector<double> latencies;
        latencies.reserve(size_t(calls));
        for (int i = 0; i < calls; ++i) {
            const auto start = Clock::now();
            oneCall(path, 0, i);
            latencies.push_back(std::chrono::duration<double, std::milli>(Clock::now() - start).count());
        }
        std::printf("callScript latency over %d calls: p50 %.3f ms, p99 %.3f ms\n", calls, percentile(latencies, 0.50),
                    percentile(latencies, 0.99));

        const Throughput one = throughput(path, 1, seconds);
        const Throughput many = throughput(path, threads, seconds);
        std::printf("throughput: 1 thread %.0f calls/s, %d threads %.0f calls/s (%.2fx on %u cores)\n", one.callsPerSecond,
                    threads, many.callsPerSecond, many.callsPerSecond / one.callsPerSecond, std::thread::hardware_concurrency());
        // CPU time per call does not depend on what else the machine runs: equal figures
        // mean the threads do not get in each other's way.
        std::printf("cpu per call: 1 thread %.3f ms, %d threads %.3f ms (main thread's log delivery: %.3f ms, %.3f ms)\n",
                    one.cpuMsPerCall, threads, many.cpuMsPerCall, one.mainMsPerCall, many.mainMsPerCall);
        std::printf("cores busy: 1 thread %.2f, %d threads %.2f\n", one.coresBusy, threads, many.coresBusy);
        std::printf("idle context groups after the run: %zu; script threads: %zu\n",
                    ScriptContextGroupPool::shared().idleCount(), ScriptThreadPool::shared().threadCount());
        contextCreationFigures();
        std::fflush(stdout);
        QMetaObject::invokeMethod(&app, &QCoreApplication::quit, Qt::QueuedConnection);
    });
    const int status = app.exec();
    runner.join();
    ScriptThreadPool::shared().stop();
    if (g_failed) {
        std::fprintf(stderr, "a call gave a wrong result\n");
        return 1;
    }
    return status;
}
