#include "app/AppLaunchState.h"
#include "app/MenuVisibility.h"
#include "app/OnBoardingCompletion.h"
#include "base/UserDefaults.h"
#include "base/AbstractController.h"
#include "tests/support/TestSupport.h"
#include "tests/views/ViewsTestSupport.h"
#include "views/about/AboutView.h"
#include "views/app/AppMainWindow.h"
#include "views/app/AppMenuBar.h"
#include "views/app/BuiltinFeatures.h"
#include "views/common/ReadOnlyTextView.h"
#include "views/common/DestinationScreen.h"
#include "views/app/DestinationScreenRegistry.h"
#include "views/app/EmptyStateScreen.h"
#include "views/app/NewAppWindow.h"
#include "views/app/OnBoardingBubble.h"
#include "views/app/SplashScreenView.h"
#include "tests/support/TestServices.h"

#include <gtest/gtest.h>

#include <QAction>
#include <QDesktopServices>
#include <QLabel>
#include <QListWidget>
#include <QMenu>
#include <QScreen>
#include <QTest>
#include <QToolButton>

using namespace ViewsTestSupport;

namespace {

class MainWindowTest : public ::testing::Test {
protected:
    void TearDown() override
    {
        closeAllWindows();
        AppMainWindow::setLaunchFinishedHandler(nullptr);
    }
};

// The launch runs once per process; CTest runs every test in a process of its own.
TEST_F(MainWindowTest, FreshStartShowsTheLaunchSheetThenTheStoredDestination)
{
    if (AppLaunchState::shared()->launchFinished())
        GTEST_SKIP() << "needs a process in which no window has launched yet";
    UserDefaults::standard()->setValue(QStringLiteral("menuSelection"), QStringLiteral("menuPromptConfig"));
    int questions = 0;
    AppMainWindow::setLaunchFinishedHandler([&](AppMainWindow *) { ++questions; });

    auto *window = new AppMainWindow(TestServices::application().server());
    window->show();
    ASSERT_TRUE(window->isShowingSplashScreen());
    ASSERT_NE(window->splash(), nullptr);
    EXPECT_EQ((QStringList{window->splash()->titleText(), window->splash()->messageText(), window->splash()->percentText()}),
              (QStringList{"Load application", "Waiting...", "10%"}));
    EXPECT_EQ(window->currentScreen(), nullptr);  // the content stays empty behind the sheet
    EXPECT_FALSE(window->sidebar()->isEnabled());

    ASSERT_TRUE(TestSupport::waitUntil([&] { return window->splash()->percentText() == "100%"; }));
    EXPECT_EQ(window->splash()->messageText(), "Done");
    ASSERT_TRUE(TestSupport::waitUntil([&] { return window->destination().has_value(); }));
    EXPECT_FALSE(window->isShowingSplashScreen());
    EXPECT_TRUE(window->sidebar()->isEnabled());
    EXPECT_EQ(window->destination(), MenuDestination::menuPromptConfig);
    EXPECT_EQ(window->sidebar()->currentRow(), 1);
    EXPECT_EQ(MenuVisibility::shared()->activeDestination(), MenuDestination::menuPromptConfig);
    auto *empty = qobject_cast<EmptyStateScreen *>(window->currentScreen());
    ASSERT_NE(empty, nullptr);
    EXPECT_EQ(empty->destination(), MenuDestination::menuPromptConfig);
    EXPECT_EQ(questions, 1);
    EXPECT_TRUE(TestSupport::waitUntil([&] { return MenuVisibility::shared()->appWindowId() == window->windowNumber(); }));
    EXPECT_TRUE(TestSupport::waitUntil([&] { return window->splash()->isHidden(); }));

    // A window opened now shows no sheet, asks nothing and goes straight to its destination.
    AppMainWindow *second = NewAppWindow::open(TestServices::application().server(), MenuDestination::menuToolConfig);
    EXPECT_FALSE(second->isShowingSplashScreen());
    EXPECT_EQ(second->splash(), nullptr);
    EXPECT_EQ(second->destination(), MenuDestination::menuToolConfig);
    EXPECT_EQ(second->windowTitle(), QStringLiteral("Kelvara — Tools"));
    EXPECT_EQ(second->size(), QSize(1024, 720).boundedTo(second->screen()->availableGeometry().size()));
    EXPECT_EQ(AppMainWindow::frontWindow(), second);
    TestSupport::spin(50);
    EXPECT_EQ(questions, 1);
}

TEST_F(MainWindowTest, SidebarAndViewMenuNavigateAndTheSidebarStoresTheChoice)
{
    AppMainWindow *window = launchedWindow(MenuDestination::menuAbout);
    EXPECT_NE(qobject_cast<AboutView *>(window->currentScreen()), nullptr);

    window->sidebar()->setCurrentRow(3);
    EXPECT_EQ(window->destination(), MenuDestination::menuToolConfig);
    EXPECT_EQ(UserDefaults::standard()->value(QStringLiteral("menuSelection")).toString(), "menuToolConfig");
    EXPECT_EQ(MenuVisibility::shared()->activeDestination(), MenuDestination::menuToolConfig);

    window->appMenuBar()->action(MenuCommand::ShowServer)->trigger();
    EXPECT_EQ(window->destination(), MenuDestination::menuServerConfig);
    EXPECT_EQ(window->sidebar()->currentRow(), 0);
    window->appMenuBar()->action(MenuCommand::About)->trigger();
    EXPECT_EQ(window->destination(), MenuDestination::menuAbout);

    // The keyboard: Alt+6 shows the plug-ins.
    QApplication::setActiveWindow(window);
    ASSERT_TRUE(QTest::qWaitForWindowActive(window));
    QTest::keyClick(window, Qt::Key_6, Qt::AltModifier);
    EXPECT_EQ(window->destination(), MenuDestination::menuPluginManager);

    // Each screen is made once and kept.
    DestinationScreen *plugins = window->currentScreen();
    window->navigate(MenuDestination::menuAbout);
    window->navigate(MenuDestination::menuPluginManager);
    EXPECT_EQ(window->currentScreen(), plugins);
    EXPECT_EQ(window->sidebar()->count(), 8);
    EXPECT_EQ(window->sidebar()->item(6)->text(), "AI Chat");
    EXPECT_FALSE(window->sidebar()->item(0)->icon().pixmap(20, 20).isNull());
}

class FakeController : public AbstractController {
public:
    bool add = true;
    int copies = 0;
    bool canAdd() const override { return add; }
    bool canCopy() const override { return true; }
    void copySelectedItem() override { ++copies; }
};

class FakeScreen : public DestinationScreen {
public:
    explicit FakeScreen(QWidget *parent) : DestinationScreen(parent) {}
    FakeController controller;
    int newItems = 0;
    AbstractController *activeController() const override { return const_cast<FakeController *>(&controller); }
    bool handlesCommand(MenuCommand c) const override { return c == MenuCommand::NewItem; }
    void performCommand(MenuCommand c) override { newItems += c == MenuCommand::NewItem; }
};

TEST_F(MainWindowTest, MenusOfferWhatTheDestinationsScreenCanDo)
{
    QList<FakeScreen *> made;
    DestinationScreenRegistry::registerScreen(MenuDestination::menuToolConfig, [&made](QWidget *parent) {
        made.append(new FakeScreen(parent));
        return made.last();
    });
    AppMainWindow *window = launchedWindow(MenuDestination::menuServerConfig);
    AppMenuBar *menus = window->appMenuBar();
    QAction *newItem = menus->action(MenuCommand::NewItem);
    QAction *duplicate = menus->action(MenuCommand::Duplicate);

    // The server screen is not built here: nothing to add, nothing to duplicate, no editor.
    EXPECT_FALSE(newItem->isVisible());
    EXPECT_FALSE(duplicate->isVisible());
    EXPECT_FALSE(menus->menu(MenuGroup::Edit)->menuAction()->isVisible());
    EXPECT_FALSE(menus->menu(MenuGroup::Script)->menuAction()->isVisible());
    EXPECT_TRUE(menus->menu(MenuGroup::View)->menuAction()->isVisible());

    window->navigate(MenuDestination::menuToolConfig);
    EXPECT_TRUE(newItem->isVisible());
    EXPECT_TRUE(newItem->isEnabled());
    EXPECT_EQ(newItem->text(), "New Tool");
    EXPECT_EQ(newItem->shortcut(), QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_N));
    EXPECT_TRUE(duplicate->isVisible());
    newItem->trigger();
    ASSERT_EQ(made.size(), 1);
    EXPECT_EQ(made.first()->newItems, 1);
    duplicate->trigger();
    EXPECT_EQ(made.first()->controller.copies, 1);

    // The controller's answer reaches the menu as soon as it announces a change.
    made.first()->controller.add = false;
    made.first()->controller.notifyChange();
    EXPECT_FALSE(newItem->isEnabled());

    // Leaving the screen takes its offers away again.
    window->navigate(MenuDestination::menuAbout);
    EXPECT_EQ(newItem->text(), "New");
    EXPECT_FALSE(duplicate->isVisible());

    // New Window appears once registered and opens on the front window's destination.
    EXPECT_FALSE(menus->action(MenuCommand::NewWindow)->isVisible());
    BuiltinFeatures::registerAll(TestServices::application());
    EXPECT_TRUE(menus->action(MenuCommand::NewWindow)->isVisible());
    window->navigate(MenuDestination::menuToolConfig);
    menus->action(MenuCommand::NewWindow)->trigger();
    AppMainWindow *opened = NewAppWindow::lastWindow();
    ASSERT_NE(opened, nullptr);
    EXPECT_NE(opened, window);
    EXPECT_EQ(opened->destination(), MenuDestination::menuToolConfig);
    EXPECT_EQ(AppMainWindow::windows().size(), 2);

    DestinationScreenRegistry::unregisterScreen(MenuDestination::menuToolConfig);
}

TEST_F(MainWindowTest, HelpPagesOpenInsideKelvara)
{
    BuiltinFeatures::registerAll(TestServices::application());
    AppMainWindow *window = launchedWindow(MenuDestination::menuAbout);
    AppMenuBar *menus = window->appMenuBar();
    EXPECT_EQ(menus->action(MenuCommand::HelpOverview)->text(), "Kelvara - Overview");
    menus->action(MenuCommand::HelpOverview)->trigger();
    menus->action(MenuCommand::HelpGetStarted)->trigger();
    menus->action(MenuCommand::HelpOverview)->trigger(); // raises the open one
    QList<ReadOnlyTextView *> pages;
    for (QWidget *w : QApplication::topLevelWidgets())
        if (auto *page = qobject_cast<ReadOnlyTextView *>(w))
            pages << page;
    ASSERT_EQ(pages.size(), 2);
    for (ReadOnlyTextView *page : pages) {
        EXPECT_TRUE(page->loaded()) << page->filename().toStdString();
        EXPECT_FALSE(page->text().contains(QStringLiteral("**")));
        delete page;
    }
    ReadOnlyTextView missing(QStringLiteral("missing.md"), QStringLiteral("Missing"));
    EXPECT_FALSE(missing.loaded());
    EXPECT_TRUE(missing.text().contains(QStringLiteral("File 'missing.md' not found in app bundle")));
    EXPECT_FALSE(BuiltinFeatures::openHelpPage(QStringLiteral("missing.html")));
}

TEST_F(MainWindowTest, TheTourPointsAtEachControlAndHelpReplaysIt)
{
    OnBoardingCompletion *done = OnBoardingCompletion::shared();
    done->resetAll();
    BuiltinFeatures::registerAll(TestServices::application());
    AppMainWindow *window = launchedWindow(MenuDestination::menuAbout);
    window->resize(1100, 760);
    OnBoardingBubble *bubble = window->onboardingBubble();
    ASSERT_TRUE(TestSupport::waitUntil([&] { return bubble->isVisible(); }));
    EXPECT_EQ(bubble->textLabel()->text(), "This is the server section. Configure host, port, and runtime behavior here.");
    EXPECT_TRUE(bubble->backButton()->isHidden());
    EXPECT_EQ(bubble->closeButton()->toolTip(), "Skip onboarding");
    // Beside the server's sidebar entry.
    const QRect server = *window->onboardingAnchor(10);
    EXPECT_GE(bubble->geometry().left(), server.right());

    QTest::keyClick(bubble, Qt::Key_Return);
    EXPECT_EQ(bubble->textLabel()->text(), "Use prompts to create reusable prompt templates with optional arguments.");
    while (bubble->controller()->currentStep()->index < 91)
        bubble->forwardButton()->click();
    // Above the About panel's first button.
    const QRect scopes = *window->onboardingAnchor(91);
    EXPECT_LE(bubble->geometry().bottom(), scopes.top());
    EXPECT_EQ(bubble->textLabel()->text(), "First, grant access to your work/personal folders.");
    bubble->forwardButton()->click();
    bubble->forwardButton()->click();
    EXPECT_TRUE(bubble->forwardButton()->isHidden());  // the last step

    QTest::keyClick(bubble, Qt::Key_Escape);
    EXPECT_FALSE(bubble->isVisible());
    EXPECT_TRUE(done->isCompleted(MenuDestination::menuAbout));
    EXPECT_FALSE(done->isCompleted(MenuDestination::menuServerConfig));

    // Another screen's tour starts the first time it opens; Help ▸ Show onboarding replays it.
    window->navigate(MenuDestination::menuServerConfig);
    ASSERT_TRUE(TestSupport::waitUntil([&] { return bubble->isVisible(); }));
    bubble->closeButton()->click();
    EXPECT_TRUE(done->isCompleted(MenuDestination::menuServerConfig));
    AppMenuBar *menus = window->appMenuBar();
    ASSERT_TRUE(menus->action(MenuCommand::ShowOnboarding)->isVisible());
    menus->action(MenuCommand::ShowOnboarding)->trigger();
    ASSERT_TRUE(TestSupport::waitUntil([&] { return bubble->isVisible(); }));
    EXPECT_EQ(bubble->controller()->currentIndex(), 0);
    EXPECT_FALSE(done->isCompleted(MenuDestination::menuAbout));  // every mark undone
    EXPECT_FALSE(MenuVisibility::shared()->startOnboarding());  // the request fell back
    bubble->closeButton()->click();
    for (int d = 0; d < 8; ++d)
        done->setCompleted(MenuDestination(d), true);  // the other tests' returning user again
}

}  // namespace
