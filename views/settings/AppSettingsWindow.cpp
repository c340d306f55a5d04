#include "views/settings/AppSettingsWindow.h"

#include "base/AppPaths.h"
#include "views/common/AppIcons.h"

#include <QShortcut>
#include <QGuiApplication>
#include <QHash>
#include <QScreen>
#include <QTabWidget>
#include <QVBoxLayout>

namespace {

QHash<AppSettingsSection, AppSettingsWindow::SectionFactory> &factories()
{
    static QHash<AppSettingsSection, AppSettingsWindow::SectionFactory> table;
    return table;
}

QPointer<AppSettingsWindow> &openWindow()
{
    static QPointer<AppSettingsWindow> window;
    return window;
}

}  // namespace

void AppSettingsWindow::registerSection(AppSettingsSection section, SectionFactory factory)
{
    factories().insert(section, std::move(factory));
}

bool AppSettingsWindow::hasSection(AppSettingsSection section) { return factories().contains(section); }

AppSettingsWindow *AppSettingsWindow::current() { return openWindow(); }

AppSettingsWindow *AppSettingsWindow::showSettings(AppSettingsSection section)
{
    QPointer<AppSettingsWindow> &window = openWindow();
    if (!window) {
        window = new AppSettingsWindow;
        if (QScreen *screen = QGuiApplication::primaryScreen()) {
            const QRect area = screen->availableGeometry();
            window->move(area.center() - QPoint(window->width() / 2, window->height() / 2));
        }
    }
    window->selectSection(section);
    window->show();
    window->raise();
    window->activateWindow();
    return window;
}

AppSettingsWindow::AppSettingsWindow(QWidget *parent) : QWidget(parent, Qt::Window)
{
    setObjectName(QStringLiteral("settingsWindow"));
    // A secondary window closes with Escape, as a dialog does.
    connect(new QShortcut(QKeySequence(Qt::Key_Escape), this), &QShortcut::activated, this, &QWidget::close);
    setAttribute(Qt::WA_DeleteOnClose);
    setWindowTitle(AppPaths::displayName() + QStringLiteral(" - Settings"));
    setWindowIcon(AppIcons::applicationIcon());
    resize(640, 460);

    m_tabs = new QTabWidget(this);
    m_tabs->setDocumentMode(true);
    for (AppSettingsSection section : AppSettingsSections::all()) {
        const auto factory = factories().constFind(section);
        if (factory == factories().cend())
            continue;
        QWidget *page = (*factory)(m_tabs);
        m_tabs->addTab(page, AppSettingsSections::label(section));
        m_sections.append(section);
    }
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(10, 10, 10, 10);
    layout->addWidget(m_tabs);
}

void AppSettingsWindow::selectSection(AppSettingsSection section)
{
    const qsizetype index = m_sections.indexOf(section);
    if (index >= 0)
        m_tabs->setCurrentIndex(int(index));
}
