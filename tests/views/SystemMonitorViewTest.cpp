#include "views/app/AppMainWindow.h"
#include "views/monitor/CPUChart.h"
#include "views/monitor/MemoryChart.h"
#include "views/monitor/SystemMonitorWindow.h"
#include "views/monitor/SystemStatsToolbarView.h"

#include "tests/support/TestSupport.h"
#include "tests/support/TestServices.h"

#include <gtest/gtest.h>

#include <QLabel>
#include <QTest>

// The status bar shows the machine's figures while the window is up, and a click opens the
// monitor, whose charts sample only while they are on screen.
TEST(SystemMonitorView, StatusBarFiguresAndChartsThatSampleOnlyWhileShown)
{
    auto *window = new AppMainWindow(TestServices::application().server());
    window->show();
    auto *stats = window->findChild<SystemStatsToolbarView *>(QStringLiteral("systemStats"));
    ASSERT_NE(stats, nullptr);
    EXPECT_TRUE(stats->isRefreshing());
    // This machine has memory in use, and the text says how much.
    EXPECT_GT(stats->memFraction(), 0.0);
    EXPECT_LE(stats->memFraction(), 1.0);
    EXPECT_TRUE(stats->memUsedLabel().contains(QStringLiteral(" / ")));
    const QString cpuText = window->findChild<QLabel *>(QStringLiteral("systemStatsCpu"))->text();
    EXPECT_TRUE(cpuText.startsWith(QStringLiteral("CPU ")) && cpuText.endsWith(u'%')) << cpuText.toStdString();
    window->hide();
    EXPECT_FALSE(stats->isRefreshing());
    window->show();

    QTest::mouseClick(stats, Qt::LeftButton);
    SystemMonitorWindow *monitor = SystemMonitorWindow::current();
    ASSERT_NE(monitor, nullptr);
    EXPECT_EQ(SystemMonitorWindow::showMonitor(), monitor);  // one window
    auto *cpu = monitor->findChild<CPUChart *>();
    auto *memory = monitor->findChild<MemoryChart *>();
    ASSERT_NE(cpu, nullptr);
    ASSERT_NE(memory, nullptr);
    EXPECT_EQ(cpu->title(), "CPU Usage");
    EXPECT_EQ(memory->title(), "Memory Usage");
    EXPECT_TRUE(cpu->isSampling());
    EXPECT_TRUE(cpu->history().isEmpty());  // the reading taken on appearing is not shown
    for (int i = 0; i < UsageChart::maxDataPoints + 5; ++i)
        memory->sample();
    EXPECT_EQ(memory->history().size(), UsageChart::maxDataPoints);
    EXPECT_GT(memory->history().last(), 0.0);
    monitor->hide();
    EXPECT_FALSE(cpu->isSampling());
    EXPECT_FALSE(memory->isSampling());
    monitor->close();
    window->close();
}
