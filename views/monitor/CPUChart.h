#pragma once

#include "views/monitor/UsageChart.h"

// "CPU Usage": the share of processor time in use since the previous second.
class CPUChart : public UsageChart {
    Q_OBJECT

public:
    explicit CPUChart(QWidget *parent = nullptr);

protected:
    double reading() override;
    SystemMonitor::ChartColor colorFor(double percent) const override;

private:
    SystemMonitor m_monitor;  // its own previous reading
};
