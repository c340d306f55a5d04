#pragma once

#include "diagnostics/SystemMonitor.h"

#include <QWidget>

class QLabel;
class QProgressBar;
class QTimer;

// The processor and memory figures of the main window's status bar, refreshed each second
// while shown. A click opens the System Monitor window with the two charts.
class SystemStatsToolbarView : public QWidget {
    Q_OBJECT

public:
    explicit SystemStatsToolbarView(QWidget *parent = nullptr);

    double cpuFraction() const { return m_cpuFraction; }
    double memFraction() const { return m_memFraction; }
    QString memUsedLabel() const { return m_memUsedLabel; }
    bool isRefreshing() const;
    void refresh();

protected:
    void showEvent(QShowEvent *event) override;
    void hideEvent(QHideEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;

private:
    SystemMonitor m_monitor;  // reads /proc; the figures are since boot, so it keeps no state
    double m_cpuFraction = 0;
    double m_memFraction = 0;
    QString m_memUsedLabel;
    QTimer *m_timer;
    QLabel *m_cpuText;
    QProgressBar *m_cpuBar;
    QLabel *m_memText;
    QProgressBar *m_memBar;
};
