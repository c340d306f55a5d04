#include "views/app/BuiltinFeatures.h"

#include "engine/bridge/ToolInvocation.h"

#include "tools/router/MCPServer.h"

#include "base/AppPaths.h"
#include "app/ApplicationServices.h"
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

void registerAll(ApplicationServices &services)
{
    MenuCommandDispatcher *menus = MenuCommandDispatcher::shared();
    ApplicationServices *root = &services;
    ServerConfigController *server = services.server();

    menus->registerHandler(MenuCommand::NewWindow, [server](const MenuCommandContext &context) {
        NewAppWindow::open(server, context.destination);
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

    ConfigurationCommands::registerCommands(server);

    DestinationScreenRegistry::registerScreen(MenuDestination::menuServerConfig, [server](QWidget *parent) -> DestinationScreen * {
        return new ServerConfigView(server, parent);
    });

    // The configuration screens of every window work on the application's one set of controllers.
    DestinationScreenRegistry::registerScreen(MenuDestination::menuResourceConfig, [root](QWidget *parent) -> DestinationScreen * {
        return new ResourceConfigView(root->configControllers()->resources(), parent);
    });
    DestinationScreenRegistry::registerScreen(MenuDestination::menuScriptEditor, [](QWidget *parent) -> DestinationScreen * {
        return new ScriptEditorView(nullptr, parent);
    });
    DestinationScreenRegistry::registerScreen(MenuDestination::menuToolConfig, [root](QWidget *parent) -> DestinationScreen * {
        auto *view = new ToolsConfigView(root->configControllers()->tools(), root->plugins(), parent);
        view->setToolRunner([root](const JSONToolConfig &tool, const QJsonObject &arguments) {
            return root->router().handleToolCall(arguments, tool, ToolInvocation{});
        });
        return view;
    });
    DestinationScreenRegistry::registerScreen(MenuDestination::menuPromptConfig, [root](QWidget *parent) -> DestinationScreen * {
        return new PromptConfigView(root->configControllers()->prompts(), parent);
    });

    DestinationScreenRegistry::registerScreen(MenuDestination::menuAIChat, [root](QWidget *parent) -> DestinationScreen * {
        return new ChatView(nullptr, root->server(), root->integrations(), parent);
    });

    DestinationScreenRegistry::registerScreen(MenuDestination::menuPluginManager, [root](QWidget *parent) -> DestinationScreen * {
        return new PluginManagerView(root->pluginManager(), parent);
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
