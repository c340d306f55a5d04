#include "views/monitor/MemoryChart.h"

MemoryChart::MemoryChart(QWidget *parent) : UsageChart(QStringLiteral("Memory Usage"), parent)
{
    setObjectName(QStringLiteral("memoryChart"));
}

double MemoryChart::reading()
{
    return m_monitor.chartMemoryPercent();
}

SystemMonitor::ChartColor MemoryChart::colorFor(double percent) const
{
    return SystemMonitor::memoryChartColor(percent);
}
