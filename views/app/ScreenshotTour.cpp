#include "views/app/ScreenshotTour.h"

#include "app/AppLaunchState.h"
#include "app/MenuDestination.h"
#include "app/OnBoardingCompletion.h"
#include "views/about/AboutView.h"
#include "views/about/ToolSDKInstallWizard.h"
#include "views/app/AppMainWindow.h"
#include "views/app/OnBoardingBubble.h"
#include "views/common/ReadOnlyTextView.h"
#include "views/settings/AppSettingsWindow.h"

#include <QApplication>
#include <QDir>
#include <QMessageBox>
#include <QPixmap>
#include <QPointer>
#include <QPushButton>
#include <QTimer>
#include <QToolButton>
#include <cstdio>

namespace {
QList<ScreenshotTour::Step> &extraSteps()
{
    static QList<ScreenshotTour::Step> steps;
    return steps;
}

void report(const QString &line)
{
    std::fprintf(stdout, "%s\n", line.toLocal8Bit().constData());
    std::fflush(stdout);
}
}  // namespace

void ScreenshotTour::addStep(Step step) { extraSteps().append(std::move(step)); }

ScreenshotTour::ScreenshotTour(const QString &directory, AppMainWindow *window, QObject *parent)
    : QObject(parent), m_directory(directory), m_window(window)
{
    QDir().mkpath(directory);

    // The launch sheet, while the job runs.
    m_steps.append([](ScreenshotTour *tour, AppMainWindow *w, std::function<void()> done) {
        tour->after(200, [tour, w, done] {
            tour->grab(w, QStringLiteral("00-launch"));
            done();
        });
    });
    // Then wait for the launch to finish.
    m_steps.append([](ScreenshotTour *tour, AppMainWindow *, std::function<void()> done) {
        auto wait = std::make_shared<std::function<void()>>();
        *wait = [tour, done, wait] {
            if (AppLaunchState::shared()->launchFinished())
                tour->after(400, done);
            else
                tour->after(50, *wait);
        };
        (*wait)();
    });
    // The start-up questions, one at a time after the sheet: each is taken and declined.
    m_steps.append([](ScreenshotTour *tour, AppMainWindow *w, std::function<void()> done) {
        auto answer = std::make_shared<std::function<void(int)>>();
        *answer = [tour, w, done, answer](int count) {
            QMessageBox *box = nullptr;
            for (QMessageBox *candidate : w->findChildren<QMessageBox *>())
                if (candidate->isVisible())
                    box = candidate;
            if (!box || count > 8) {
                tour->after(300, done);
                return;
            }
            tour->grab(box, QStringLiteral("00-question-%1").arg(count + 1));
            if (QAbstractButton *decline = box->escapeButton())
                decline->click();
            else
                box->reject();
            tour->after(300, [answer, count] { (*answer)(count + 1); });
        };
        tour->after(300, [answer] { (*answer)(0); });
    });
    // Each destination in turn.
    for (MenuDestination destination : MenuDestinations::all()) {
        m_steps.append([destination](ScreenshotTour *tour, AppMainWindow *w, std::function<void()> done) {
            w->navigate(destination);
            tour->after(300, [tour, w, destination, done] {
                tour->grab(w, QStringLiteral("%1-%2").arg(int(destination) + 1, 2, 10, QLatin1Char('0'))
                                  .arg(MenuDestinations::rawValue(destination)));
                // The first screen and About show the tour's first bubble of a fresh start; the
                // others are shown as a returning user sees them.
                if (OnBoardingBubble *bubble = w->onboardingBubble(); bubble && bubble->isVisible())
                    bubble->closeButton()->click();
                for (MenuDestination other : MenuDestinations::all())
                    OnBoardingCompletion::shared()->setCompleted(other, other != MenuDestination::menuAbout
                                                                           || destination == MenuDestination::menuAbout);
                done();
            });
        });
    }
    // The settings window.
    m_steps.append([](ScreenshotTour *tour, AppMainWindow *, std::function<void()> done) {
        AppSettingsWindow *settings = AppSettingsWindow::showSettings();
        QPointer<AppSettingsWindow> weak(settings);
        tour->after(300, [tour, weak, done] {
            if (weak) {
                tour->grab(weak, QStringLiteral("20-settings"));
                weak->close();
            }
            done();
        });
    });
    // A help page with a table.
    m_steps.append([](ScreenshotTour *tour, AppMainWindow *, std::function<void()> done) {
        QPointer<ReadOnlyTextView> help =
            ReadOnlyTextView::showDocument(QStringLiteral("help_tool_config.md"), QStringLiteral("Kelvara - Tools"));
        tour->after(300, [tour, help, done] {
            if (help) {
                tour->grab(help, QStringLiteral("23-help-tools"));
                help->close();
            }
            done();
        });
    });
    // The security scopes sheet of the About screen.
    m_steps.append([](ScreenshotTour *tour, AppMainWindow *w, std::function<void()> done) {
        w->navigate(MenuDestination::menuAbout);
        auto *about = qobject_cast<AboutView *>(w->currentScreen());
        if (!about) {
            done();
            return;
        }
        QPointer<QDialog> sheet = about->openSecurityScopesSheet();
        tour->after(300, [tour, sheet, done] {
            if (sheet) {
                tour->grab(sheet, QStringLiteral("21-security-scopes"));
                sheet->close();
            }
            done();
        });
    });
    // The ToolSDK installer's pages, installing into a folder of the sandbox.
    m_steps.append([](ScreenshotTour *tour, AppMainWindow *w, std::function<void()> done) {
        w->navigate(MenuDestination::menuAbout);
        auto *about = qobject_cast<AboutView *>(w->currentScreen());
        auto *wizard = about ? qobject_cast<ToolSDKInstallWizard *>(about->openToolSdkInstaller()) : nullptr;
        if (!wizard) {
            done();
            return;
        }
        const QString folder = QDir::tempPath() + QStringLiteral("/kelvara-screenshot-sdk");
        QDir(folder).removeRecursively();
        QDir().mkpath(folder);
        wizard->setFolderChooser([folder] { return folder; });
        QPointer<ToolSDKInstallWizard> weak(wizard);
        auto shoot = std::make_shared<std::function<void(int)>>();
        *shoot = [tour, weak, done, shoot, folder](int page) {
            if (!weak) {
                done();
                return;
            }
            tour->grab(weak, QStringLiteral("22-toolsdk-installer-%1").arg(page));
            if (page == 1)
                weak->chooseButton()->click();
            if (page == 3) {
                weak->close();
                QDir(folder).removeRecursively();
                done();
                return;
            }
            weak->nextButton()->click();  // page 2's "Install" starts the copy
            tour->after(page == 2 ? 2000 : 300, [shoot, page] { (*shoot)(page + 1); });
        };
        tour->after(300, [shoot] { (*shoot)(0); });
    });
    m_steps.append(extraSteps());
}

void ScreenshotTour::start()
{
    report(QStringLiteral("Screenshots to ") + QDir(m_directory).absolutePath());
    runStep(0);
}

void ScreenshotTour::runStep(int index)
{
    if (index >= m_steps.size() || !m_window) {
        report(QStringLiteral("Screenshots done, %1 failed").arg(m_failures));
        QTimer::singleShot(0, qApp, [] { QApplication::closeAllWindows(); QApplication::exit(0); });
        return;
    }
    QPointer<AppMainWindow> window(m_window);
    m_steps.at(index)(this, m_window, [this, index, window] {
        if (!window) {
            m_window = nullptr;
        }
        runStep(index + 1);
    });
}

bool ScreenshotTour::grab(QWidget *widget, const QString &name)
{
    const QString path = QDir(m_directory).filePath(name + QStringLiteral(".png"));
    const bool written = widget && widget->grab().save(path, "PNG");
    if (written) {
        report(QStringLiteral("  ") + path);
    } else {
        ++m_failures;
        report(QStringLiteral("  failed: ") + path);
    }
    return written;
}

void ScreenshotTour::after(int ms, std::function<void()> fn) { QTimer::singleShot(ms, this, std::move(fn)); }
