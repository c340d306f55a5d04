#include "app/MenuCommandDispatcher.h"
#include "app/MenuCommandTarget.h"
#include "base/AbstractController.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <QKeySequence>
#include <QSet>

namespace {

class FakeController : public AbstractController {
public:
    bool add = false, save = false, copy = true;
    QStringList calls;
    bool canAdd() const override { return add; }
    bool canSave() const override { return save; }
    bool canCopy() const override { return copy; }
    void copySelectedItem() override { calls.append(QStringLiteral("copy")); }
    void pasteItem() override { calls.append(QStringLiteral("paste")); }
};

class FakeScreen : public MenuCommandTarget {
public:
    FakeController *controller = nullptr;
    QSet<MenuCommand> handled;
    QList<MenuCommand> performed;
    AbstractController *activeController() const override { return controller; }
    bool handlesCommand(MenuCommand c) const override { return handled.contains(c); }
    void performCommand(MenuCommand c) override { performed.append(c); }
};

MenuCommandContext at(MenuDestination d, FakeScreen *screen = nullptr)
{
    MenuCommandContext context;
    context.destination = d;
    context.target = screen;
    context.controller = screen ? screen->controller : nullptr;
    return context;
}

TEST(MenuCommandTableTest, ShortcutsFollowLinuxHabits)
{
    auto keys = [](MenuCommand c) { return QKeySequence::fromString(MenuCommands::info(c).shortcut); };
    EXPECT_EQ(keys(MenuCommand::NewItem), QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_N));
    EXPECT_EQ(keys(MenuCommand::NewWindow), QKeySequence(Qt::CTRL | Qt::ALT | Qt::Key_N));
    EXPECT_EQ(keys(MenuCommand::ImportConfigurationFromFolder), QKeySequence(Qt::CTRL | Qt::ALT | Qt::SHIFT | Qt::Key_I));
    EXPECT_EQ(keys(MenuCommand::Replace), QKeySequence(Qt::CTRL | Qt::ALT | Qt::Key_F));
    EXPECT_EQ(keys(MenuCommand::RunScript), QKeySequence(Qt::CTRL | Qt::Key_R));

    // The seven destinations, then the script screen's two pane toggles.
    const QList<MenuCommandInfo> view = MenuCommands::group(MenuGroup::View);
    ASSERT_EQ(view.size(), 9);
    for (int i = 0; i < 7; ++i) {
        EXPECT_EQ(view.at(i).destination, static_cast<MenuDestination>(i));
        EXPECT_EQ(QKeySequence::fromString(view.at(i).shortcut), QKeySequence(Qt::ALT | (Qt::Key_1 + i)));
    }
    EXPECT_EQ(view.at(7).command, MenuCommand::ToggleLogPane);
    EXPECT_EQ(view.at(8).command, MenuCommand::ToggleFileBrowser);
    EXPECT_FALSE(view.at(7).destination.has_value());
    EXPECT_FALSE(view.at(8).destination.has_value());
    EXPECT_EQ(view.at(1).title, "Prompts");
    EXPECT_EQ(MenuCommands::info(MenuCommand::HelpOverview).title, "Kelvara - Overview");
    EXPECT_EQ(MenuCommands::info(MenuCommand::HelpGetStarted).title, "Kelvara - Get started");

    // No two offered commands share a key.
    QSet<QString> seen;
    for (const MenuCommandInfo &row : MenuCommands::table()) {
        if (row.shortcut.isEmpty())
            continue;
        const QString normal = QKeySequence::fromString(row.shortcut).toString(QKeySequence::PortableText);
        EXPECT_FALSE(seen.contains(normal)) << normal.toStdString();
        seen.insert(normal);
    }
}

TEST(MenuCommandDispatcherTest, NewItemNamesTheDestinationAndNeedsAScreenThatHandlesIt)
{
    MenuCommandDispatcher menus;
    FakeController controller;
    FakeScreen screen;
    screen.controller = &controller;

    EXPECT_FALSE(menus.state(MenuCommand::NewItem, at(MenuDestination::menuToolConfig)).visible);
    // A built screen that adds nothing shows the item, disabled, even when its controller could.
    controller.add = true;
    const auto shown = menus.state(MenuCommand::NewItem, at(MenuDestination::menuServerConfig, &screen));
    EXPECT_TRUE(shown.visible);
    EXPECT_FALSE(shown.enabled);
    EXPECT_FALSE(menus.perform(MenuCommand::NewItem, at(MenuDestination::menuServerConfig, &screen)));
    controller.add = false;

    screen.handled = {MenuCommand::NewItem};
    auto tools = menus.state(MenuCommand::NewItem, at(MenuDestination::menuToolConfig, &screen));
    EXPECT_TRUE(tools.visible);
    EXPECT_EQ(tools.title, "New Tool");
    EXPECT_FALSE(tools.enabled);  // canAdd is false
    controller.add = true;
    EXPECT_TRUE(menus.state(MenuCommand::NewItem, at(MenuDestination::menuToolConfig, &screen)).enabled);

    EXPECT_TRUE(menus.perform(MenuCommand::NewItem, at(MenuDestination::menuToolConfig, &screen)));
    EXPECT_EQ(screen.performed, QList<MenuCommand>{MenuCommand::NewItem});
    controller.add = false;
    EXPECT_FALSE(menus.perform(MenuCommand::NewItem, at(MenuDestination::menuToolConfig, &screen)));
    EXPECT_EQ(screen.performed.size(), 1);
}

TEST(MenuCommandDispatcherTest, DuplicateOnlyOnTheThreeConfigurationScreens)
{
    MenuCommandDispatcher menus;
    FakeController controller;
    FakeScreen screen;
    screen.controller = &controller;
    for (MenuDestination d : MenuDestinations::all()) {
        const bool expected = d == MenuDestination::menuPromptConfig || d == MenuDestination::menuResourceConfig
                              || d == MenuDestination::menuToolConfig;
        EXPECT_EQ(menus.state(MenuCommand::Duplicate, at(d, &screen)).visible, expected)
            << MenuDestinations::rawValue(d).toStdString();
    }
    // Not offered while the screen has no controller.
    EXPECT_FALSE(menus.state(MenuCommand::Duplicate, at(MenuDestination::menuToolConfig)).visible);

    int changes = 0;
    QObject::connect(&controller, &AbstractController::changed, [&] { ++changes; });
    EXPECT_TRUE(menus.perform(MenuCommand::Duplicate, at(MenuDestination::menuPromptConfig, &screen)));
    EXPECT_EQ(controller.calls, (QStringList{QStringLiteral("copy"), QStringLiteral("paste")}));
    EXPECT_EQ(changes, 0);  // the change signal follows as a later step
    EXPECT_TRUE(TestSupport::waitUntil([&] { return changes == 1; }));

    controller.copy = false;  // nothing selected to duplicate
    EXPECT_FALSE(menus.state(MenuCommand::Duplicate, at(MenuDestination::menuPromptConfig, &screen)).enabled);
}

TEST(MenuCommandDispatcherTest, EditorCommandsAreDeadOutsideTheScriptScreen)
{
    MenuCommandDispatcher menus;
    FakeScreen screen;
    screen.handled = {MenuCommand::Find, MenuCommand::Replace, MenuCommand::RunScript, MenuCommand::Save};
    for (MenuCommand c : {MenuCommand::Find, MenuCommand::Replace, MenuCommand::RunScript}) {
        EXPECT_TRUE(menus.state(c, at(MenuDestination::menuScriptEditor, &screen)).enabled);
        EXPECT_FALSE(menus.state(c, at(MenuDestination::menuToolConfig, &screen)).visible);
        EXPECT_FALSE(menus.perform(c, at(MenuDestination::menuServerConfig, &screen)));
        // Without the editor they are not offered at all.
        EXPECT_FALSE(menus.state(c, at(MenuDestination::menuScriptEditor)).visible);
    }
    EXPECT_TRUE(screen.performed.isEmpty());
    EXPECT_TRUE(menus.perform(MenuCommand::Find, at(MenuDestination::menuScriptEditor, &screen)));
    EXPECT_EQ(screen.performed, QList<MenuCommand>{MenuCommand::Find});

    // Save follows canSave of the focused controller.
    FakeController controller;
    screen.controller = &controller;
    EXPECT_FALSE(menus.state(MenuCommand::Save, at(MenuDestination::menuScriptEditor, &screen)).enabled);
    controller.save = true;
    EXPECT_TRUE(menus.state(MenuCommand::Save, at(MenuDestination::menuScriptEditor, &screen)).enabled);
    EXPECT_FALSE(menus.state(MenuCommand::SaveAs, at(MenuDestination::menuScriptEditor, &screen)).visible);
}

}  // namespace
