#pragma once

#include <QWidget>

// The "System Monitor" window: the processor and memory charts one above the other. One
// window per process; showing it again brings it to the front.
class SystemMonitorWindow : public QWidget {
    Q_OBJECT

public:
    static SystemMonitorWindow *showMonitor();
    static SystemMonitorWindow *current();

private:
    explicit SystemMonitorWindow(QWidget *parent = nullptr);
};
