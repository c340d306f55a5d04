#include "views/monitor/CPUChart.h"

CPUChart::CPUChart(QWidget *parent) : UsageChart(QStringLiteral("CPU Usage"), parent)
{
    setObjectName(QStringLiteral("cpuChart"));
    setCaption(QStringLiteral("now, over the last second"));
}

double CPUChart::reading()
{
    return m_monitor.chartCpuPercent();
}

SystemMonitor::ChartColor CPUChart::colorFor(double percent) const
{
    return SystemMonitor::cpuChartColor(percent);
}
