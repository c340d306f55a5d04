#include "views/app/BuiltinFeatures.h"

#include "base/AppPaths.h"
#include "app/MenuCommandDispatcher.h"
#include "app/MenuVisibility.h"
#include "app/MenuCommandTarget.h"
#include "app/security/BookmarkSetupViewModel.h"
#include "views/app/AppMainWindow.h"
#include "views/app/ConfigurationCommands.h"
#include "views/app/DestinationScreenRegistry.h"
#include "views/app/NewAppWindow.h"
#include "views/chat/ChatView.h"
#include "views/common/ReadOnlyTextView.h"
#include "views/plugins/PluginManagerView.h"
#include "views/settings/AppSettingsWindow.h"
#include "views/settings/BookmarkSetupView.h"
#include "views/settings/PrivacyAccessView.h"
#include "app/PrivacyAccessController.h"
#include "app/config/ConfigControllers.h"
#include "views/server/ServerConfigView.h"
#include "views/resources/ResourceConfigView.h"
#include "views/prompts/PromptConfigView.h"
#include "views/tools/ToolsConfigView.h"
#include "views/script/ScriptEditorView.h"

#include <QApplication>
#include <QDesktopServices>
#include <QFileInfo>
#include <QUrl>
#include <QVBoxLayout>
#include <QWidget>

namespace BuiltinFeatures {

bool openHelpPage(const QString &page)
{
    const QString path = AppPaths::resourcesDir() + QStringLiteral("/help/") + page;
    if (!QFileInfo::exists(path))
        return false;
    return QDesktopServices::openUrl(QUrl::fromLocalFile(path));
}

void registerAll()
{
    MenuCommandDispatcher *menus = MenuCommandDispatcher::shared();

    menus->registerHandler(MenuCommand::NewWindow, [](const MenuCommandContext &context) {
        NewAppWindow::open(context.destination);
    });
    menus->registerHandler(MenuCommand::AppSettings, [](const MenuCommandContext &) {
        AppSettingsWindow::showSettings();
    });
    menus->registerHandler(MenuCommand::CloseWindow, [](const MenuCommandContext &context) {
        if (auto *window = qobject_cast<QWidget *>(context.window))
            window->close();
    });
    menus->registerHandler(MenuCommand::Quit, [](const MenuCommandContext &) {
        QApplication::closeAllWindows();
    });
    // The help pages open inside Kelvara, read from the Markdown documents beside the HTML ones.
    menus->registerHandler(MenuCommand::HelpOverview, [](const MenuCommandContext &) {
        ReadOnlyTextView::showDocument(QStringLiteral("overview.md"), QStringLiteral("Kelvara - Overview"));
    });
    menus->registerHandler(MenuCommand::HelpGetStarted, [](const MenuCommandContext &) {
        ReadOnlyTextView::showDocument(QStringLiteral("getstarted.md"), QStringLiteral("Kelvara - Get started"));
    });
    // The front window replays the tour of its screen (see AppMainWindow).
    menus->registerHandler(MenuCommand::ShowOnboarding,
                           [](const MenuCommandContext &) { MenuVisibility::shared()->setStartOnboarding(true); });

    ConfigurationCommands::registerCommands();

    DestinationScreenRegistry::registerScreen(MenuDestination::menuServerConfig, [](QWidget *parent) -> DestinationScreen * {
        return new ServerConfigView(nullptr, parent);
    });

    // The configuration screens of every window work on the application's one set of controllers.
    DestinationScreenRegistry::registerScreen(MenuDestination::menuResourceConfig, [](QWidget *parent) -> DestinationScreen * {
        return new ResourceConfigView(ConfigControllers::shared()->resources(), parent);
    });
    DestinationScreenRegistry::registerScreen(MenuDestination::menuScriptEditor, [](QWidget *parent) -> DestinationScreen * {
        return new ScriptEditorView(nullptr, parent);
    });
    DestinationScreenRegistry::registerScreen(MenuDestination::menuToolConfig, [](QWidget *parent) -> DestinationScreen * {
        return new ToolsConfigView(ConfigControllers::shared()->tools(), parent);
    });
    DestinationScreenRegistry::registerScreen(MenuDestination::menuPromptConfig, [](QWidget *parent) -> DestinationScreen * {
        return new PromptConfigView(ConfigControllers::shared()->prompts(), parent);
    });

    DestinationScreenRegistry::registerScreen(MenuDestination::menuAIChat, [](QWidget *parent) -> DestinationScreen * {
        return new ChatView(nullptr, parent);
    });

    DestinationScreenRegistry::registerScreen(MenuDestination::menuPluginManager, [](QWidget *parent) -> DestinationScreen * {
        return new PluginManagerView(nullptr, parent);
    });

    AppSettingsWindow::registerSection(AppSettingsSection::privacy, [](QWidget *parent) -> QWidget * {
        auto *page = new QWidget(parent);
        auto *layout = new QVBoxLayout(page);
        layout->setContentsMargins(0, 0, 0, 0);
        layout->addWidget(new PrivacyAccessView(new PrivacyAccessController(page), page));
        return page;
    });
    AppSettingsWindow::registerSection(AppSettingsSection::bookmarks, [](QWidget *parent) -> QWidget * {
        auto *page = new QWidget(parent);
        auto *model = new BookmarkSetupViewModel(nullptr, page);
        auto *view = new BookmarkSetupView(model, false, page);
        auto *layout = new QVBoxLayout(page);
        layout->setContentsMargins(0, 0, 0, 0);
        layout->addWidget(view);
        return page;
    });
}

}  // namespace BuiltinFeatures
