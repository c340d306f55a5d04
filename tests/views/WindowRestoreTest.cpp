#include "app/SettingsManager.h"
#include "base/UserDefaults.h"
#include "tests/support/TestSupport.h"
#include "tests/views/ViewsTestSupport.h"
#include "views/app/AppDelegate.h"

#include <gtest/gtest.h>

#include <QGuiApplication>
#include <QScreen>
#include <QWidget>

#include <optional>

namespace {

class WindowRestoreTest : public ::testing::Test {
protected:
    void SetUp() override { UserDefaults::standard()->clear(); }
    void TearDown() override { ViewsTestSupport::closeAllWindows(); }

    static void store(const QRect &frame, bool zoomed = false)
    {
        WindowState state{double(frame.x()), double(frame.y()), double(frame.width()), double(frame.height())};
        state.isZoomed = zoomed;
        SettingsManager(UserDefaultsKeys::windowState).saveWindowState(state);
    }
};

TEST_F(WindowRestoreTest, TheLaunchPlacesTheWindowByTheStoredFrame)
{
    const QRect area = QGuiApplication::primaryScreen()->availableGeometry();
    const QSize scene = QSize(1024, 720).boundedTo(area.size());
    auto centered = [&](const QSize &size) {
        return QRect(area.topLeft() + QPoint((area.width() - size.width()) / 2, (area.height() - size.height()) / 2), size);
    };
    // Nothing stored; an x of 0 centers; a width of 100 is no size to restore.
    const std::optional<QRect> stored[] = {std::nullopt, QRect(0, 300, 400, 300), QRect(40, 50, 100, 300)};
    const QRect expected[] = {centered(scene), centered(QSize(400, 300)), QRect(QPoint(40, 50), scene)};
    for (int i = 0; i < 3; ++i) {
        if (stored[i])
            store(*stored[i]);
        QWidget window;
        window.resize(1024, 720);
        AppDelegate delegate;
        delegate.didFinishLaunching(&window);
        EXPECT_EQ(QRect(window.pos(), window.size()), expected[i]) << i;
        EXPECT_EQ(delegate.framePlan(&window).centered, i < 2) << i;
    }
}

TEST_F(WindowRestoreTest, StatesAreRestoredAndChangesAreStored)
{
    store(QRect(30, 40, 900, 650), true);
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
