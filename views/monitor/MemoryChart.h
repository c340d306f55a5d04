#pragma once

#include "views/monitor/UsageChart.h"

// "Memory Usage": the share of physical memory in use (MemTotal − MemAvailable).
class MemoryChart : public UsageChart {
    Q_OBJECT

public:
    explicit MemoryChart(QWidget *parent = nullptr);

protected:
    double reading() override;
    SystemMonitor::ChartColor colorFor(double percent) const override;

private:
    SystemMonitor m_monitor;  // its own previous reading
};
