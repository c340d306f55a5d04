#pragma once

#include "app/MenuDestination.h"

#include <QList>
#include <QString>
#include <optional>

// Every command of the main window's menus.
enum class MenuCommand : int {
    // File
    NewItem,
    NewWindow,
    Save,
    SaveAs,
    ImportConfiguration,
    ImportConfigurationFromFolder,
    ExportConfiguration,
    AppSettings,
    CloseWindow,
    Quit,
    // Edit
    Duplicate,
    Find,
    FindNext,
    FindPrevious,
    Replace,
    EditorSettings,
    // View
    ShowServer,
    ShowPrompts,
    ShowResources,
    ShowTools,
    ShowScripts,
    ShowPlugins,
    ShowAIChat,
    // Script
    RunScript,
    // Help
    HelpOverview,
    HelpGetStarted,
    ShowOnboarding,
    About,
    // View, on the script screen: its two side panes.
    ToggleLogPane,
    ToggleFileBrowser,
};

enum class MenuGroup { File, Edit, View, Script, Help };

// One row of the menu table: where the command sits, what it says and its shortcut.
struct MenuCommandInfo {
    MenuCommand command;
    MenuGroup group;
    QString title;     // NewItem's title follows the destination instead
    QString shortcut;  // portable key text ("Shift+Ctrl+N"); empty for none
    bool separatorBefore = false;
    std::optional<MenuDestination> destination;  // the View items' destination
};

namespace MenuCommands {

// The whole table, in menu order.
const QList<MenuCommandInfo> &table();
const MenuCommandInfo &info(MenuCommand command);
// The commands of one menu, in order.
QList<MenuCommandInfo> group(MenuGroup group);
// The View command that shows a destination; nothing for About, which sits in Help.
std::optional<MenuCommand> showCommand(MenuDestination destination);

}  // namespace MenuCommands
