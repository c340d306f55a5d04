#pragma once

#include <QString>
#include <cstdint>
#include <optional>

// The machine's load from /proc: processor ticks from the first line of /proc/stat and
// memory from /proc/meminfo. Used memory is MemTotal − MemAvailable, for the toolbar and the
// chart alike: what the kernel could not hand to a new program without swapping.
//
// The toolbar figure reads the ticks since boot, with no previous reading, so that it moves
// slowly; the chart figure is the share of the ticks since the previous reading. Every
// failed read gives 0. Main thread: the timers of the views call it.
class SystemMonitor {
public:
    struct Ticks {
        uint64_t user = 0;
        uint64_t system = 0;  // system, irq, softirq and steal
        uint64_t idle = 0;    // idle and iowait
        uint64_t nice = 0;
    };
    struct Memory {
        uint64_t totalBytes = 0;
        uint64_t usedBytes = 0;
    };
    enum class Level { Green, Yellow, Red };
    enum class ChartColor { Blue, Green, Cyan, Yellow, Orange, Red };

    // procRoot: the folder that holds stat and meminfo; "/proc" unless a test gives copies.
    explicit SystemMonitor(QString procRoot = QStringLiteral("/proc"));

    std::optional<Ticks> readTicks() const;
    std::optional<Memory> readMemory() const;

    // 0 to 1: 1 − idle / total over the ticks since boot.
    double toolbarCpuFraction() const;
    // 0 to 1.
    double memoryFraction() const;
    // "3.1 GB / 15.5 GB"
    QString memoryUsedLabel() const;

    // 0 to 100 over the ticks since the previous reading, which this reading replaces. The
    // first reading measures from boot; a counter that went backwards counts as a first
    // reading and gives 0.
    double chartCpuPercent();
    // 0 to 100.
    double chartMemoryPercent() const;

    // "1023 B", "1.0 KB", … up to TB.
    static QString byteText(double bytes);
    static double fractionOf(const Ticks &ticks);
    static double percentBetween(const Ticks &previous, const Ticks &now);
    static Level cpuLevel(double fraction);     // yellow from 0.5, red from 0.8
    static Level memoryLevel(double fraction);  // yellow from 0.6, red from 0.85
    static ChartColor cpuChartColor(double percent);
    static ChartColor memoryChartColor(double percent);

private:
    QString m_procRoot;
    Ticks m_previous;
};
