#include "views/app/ScriptScreenshotStep.h"

#include "app/MenuVisibility.h"
#include "base/AppPaths.h"
#include "views/app/AppMainWindow.h"
#include "views/script/EditorSettingsDialog.h"
#include "views/script/RunScriptDialog.h"
#include "views/script/ScriptEditorView.h"
#include "workbench/EditorSettings.h"
#include "workbench/FileExplorerModel.h"
#include "workbench/RunScriptManager.h"
#include "workbench/ScriptEditorController.h"

#include <QDir>
#include <QFile>
#include <QLineEdit>
#include <QPointer>

namespace ScriptScreenshotStep {

ScreenshotTour::Step step()
{
    return [](ScreenshotTour *tour, AppMainWindow *window, std::function<void()> done) {
        // The built-in example script, copied to a folder of its own so the tree has a root.
        const QString folder = AppPaths::dataDir() + QStringLiteral("/Screenshot Scripts");
        QDir().mkpath(folder + QStringLiteral("/lib"));
        const QString script = folder + QStringLiteral("/text_statistics.js");
        QFile::copy(AppPaths::builtinConfigurationDir() + QStringLiteral("/Scripts/text_statistics.js"), script);
        MenuVisibility::shared()->setRequestedDestination(MenuDestination::menuScriptEditor);
        QPointer<AppMainWindow> weak(window);
        tour->after(400, [tour, weak, folder, script, done] {
            auto *view = weak ? qobject_cast<ScriptEditorView *>(weak->currentScreen()) : nullptr;
            if (!view) {
                done();
                return;
            }
            view->explorerModel()->setRoot(folder);
            view->controller()->openFile(script);
            view->performCommand(MenuCommand::Find);
            view->searchField()->setText(QStringLiteral("text"));
            tour->after(300, [tour, weak, view, done] {
                if (weak)
                    tour->grab(weak, QStringLiteral("50-script"));
                RunScriptManager *run = view->controller()->runManager();
                auto *dialog = new RunScriptDialog(run, [](const QString &, const QJsonObject &) {}, view);
                dialog->setAttribute(Qt::WA_DeleteOnClose);
                dialog->show();
                QPointer<RunScriptDialog> weakRun(dialog);
                tour->after(300, [tour, view, weakRun, done] {
                    if (weakRun) {
                        tour->grab(weakRun, QStringLiteral("51-script-run"));
                        weakRun->close();
                    }
                    auto *sheet = new EditorSettingsDialog(EditorSettings::shared(), view);
                    sheet->setAttribute(Qt::WA_DeleteOnClose);
                    sheet->show();
                    QPointer<EditorSettingsDialog> weakSheet(sheet);
                    tour->after(300, [tour, weakSheet, done] {
                        if (weakSheet) {
                            tour->grab(weakSheet, QStringLiteral("52-script-settings"));
                            weakSheet->reject();
                        }
                        done();
                    });
                });
            });
        });
    };
}

}  // namespace ScriptScreenshotStep
