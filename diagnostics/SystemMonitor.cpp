#include "diagnostics/SystemMonitor.h"

#include <QFile>
#include <QList>
#include <QStringList>

#include <algorithm>

namespace {

QByteArray readSmall(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return file.read(1 << 16);  // both files are a few kilobytes
}

}  // namespace

SystemMonitor::SystemMonitor(QString procRoot) : m_procRoot(std::move(procRoot)) {}

std::optional<SystemMonitor::Ticks> SystemMonitor::readTicks() const
{
    const QByteArray stat = readSmall(m_procRoot + QStringLiteral("/stat"));
    for (const QByteArray &line : stat.split('\n')) {
        if (!line.startsWith("cpu "))
            continue;
        const QList<QByteArray> fields = line.simplified().split(' ');
        if (fields.size() < 5)
            return std::nullopt;
        auto field = [&fields](int i) -> uint64_t { return i < fields.size() ? fields.at(i).toULongLong() : 0; };
        Ticks ticks;
        ticks.user = field(1);
        ticks.nice = field(2);
        ticks.system = field(3) + field(6) + field(7) + field(8);
        ticks.idle = field(4) + field(5);
        return ticks;
    }
    return std::nullopt;
}

std::optional<SystemMonitor::Memory> SystemMonitor::readMemory() const
{
    const QByteArray info = readSmall(m_procRoot + QStringLiteral("/meminfo"));
    std::optional<uint64_t> total;
    std::optional<uint64_t> available;
    for (const QByteArray &line : info.split('\n')) {
        const QList<QByteArray> fields = line.simplified().split(' ');
        if (fields.size() < 2)
            continue;
        bool ok = false;
        const uint64_t kib = fields.at(1).toULongLong(&ok);
        if (!ok)
            continue;
        if (fields.at(0) == "MemTotal:")
            total = kib * 1024;
        else if (fields.at(0) == "MemAvailable:")
            available = kib * 1024;
    }
    if (!total || !available)
        return std::nullopt;
    // Available above total would be a broken file; it counts as nothing used.
    return Memory{*total, *total > *available ? *total - *available : 0};
}

double SystemMonitor::fractionOf(const Ticks &ticks)
{
    const uint64_t total = ticks.user + ticks.system + ticks.nice + ticks.idle;
    if (total == 0)
        return 0;
    return std::clamp(1.0 - double(ticks.idle) / double(total), 0.0, 1.0);
}

double SystemMonitor::toolbarCpuFraction() const
{
    const std::optional<Ticks> ticks = readTicks();
    return ticks ? fractionOf(*ticks) : 0;
}

double SystemMonitor::memoryFraction() const
{
    const std::optional<Memory> memory = readMemory();
    if (!memory || memory->totalBytes == 0)
        return 0;
    return std::clamp(double(memory->usedBytes) / double(memory->totalBytes), 0.0, 1.0);
}

QString SystemMonitor::memoryUsedLabel() const
{
    const std::optional<Memory> memory = readMemory();
    return byteText(memory ? double(memory->usedBytes) : 0) + QStringLiteral(" / ") +
           byteText(memory ? double(memory->totalBytes) : 0);
}

double SystemMonitor::percentBetween(const Ticks &previous, const Ticks &now)
{
    // A counter that went backwards (a wrap, another machine's file): no figure.
    if (now.user < previous.user || now.system < previous.system || now.idle < previous.idle || now.nice < previous.nice)
        return 0;
    const uint64_t used = (now.user - previous.user) + (now.system - previous.system) + (now.nice - previous.nice);
    const uint64_t total = used + (now.idle - previous.idle);
    if (total == 0)
        return 0;
    return std::clamp(double(used) / double(total) * 100.0, 0.0, 100.0);
}

double SystemMonitor::chartCpuPercent()
{
    const std::optional<Ticks> now = readTicks();
    if (!now)
        return 0;
    const double percent = percentBetween(m_previous, *now);
    m_previous = *now;
    return percent;
}

double SystemMonitor::chartMemoryPercent() const
{
    return memoryFraction() * 100.0;
}

QString SystemMonitor::byteText(double bytes)
{
    if (bytes < 1024)
        return QString::asprintf("%.0f B", bytes);
    static const char *const units[] = {"KB", "MB", "GB", "TB"};
    int unit = -1;
    while (bytes >= 1024 && unit < 3) {
        bytes /= 1024;
        ++unit;
    }
    return QString::asprintf("%.1f %s", bytes, units[unit]);
}

SystemMonitor::Level SystemMonitor::cpuLevel(double fraction)
{
    return fraction < 0.5 ? Level::Green : fraction < 0.8 ? Level::Yellow : Level::Red;
}

SystemMonitor::Level SystemMonitor::memoryLevel(double fraction)
{
    return fraction < 0.6 ? Level::Green : fraction < 0.85 ? Level::Yellow : Level::Red;
}

SystemMonitor::ChartColor SystemMonitor::cpuChartColor(double percent)
{
    return percent < 30 ? ChartColor::Blue : percent < 60 ? ChartColor::Cyan : percent < 80 ? ChartColor::Orange
                                                                                          : ChartColor::Red;
}

SystemMonitor::ChartColor SystemMonitor::memoryChartColor(double percent)
{
    return percent < 50 ? ChartColor::Green : percent < 75 ? ChartColor::Yellow : percent < 90 ? ChartColor::Orange
                                                                                            : ChartColor::Red;
}
