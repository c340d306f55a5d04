#include "app/MenuDestination.h"
#include "app/SettingsManager.h"
#include "base/UserDefaults.h"
#include "app/UserDefaultsKeys.h"

#include <gtest/gtest.h>

#include <QSet>
#include <QSignalSpy>

namespace {

class ShellSettingsTest : public ::testing::Test {
protected:
    void SetUp() override { UserDefaults::standard()->clear(); }
};

TEST(MenuDestinationTest, RawTextsRoundTripAndUnknownTextsNameNothing)
{
    QSet<QString> raws;
    for (MenuDestination d : MenuDestinations::all()) {
        const QString raw = MenuDestinations::rawValue(d);
        raws.insert(raw);
        EXPECT_EQ(MenuDestinations::fromRawValue(raw), d) << raw.toStdString();
        EXPECT_EQ(MenuDestinations::fromNumber(int(d)), d);
    }
    EXPECT_EQ(raws.size(), 8);
    EXPECT_EQ(MenuDestinations::all().first(), MenuDestination::menuServerConfig);
    EXPECT_EQ(MenuDestinations::all().last(), MenuDestination::menuAbout);
    EXPECT_FALSE(MenuDestinations::fromRawValue(QStringLiteral("menuabout")));
    EXPECT_FALSE(MenuDestinations::fromRawValue(QString()));
    EXPECT_FALSE(MenuDestinations::fromNumber(8));
    EXPECT_FALSE(MenuDestinations::fromNumber(-1));
}

TEST(MenuDestinationTest, NewItemLabelFollowsTheDestination)
{
    // "New Tool" and "Add Plugin" are checked on the real menu in the views tests.
    EXPECT_EQ(MenuDestinations::newItemLabel(MenuDestination::menuPromptConfig), "New Prompt");
    for (MenuDestination d : {MenuDestination::menuServerConfig, MenuDestination::menuAIChat, MenuDestination::menuAbout})
        EXPECT_EQ(MenuDestinations::newItemLabel(d), "New");
    EXPECT_EQ(MenuDestinations::menuShortcutDigit(MenuDestination::menuServerConfig), 1);
    EXPECT_EQ(MenuDestinations::menuShortcutDigit(MenuDestination::menuAIChat), 7);
    EXPECT_FALSE(MenuDestinations::menuShortcutDigit(MenuDestination::menuAbout));
}

TEST(UserDefaultsKeysTest, ThirtySevenKeysInOrderWithTheirPaneDefaults)
{
    const auto &keys = UserDefaultsKeyNames::all();
    ASSERT_EQ(keys.size(), 37);
    EXPECT_EQ(UserDefaultsKeyNames::rawValue(keys.first()), "spPromptConfigView");
    EXPECT_EQ(UserDefaultsKeyNames::rawValue(keys.at(7)), "menuSelection");
    EXPECT_EQ(UserDefaultsKeyNames::rawValue(keys.at(28)), "windowState");
    EXPECT_EQ(UserDefaultsKeyNames::rawValue(keys.last()), "logviewSearchText");
    int splitters = 0;
    for (UserDefaultsKeys key : keys) {
        EXPECT_EQ(UserDefaultsKeyNames::fromRawValue(UserDefaultsKeyNames::rawValue(key)), key);
        if (UserDefaultsKeyNames::isSplitterKey(key))
            ++splitters;
    }
    EXPECT_EQ(splitters, 7);  // their defaults: see the pane positions below
}

TEST_F(ShellSettingsTest, StoredDestinationFallsBackToAboutForAnythingUnnamed)
{
    SettingsManager selection(UserDefaultsKeys::menuSelection);
    EXPECT_EQ(selection.storedDestination(), MenuDestination::menuAbout);  // nothing stored

    UserDefaults::standard()->setValue(QStringLiteral("menuSelection"), QStringLiteral("menuPlugins"));
    EXPECT_EQ(selection.storedDestination(), MenuDestination::menuAbout);
    UserDefaults::standard()->setValue(QStringLiteral("menuSelection"), 3);
    EXPECT_EQ(selection.storedDestination(), MenuDestination::menuAbout);

    selection.saveDestination(MenuDestination::menuToolConfig);
    EXPECT_EQ(UserDefaults::standard()->value(QStringLiteral("menuSelection")).toString(), "menuToolConfig");
    EXPECT_EQ(SettingsManager(UserDefaultsKeys::menuSelection).storedDestination(), MenuDestination::menuToolConfig);
}

TEST_F(ShellSettingsTest, PanePositionUsesTheStoredNumberOnlyWhenAboveZero)
{
    EXPECT_EQ(SettingsManager(UserDefaultsKeys::spToolConfigView).splitterPosition(), 300);
    EXPECT_EQ(SettingsManager(UserDefaultsKeys::spScriptEditorLogView).splitterPosition(), 400);

    auto defaults = UserDefaults::standard();
    defaults->setValue(QStringLiteral("spToolConfigView"), 0);
    defaults->setValue(QStringLiteral("spScriptEditorLogView"), -20);
    EXPECT_EQ(SettingsManager(UserDefaultsKeys::spToolConfigView).splitterPosition(), 300);
    EXPECT_EQ(SettingsManager(UserDefaultsKeys::spScriptEditorLogView).splitterPosition(), 400);

    SettingsManager pane(UserDefaultsKeys::spToolConfigView);
    QSignalSpy changed(&pane, &SettingsManager::splitterPositionChanged);
    pane.saveSplitter(412.5);
    EXPECT_EQ(pane.splitterPosition(), 412.5);
    EXPECT_EQ(changed.count(), 1);
    EXPECT_EQ(SettingsManager(UserDefaultsKeys::spToolConfigView).splitterPosition(), 412.5);

    // A feature's own key with its own default.
    EXPECT_EQ(SettingsManager(QStringLiteral("serverView.VSplitViewPos"), 260).splitterPosition(), 260);
}

TEST_F(ShellSettingsTest, FrameIsReadOnlyWhenTheOriginXKeyExists)
{
    auto defaults = UserDefaults::standard();
    // Everything but windowOriginX: the defaults apply, whatever the other keys hold.
    defaults->setValue(QStringLiteral("windowOriginY"), 300);
    defaults->setValue(QStringLiteral("windowWidth"), 640);
    defaults->setValue(QStringLiteral("windowIsZoomed"), true);
    EXPECT_EQ(SettingsManager(UserDefaultsKeys::windowState).windowState(), WindowState());

    defaults->setValue(QStringLiteral("windowOriginX"), 12.5);
    const WindowState read = SettingsManager(UserDefaultsKeys::windowState).windowState();
    EXPECT_EQ(read.windowOriginX, 12.5);
    EXPECT_EQ(read.windowOriginY, 300);
    EXPECT_EQ(read.windowWidth, 640);
    EXPECT_EQ(read.windowHeight, 0);  // a missing number reads 0 once the frame is read
    EXPECT_TRUE(read.isZoomed);
}

TEST_F(ShellSettingsTest, SavedFrameComesBackUnderItsSevenKeys)
{
    WindowState state{40, 60, 1280, 800};
    state.isFullscreen = true;
    state.isMiniaturized = true;
    SettingsManager delegate(UserDefaultsKeys::windowState);
    QSignalSpy changed(&delegate, &SettingsManager::windowStateChanged);
    delegate.saveWindowState(state);
    EXPECT_EQ(changed.count(), 1);
    EXPECT_EQ(delegate.windowState(), state);
    EXPECT_EQ(SettingsManager(UserDefaultsKeys::windowState).windowState(), state);
    EXPECT_EQ(UserDefaults::standard()->value(QStringLiteral("windowIsFullscreen")).toBool(), true);
    EXPECT_FALSE(UserDefaults::standard()->contains(QStringLiteral("windowState")));
}

}  // namespace
