#include "views/monitor/UsageChart.h"

#include <QPainter>
#include <QPainterPath>
#include <QTimer>

namespace {

QColor chartColor(SystemMonitor::ChartColor color)
{
    switch (color) {
    case SystemMonitor::ChartColor::Blue:
        return QColor(0x0a, 0x84, 0xff);
    case SystemMonitor::ChartColor::Green:
        return QColor(0x34, 0xc7, 0x59);
    case SystemMonitor::ChartColor::Cyan:
        return QColor(0x32, 0xad, 0xe6);
    case SystemMonitor::ChartColor::Yellow:
        return QColor(0xff, 0xcc, 0x00);
    case SystemMonitor::ChartColor::Orange:
        return QColor(0xff, 0x95, 0x00);
    case SystemMonitor::ChartColor::Red:
        return QColor(0xff, 0x3b, 0x30);
    }
    return {};
}

}  // namespace

UsageChart::UsageChart(const QString &title, QWidget *parent) : QWidget(parent), m_title(title), m_timer(new QTimer(this))
{
    setMinimumSize(320, 150);
    m_timer->setInterval(1000);
    connect(m_timer, &QTimer::timeout, this, &UsageChart::sample);
}

bool UsageChart::isSampling() const
{
    return m_timer->isActive();
}

void UsageChart::sample()
{
    m_history.append(reading());
    while (m_history.size() > maxDataPoints)
        m_history.removeFirst();
    update();
}

void UsageChart::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    reading();  // the first reading measures from boot: not shown
    m_timer->start();
}

void UsageChart::hideEvent(QHideEvent *event)
{
    QWidget::hideEvent(event);
    m_timer->stop();
}

void UsageChart::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QRectF area = rect().adjusted(8, 28, -8, -8);
    painter.setPen(palette().color(QPalette::WindowText));
    QFont bold = font();
    bold.setBold(true);
    painter.setFont(bold);
    painter.drawText(QRectF(8, 4, width() - 16, 20), Qt::AlignLeft | Qt::AlignVCenter, m_title);
    if (m_history.isEmpty()) {
        painter.setFont(font());
        painter.drawText(area, Qt::AlignCenter, QStringLiteral("No data"));
        return;
    }
    const double latest = m_history.last();
    if (!m_caption.isEmpty()) {
        painter.setFont(font());
        painter.setPen(palette().color(QPalette::PlaceholderText));
        painter.drawText(QRectF(8, 4, width() - 16, 20), Qt::AlignRight | Qt::AlignVCenter,
                         QStringLiteral("%1% %2").arg(latest, 0, 'f', 0).arg(m_caption));
    }
    const QColor color = chartColor(colorFor(latest));
    painter.setPen(color);
    painter.drawText(QRectF(8, 4, width() - 16, 20), Qt::AlignRight | Qt::AlignVCenter,
                     QString::asprintf("%.1f", latest) + u'%');
    painter.setPen(QPen(palette().color(QPalette::Mid), 1, Qt::DotLine));
    for (double level : {0.0, 50.0, 100.0}) {
        const double y = area.bottom() - area.height() * level / 100;
        painter.drawLine(QPointF(area.left(), y), QPointF(area.right(), y));
    }
    QPainterPath line;
    const double step = area.width() / double(maxDataPoints - 1);
    const double offset = area.right() - step * double(m_history.size() - 1);
    for (qsizetype i = 0; i < m_history.size(); ++i) {
        const QPointF point(offset + step * double(i), area.bottom() - area.height() * m_history.at(i) / 100);
        i == 0 ? line.moveTo(point) : line.lineTo(point);
    }
    painter.setPen(QPen(color, 2));
    painter.drawPath(line);
}
