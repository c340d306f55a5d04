#pragma once

#include "diagnostics/SystemMonitor.h"

#include <QList>
#include <QWidget>

class QTimer;

// A rolling line chart of one percentage, sampled each second while it is on screen: the
// base of CPUChart and MemoryChart. It takes one reading when it appears (which it keeps
// to itself: the processor's first reading measures from boot) and only then starts its
// timer; hidden, it stops it.
class UsageChart : public QWidget {
    Q_OBJECT

public:
    static constexpr int maxDataPoints = 60;

    const QList<double> &history() const { return m_history; }
    bool isSampling() const;
    QString title() const { return m_title; }
    // Appends one reading, dropping the oldest beyond maxDataPoints.
    void sample();

protected:
    // Beside the latest figure in the header: what it measures ("over the last second").
    void setCaption(const QString &caption) { m_caption = caption; }
    UsageChart(const QString &title, QWidget *parent);
    virtual double reading() = 0;
    virtual SystemMonitor::ChartColor colorFor(double percent) const = 0;

    void showEvent(QShowEvent *event) override;
    void hideEvent(QHideEvent *event) override;
    void paintEvent(QPaintEvent *event) override;

private:
    QString m_title;
    QString m_caption;
    QList<double> m_history;
    QTimer *m_timer;
};
