#include "app/MenuDestination.h"

namespace MenuDestinations {

namespace {

struct Row {
    MenuDestination destination;
    const char *raw;
    const char *title;
    const char *newItem;
    const char *systemImage;
    const char *themeIcon;
    const char *fallbackIcon;
    const char *menuItem;
};

// The fallbacks are drawn for this application: on a bare machine there is no icon theme.
constexpr Row rows[] = {
    {MenuDestination::menuServerConfig, "menuServerConfig", "Server", "New", "network", "network-server",
     "icons/destination-server.svg", "Server"},
    {MenuDestination::menuPromptConfig, "menuPromptConfig", "Prompt", "New Prompt", "message.circle", "insert-text",
     "icons/destination-prompt.svg", "Prompts"},
    {MenuDestination::menuResourceConfig, "menuResourceConfig", "Resources", "New Resource", "folder.circle", "folder",
     "icons/destination-resources.svg", "Resources"},
    {MenuDestination::menuToolConfig, "menuToolConfig", "Tools", "New Tool", "externaldrive", "drive-harddisk",
     "icons/destination-tools.svg", "Tools"},
    {MenuDestination::menuScriptEditor, "menuScriptEditor", "Script", "New Script",
     "chevron.left.forwardslash.chevron.right", "text-x-script", "icons/destination-script.svg", "Scripts"},
    {MenuDestination::menuPluginManager, "menuPluginManager", "Plugin", "Add Plugin", "gearshape.2",
     "application-x-addon", "icons/destination-plugin.svg", "Plugins"},
    {MenuDestination::menuAIChat, "menuAIChat", "AI Chat", "New", "message.circle", "internet-group-chat",
     "icons/destination-chat.svg", "AI Chat"},
    {MenuDestination::menuAbout, "menuAbout", "About", "New", "info.circle", "help-about",
     "icons/destination-about.svg", "About"},
};

const Row &row(MenuDestination destination) { return rows[static_cast<int>(destination)]; }

}  // namespace

const QList<MenuDestination> &all()
{
    static const QList<MenuDestination> list = [] {
        QList<MenuDestination> l;
        for (const Row &r : rows)
            l.append(r.destination);
        return l;
    }();
    return list;
}

QString rawValue(MenuDestination destination) { return QString::fromLatin1(row(destination).raw); }

std::optional<MenuDestination> fromRawValue(const QString &raw)
{
    for (const Row &r : rows) {
        if (raw == QLatin1String(r.raw))
            return r.destination;
    }
    return std::nullopt;
}

std::optional<MenuDestination> fromNumber(int number)
{
    if (number < 0 || number >= int(std::size(rows)))
        return std::nullopt;
    return static_cast<MenuDestination>(number);
}

QString title(MenuDestination destination) { return QString::fromUtf8(row(destination).title); }
QString newItemLabel(MenuDestination destination) { return QString::fromUtf8(row(destination).newItem); }
QString systemImage(MenuDestination destination) { return QString::fromLatin1(row(destination).systemImage); }
QString themeIconName(MenuDestination destination) { return QString::fromLatin1(row(destination).themeIcon); }
QString fallbackIconPath(MenuDestination destination) { return QString::fromLatin1(row(destination).fallbackIcon); }
QString menuItemTitle(MenuDestination destination) { return QString::fromUtf8(row(destination).menuItem); }

std::optional<int> menuShortcutDigit(MenuDestination destination)
{
    if (destination == MenuDestination::menuAbout)
        return std::nullopt;
    return static_cast<int>(destination) + 1;
}

}  // namespace MenuDestinations
