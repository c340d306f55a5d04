#include "diagnostics/SystemMonitor.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

namespace {

void write(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(bytes);
}

const QString kFixture = QStringLiteral(KELVARA_PROC_FIXTURE);

}  // namespace

TEST(SystemMonitorReadings, ProcessorAndMemoryFromCopiesOfProc)
{
    SystemMonitor monitor(kFixture);
    const auto ticks = monitor.readTicks();
    ASSERT_TRUE(ticks);
    EXPECT_EQ(ticks->user, 4705u);
    EXPECT_EQ(ticks->nice, 150u);
    EXPECT_EQ(ticks->system, 1120u + 45u);  // with irq, softirq and steal
    EXPECT_EQ(ticks->idle, 16250u + 520u);  // with iowait
    EXPECT_NEAR(monitor.toolbarCpuFraction(), 1.0 - 16770.0 / (4705 + 150 + 1165 + 16770), 1e-9);

    // Used is MemTotal − MemAvailable, for the toolbar and the chart alike.
    const auto memory = monitor.readMemory();
    ASSERT_TRUE(memory);
    EXPECT_EQ(memory->usedBytes, (16303428ull - 12227572ull) * 1024);
    EXPECT_NEAR(monitor.memoryFraction(), (16303428.0 - 12227572.0) / 16303428.0, 1e-9);
    EXPECT_NEAR(monitor.chartMemoryPercent(), monitor.memoryFraction() * 100, 1e-9);
    EXPECT_EQ(monitor.memoryUsedLabel(), "3.9 GB / 15.5 GB");

    // Missing files give 0 and no figure, never a failure.
    SystemMonitor nowhere(QStringLiteral("/nonexistent"));
    EXPECT_FALSE(nowhere.readTicks());
    EXPECT_EQ(nowhere.toolbarCpuFraction(), 0);
    EXPECT_EQ(nowhere.memoryFraction(), 0);
    EXPECT_EQ(nowhere.chartCpuPercent(), 0);
    EXPECT_EQ(nowhere.memoryUsedLabel(), "0 B / 0 B");
}

TEST(SystemMonitorReadings, TheChartFigureIsTheShareSinceThePreviousReading)
{
    QTemporaryDir proc;
    QFile::copy(kFixture + "/meminfo", proc.path() + "/meminfo");
    write(proc.path() + "/stat", "cpu  100 0 100 800 0 0 0 0\n");
    SystemMonitor monitor(proc.path());
    EXPECT_NEAR(monitor.chartCpuPercent(), 20.0, 1e-9);  // the first reading measures from boot
    // Two readings in one interval: no ticks gone by gives 0, not a division by zero.
    EXPECT_EQ(monitor.chartCpuPercent(), 0);
    write(proc.path() + "/stat", "cpu  175 0 125 850 0 0 0 0\n");
    EXPECT_NEAR(monitor.chartCpuPercent(), 100.0 * 100 / 150, 1e-9);
    // A counter that went backwards gives 0 and starts over from that reading.
    write(proc.path() + "/stat", "cpu  10 0 10 10 0 0 0 0\n");
    EXPECT_EQ(monitor.chartCpuPercent(), 0);
    write(proc.path() + "/stat", "cpu  20 0 10 20 0 0 0 0\n");
    EXPECT_NEAR(monitor.chartCpuPercent(), 50.0, 1e-9);

    // More used than there is shows as all of it.
    write(proc.path() + "/meminfo", "MemTotal: 1000 kB\nMemAvailable: 5000 kB\n");
    EXPECT_EQ(monitor.memoryFraction(), 0);
    write(proc.path() + "/meminfo", "MemTotal: 0 kB\nMemAvailable: 0 kB\n");
    EXPECT_EQ(monitor.memoryFraction(), 0);
}

TEST(SystemMonitorTexts, BytesAndColourBands)
{
    EXPECT_EQ(SystemMonitor::byteText(0), "0 B");
    EXPECT_EQ(SystemMonitor::byteText(1023), "1023 B");
    EXPECT_EQ(SystemMonitor::byteText(1024), "1.0 KB");
    EXPECT_EQ(SystemMonitor::byteText(1536.0 * 1024 * 1024), "1.5 GB");
    EXPECT_EQ(SystemMonitor::byteText(2048.0 * 1024 * 1024 * 1024 * 1024), "2048.0 TB");  // no unit above TB
    EXPECT_EQ(SystemMonitor::cpuLevel(0.49), SystemMonitor::Level::Green);
    EXPECT_EQ(SystemMonitor::cpuLevel(0.5), SystemMonitor::Level::Yellow);
    EXPECT_EQ(SystemMonitor::cpuLevel(0.8), SystemMonitor::Level::Red);
    EXPECT_EQ(SystemMonitor::memoryLevel(0.6), SystemMonitor::Level::Yellow);
    EXPECT_EQ(SystemMonitor::memoryLevel(0.85), SystemMonitor::Level::Red);
    EXPECT_EQ(SystemMonitor::cpuChartColor(29.9), SystemMonitor::ChartColor::Blue);
    EXPECT_EQ(SystemMonitor::cpuChartColor(60), SystemMonitor::ChartColor::Orange);
    EXPECT_EQ(SystemMonitor::memoryChartColor(74.9), SystemMonitor::ChartColor::Yellow);
    EXPECT_EQ(SystemMonitor::memoryChartColor(90), SystemMonitor::ChartColor::Red);
}
