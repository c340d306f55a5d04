#include "app/SettingsManager.h"
#include "app/UserDefaults.h"
#include "tests/support/TestSupport.h"
#include "tests/views/ViewsTestSupport.h"
#include "views/app/AppDelegate.h"

#include <gtest/gtest.h>

#include <QGuiApplication>
#include <QScreen>
#include <QWidget>

namespace {

class WindowRestoreTest : public ::testing::Test {
protected:
    void SetUp() override { UserDefaults::standard()->clear(); }
    void TearDown() override { ViewsTestSupport::closeAllWindows(); }

    static void store(double x, double y, double w, double h)
    {
        WindowState state;
        state.windowOriginX = x;
        state.windowOriginY = y;
        state.windowWidth = w;
        state.windowHeight = h;
        SettingsManager(UserDefaultsKeys::windowState).saveWindowState(state);
    }
    static QRect available() { return QGuiApplication::primaryScreen()->availableGeometry(); }
};

TEST_F(WindowRestoreTest, EmptyDefaultsCenterTheSceneSize)
{
    QWidget window;
    window.resize(1024, 720);
    AppDelegate delegate;
    delegate.didFinishLaunching(&window);
    EXPECT_EQ(window.size(), QSize(1024, 720).boundedTo(available().size()));
    const QRect area = available();
    EXPECT_EQ(window.pos(), area.topLeft() + QPoint((area.width() - window.width()) / 2, (area.height() - window.height()) / 2));
    EXPECT_EQ(delegate.framePlan(&window).centered, true);
}

TEST_F(WindowRestoreTest, AnXOfZeroCentersAndPositiveCoordinatesAreKept)
{
    store(0, 300, 400, 300);
    {
        QWidget window;
        window.resize(1024, 720);
        AppDelegate delegate;
        delegate.didFinishLaunching(&window);
        EXPECT_EQ(window.size(), QSize(400, 300));
        const QRect area = available();
        EXPECT_EQ(window.pos(), area.topLeft() + QPoint((area.width() - 400) / 2, (area.height() - 300) / 2));
    }
    store(40, 50, 100, 300);  // a width of 100 is no size to restore
    {
        QWidget window;
        window.resize(1024, 720);
        AppDelegate delegate;
        delegate.didFinishLaunching(&window);
        EXPECT_EQ(window.pos(), QPoint(40, 50));
        EXPECT_EQ(window.size(), QSize(1024, 720).boundedTo(available().size()));
    }
}

TEST_F(WindowRestoreTest, StatesAreRestoredAndChangesAreStored)
{
    WindowState zoomed;
    zoomed.windowOriginX = 30;
    zoomed.windowOriginY = 40;
    zoomed.windowWidth = 900;
    zoomed.windowHeight = 650;
    zoomed.isZoomed = true;
    SettingsManager(UserDefaultsKeys::windowState).saveWindowState(zoomed);

    QWidget window;
    window.resize(1024, 720);
    AppDelegate delegate;
    delegate.didFinishLaunching(&window);
    EXPECT_TRUE(window.windowState() & Qt::WindowMaximized);
    window.show();
    TestSupport::spin(30);

    // Back to normal, then moved and resized by the user: the delegate stores each change.
    window.setWindowState(Qt::WindowNoState);
    TestSupport::spin(30);
    window.setGeometry(QRect(70, 80, 700, 500));
    ASSERT_TRUE(TestSupport::waitUntil([&] {
        const WindowState s = SettingsManager(UserDefaultsKeys::windowState).windowState();
        return s.windowWidth == 700 && s.windowHeight == 500 && !s.isZoomed;
    }));
    const WindowState stored = SettingsManager(UserDefaultsKeys::windowState).windowState();
    EXPECT_EQ(stored.windowOriginX, window.pos().x());
    EXPECT_EQ(stored.windowOriginY, window.pos().y());
    EXPECT_FALSE(stored.isFullscreen);

    // After the end nothing is stored any more.
    delegate.applicationWillTerminate();
    EXPECT_EQ(delegate.observerCount(), 0);
    window.resize(640, 480);
    TestSupport::spin(30);
    EXPECT_EQ(SettingsManager(UserDefaultsKeys::windowState).windowState().windowWidth, 700);
}

TEST_F(WindowRestoreTest, WithoutAWindowNothingIsRestoredOrObserved)
{
    AppDelegate delegate;
    const int before = delegate.observerCount();
    delegate.didFinishLaunching(nullptr);
    EXPECT_EQ(delegate.observerCount(), before);
    EXPECT_FALSE(UserDefaults::standard()->contains(QStringLiteral("windowOriginX")));
    EXPECT_TRUE(AppDelegate::launchLine().startsWith(QStringLiteral("[AppDelegete] Kelvara org.tamsel.kelvara Linux ")));
}

}  // namespace
