#include "views/monitor/SystemMonitorWindow.h"

#include "views/monitor/CPUChart.h"
#include "views/monitor/MemoryChart.h"

#include <QShortcut>
#include <QPointer>
#include <QVBoxLayout>

namespace {

QPointer<SystemMonitorWindow> &shownWindow()
{
    static QPointer<SystemMonitorWindow> shown;
    return shown;
}

}  // namespace

SystemMonitorWindow::SystemMonitorWindow(QWidget *parent) : QWidget(parent, Qt::Window)
{
    setObjectName(QStringLiteral("systemMonitorWindow"));
    // A secondary window closes with Escape, as a dialog does.
    connect(new QShortcut(QKeySequence(Qt::Key_Escape), this), &QShortcut::activated, this, &QWidget::close);
    setAttribute(Qt::WA_DeleteOnClose);
    setWindowTitle(QStringLiteral("Kelvara - System Monitor"));
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(new CPUChart(this));
    layout->addWidget(new MemoryChart(this));
    resize(420, 360);
}

SystemMonitorWindow *SystemMonitorWindow::showMonitor()
{
    if (!shownWindow())
        shownWindow() = new SystemMonitorWindow();
    shownWindow()->show();
    shownWindow()->raise();
    shownWindow()->activateWindow();
    return shownWindow();
}

SystemMonitorWindow *SystemMonitorWindow::current()
{
    return shownWindow();
}
