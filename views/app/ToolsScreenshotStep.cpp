#include "views/app/ToolsScreenshotStep.h"

#include "app/MenuVisibility.h"
#include "app/config/ServerConfigController.h"
#include "store/ConfigurationController.h"
#include "store/ToolInputSchema.h"
#include "store/ToolsConfig.h"
#include "app/config/ToolsConfigController.h"
#include "store/ToolsQueryService.h"
#include "views/app/AppMainWindow.h"
#include "views/tools/ToolSchemaEditorDialog.h"
#include "views/tools/ToolsConfigView.h"

#include <QPointer>

namespace ToolsScreenshotStep {

ScreenshotTour::Step step()
{
    return [](ScreenshotTour *tour, AppMainWindow *window, std::function<void()> done) {
        // A fresh start has no tools: the built-in bundle gives the screen something to show.
        (void)window->server()->exportService()->importBuiltinConfiguration();
        MenuVisibility::shared()->setRequestedDestination(MenuDestination::menuToolConfig);
        QPointer<AppMainWindow> weak(window);
        tour->after(400, [tour, weak, done] {
            auto *view = weak ? qobject_cast<ToolsConfigView *>(weak->currentScreen()) : nullptr;
            if (!view) {
                done();
                return;
            }
            ToolsConfigController *tools = view->controller();
            tools->reload();
            // A tool with an input schema: the first one that has one (the built-in bundle's
            // read_file, say), else a made one that is dropped again afterwards.
            for (ToolsConfig *tool : tools->tools()) {
                if (!tool->inputSchemas().isEmpty()) {
                    tools->setSelectedRecord(tool);
                    break;
                }
            }
            tour->after(300, [tour, weak, view, tools, done] {
                for (ToolsConfig *tool : tools->tools()) {
                    if (!tool->inputSchemas().isEmpty()) {
                        tools->setSelectedRecord(tool);
                        break;
                    }
                }
                if (weak)
                    tour->grab(weak, QStringLiteral("30-tools"));
                ToolInputSchema *schema = tools->selectedInputScheme();
                if (!schema) {
                    done();
                    return;
                }
                auto *dialog = new ToolSchemaEditorDialog(
                    std::make_unique<ToolInputSchemaEditor>(tools, schema, false), true, view);
                dialog->setAttribute(Qt::WA_DeleteOnClose);
                dialog->show();
                QPointer<ToolSchemaEditorDialog> weakDialog(dialog);
                tour->after(300, [tour, weakDialog, tools, done] {
                    if (weakDialog) {
                        tour->grab(weakDialog, QStringLiteral("31-tool-input-schema"));
                        weakDialog->close();
                    }
                    tools->closeSchemaEditors();
                    done();
                });
            });
        });
    };
}

}  // namespace ToolsScreenshotStep
