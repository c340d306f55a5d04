#include "app/MenuCommand.h"

#include "base/AppPaths.h"

namespace MenuCommands {

namespace {

QList<MenuCommandInfo> makeTable()
{
    using C = MenuCommand;
    using G = MenuGroup;
    const QString name = AppPaths::displayName();
    auto row = [](MenuCommand command, MenuGroup group, const QString &title, const QString &shortcut,
                  bool separatorBefore = false, std::optional<MenuDestination> destination = std::nullopt) {
        return MenuCommandInfo{command, group, title, shortcut, separatorBefore, destination};
    };
    QList<MenuCommandInfo> t = {
        row(C::NewItem, G::File, QStringLiteral("New"), QStringLiteral("Shift+Ctrl+N")),
        row(C::NewWindow, G::File, QStringLiteral("New Window"), QStringLiteral("Ctrl+Alt+N")),
        row(C::Save, G::File, QStringLiteral("Save"), QStringLiteral("Ctrl+S"), true),
        row(C::SaveAs, G::File, QStringLiteral("Save As..."), QStringLiteral("Shift+Ctrl+S")),
        row(C::ImportConfiguration, G::File, QStringLiteral("Import Configuration"), QStringLiteral("Shift+Ctrl+I"), true),
        row(C::ImportConfigurationFromFolder, G::File, QStringLiteral("Import Configuration from Folder..."),
         QStringLiteral("Alt+Shift+Ctrl+I")),
        row(C::ExportConfiguration, G::File, QStringLiteral("Export Configuration"), QStringLiteral("Shift+Ctrl+E")),
        row(C::AppSettings, G::File, QStringLiteral("Settings..."), QStringLiteral("Ctrl+,"), true),
        row(C::CloseWindow, G::File, QStringLiteral("Close Window"), QStringLiteral("Ctrl+W"), true),
        row(C::Quit, G::File, QStringLiteral("Quit"), QStringLiteral("Ctrl+Q")),

        row(C::Duplicate, G::Edit, QStringLiteral("Duplicate"), QStringLiteral("Shift+Ctrl+D")),
        row(C::Find, G::Edit, QStringLiteral("Find..."), QStringLiteral("Ctrl+F"), true),
        row(C::FindNext, G::Edit, QStringLiteral("Find Next"), QStringLiteral("Ctrl+G")),
        row(C::FindPrevious, G::Edit, QStringLiteral("Find Previous"), QStringLiteral("Shift+Ctrl+G")),
        row(C::Replace, G::Edit, QStringLiteral("Replace..."), QStringLiteral("Ctrl+Alt+F")),
        // Would share Ctrl+Alt+F with Replace...; Replace keeps the key and this one goes without.
        row(C::EditorSettings, G::Edit, QStringLiteral("Settings..."), QString(), true),

        row(C::RunScript, G::Script, QStringLiteral("Run Script"), QStringLiteral("Ctrl+R")),

        row(C::HelpOverview, G::Help, name + QStringLiteral(" - Overview"), QString()),
        row(C::HelpGetStarted, G::Help, name + QStringLiteral(" - Get started"), QString()),
        row(C::ShowOnboarding, G::Help, QStringLiteral("Show onboarding"), QString(), true),
        row(C::About, G::Help, QStringLiteral("About"), QString(), true, MenuDestination::menuAbout),
    };
    const MenuCommand shows[] = {C::ShowServer, C::ShowPrompts, C::ShowResources, C::ShowTools,
                                 C::ShowScripts, C::ShowPlugins, C::ShowAIChat};
    int at = 0;
    while (t[at].group != G::Script)
        ++at;
    for (int i = 0; i < 7; ++i) {
        const auto destination = static_cast<MenuDestination>(i);
        t.insert(at + i, row(shows[i], G::View, MenuDestinations::menuItemTitle(destination),
                             QStringLiteral("Alt+%1").arg(i + 1), false, destination));
    }
    t.insert(at + 7, row(C::ToggleLogPane, G::View, QStringLiteral("Show or Hide Log"), QStringLiteral("Ctrl+Alt+L"), true));
    t.insert(at + 8, row(C::ToggleFileBrowser, G::View, QStringLiteral("Show or Hide File Browser"), QStringLiteral("Ctrl+Alt+B")));
    return t;
}

}  // namespace

const QList<MenuCommandInfo> &table()
{
    static const QList<MenuCommandInfo> t = makeTable();
    return t;
}

const MenuCommandInfo &info(MenuCommand command)
{
    for (const MenuCommandInfo &row : table()) {
        if (row.command == command)
            return row;
    }
    Q_UNREACHABLE();
}

QList<MenuCommandInfo> group(MenuGroup group)
{
    QList<MenuCommandInfo> rows;
    for (const MenuCommandInfo &row : table()) {
        if (row.group == group)
            rows.append(row);
    }
    return rows;
}

std::optional<MenuCommand> showCommand(MenuDestination destination)
{
    for (const MenuCommandInfo &row : table()) {
        if (row.group == MenuGroup::View && row.destination == destination)
            return row.command;
    }
    return std::nullopt;
}

}  // namespace MenuCommands
