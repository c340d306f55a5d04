#pragma once

#include <QList>
#include <QString>
#include <optional>

// The eight places of the main window's navigation. The raw text is what is stored under
// "menuSelection"; the number is the order of the sidebar and of the View menu.
enum class MenuDestination : int {
    menuServerConfig = 0,
    menuPromptConfig = 1,
    menuResourceConfig = 2,
    menuToolConfig = 3,
    menuScriptEditor = 4,
    menuPluginManager = 5,
    menuAIChat = 6,
    menuAbout = 7,
};

namespace MenuDestinations {

// All eight, in order.
const QList<MenuDestination> &all();

QString rawValue(MenuDestination destination);
// The destination a stored raw text names; nothing for any other text.
std::optional<MenuDestination> fromRawValue(const QString &raw);
// A destination from its number; nothing outside 0 to 7.
std::optional<MenuDestination> fromNumber(int number);

// The sidebar's title ("Server", "Prompt", ...).
QString title(MenuDestination destination);
// What the File menu's first item says at this destination ("New Tool", "Add Plugin", "New").
QString newItemLabel(MenuDestination destination);
// The symbol the destination was designed with, kept as its identity ("network", ...).
QString systemImage(MenuDestination destination);
// The freedesktop theme icon that stands for the symbol.
QString themeIconName(MenuDestination destination);
// The bundled SVG used when the theme has no such icon, relative to the resources folder.
QString fallbackIconPath(MenuDestination destination);
// The View menu's item ("Server", "Prompts", ...); About lives in the Help menu instead.
QString menuItemTitle(MenuDestination destination);
// 1 to 7 for the View menu's Alt+digit shortcuts; nothing for About.
std::optional<int> menuShortcutDigit(MenuDestination destination);

}  // namespace MenuDestinations
