#include "views/monitor/SystemStatsToolbarView.h"

#include "diagnostics/SystemMonitor.h"
#include "views/monitor/SystemMonitorWindow.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QTimer>

namespace {

QString levelColor(SystemMonitor::Level level)
{
    switch (level) {
    case SystemMonitor::Level::Green:
        return QStringLiteral("#34c759");
    case SystemMonitor::Level::Yellow:
        return QStringLiteral("#ffcc00");
    case SystemMonitor::Level::Red:
        return QStringLiteral("#ff3b30");
    }
    return {};
}

QProgressBar *makeBar(QWidget *parent, const QString &name)
{
    auto *bar = new QProgressBar(parent);
    bar->setObjectName(name);
    bar->setRange(0, 1000);
    bar->setTextVisible(false);
    bar->setFixedSize(46, 6);
    return bar;
}

void paintBar(QProgressBar *bar, double fraction, SystemMonitor::Level level)
{
    bar->setValue(int(fraction * 1000));
    bar->setStyleSheet(QStringLiteral("QProgressBar { border: none; background: palette(midlight); border-radius: 3px; }"
                                      "QProgressBar::chunk { background: %1; border-radius: 3px; }")
                           .arg(levelColor(level)));
}

}  // namespace

SystemStatsToolbarView::SystemStatsToolbarView(QWidget *parent) : QWidget(parent), m_timer(new QTimer(this))
{
    setObjectName(QStringLiteral("systemStats"));
    setCursor(Qt::PointingHandCursor);
    setToolTip(QStringLiteral("Processor and memory in use. Click for the System Monitor."));
    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(4, 0, 4, 0);
    layout->setSpacing(6);
    m_cpuText = new QLabel(this);
    m_cpuText->setObjectName(QStringLiteral("systemStatsCpu"));
    m_cpuText->setToolTip(QStringLiteral("Processor load, averaged since the system started"));
    m_cpuBar = makeBar(this, QStringLiteral("systemStatsCpuBar"));
    m_memText = new QLabel(this);
    m_memText->setObjectName(QStringLiteral("systemStatsMemory"));
    m_memBar = makeBar(this, QStringLiteral("systemStatsMemoryBar"));
    layout->addWidget(m_cpuText);
    layout->addWidget(m_cpuBar);
    layout->addSpacing(8);
    layout->addWidget(m_memText);
    layout->addWidget(m_memBar);
    m_timer->setInterval(1000);
    connect(m_timer, &QTimer::timeout, this, &SystemStatsToolbarView::refresh);
    refresh();
}

bool SystemStatsToolbarView::isRefreshing() const
{
    return m_timer->isActive();
}

void SystemStatsToolbarView::refresh()
{
    m_cpuFraction = m_monitor.toolbarCpuFraction();
    m_memFraction = m_monitor.memoryFraction();
    m_memUsedLabel = m_monitor.memoryUsedLabel();
    // The figure is the average since the system started, and says so; the monitor's chart
    // shows the load now.
    m_cpuText->setText(QStringLiteral("CPU avg ") + QString::asprintf("%.0f%%", m_cpuFraction * 100));
    m_memText->setText(QStringLiteral("Memory ") + QString::asprintf("%.0f%%", m_memFraction * 100));
    m_memText->setToolTip(m_memUsedLabel);
    paintBar(m_cpuBar, m_cpuFraction, SystemMonitor::cpuLevel(m_cpuFraction));
    paintBar(m_memBar, m_memFraction, SystemMonitor::memoryLevel(m_memFraction));
}

void SystemStatsToolbarView::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    refresh();
    m_timer->start();
}

void SystemStatsToolbarView::hideEvent(QHideEvent *event)
{
    QWidget::hideEvent(event);
    m_timer->stop();
}

void SystemStatsToolbarView::mousePressEvent(QMouseEvent *event)
{
    QWidget::mousePressEvent(event);
    SystemMonitorWindow::showMonitor();
}
