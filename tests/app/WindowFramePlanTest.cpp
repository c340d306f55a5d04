#include "app/WindowFramePlan.h"

#include <gtest/gtest.h>

namespace {

const QSize scene(1024, 720);
const QRect screen(0, 0, 1920, 1080);

WindowState frame(double x, double y, double w, double h)
{
    WindowState s;
    s.windowOriginX = x;
    s.windowOriginY = y;
    s.windowWidth = w;
    s.windowHeight = h;
    return s;
}

TEST(WindowFramePlanTest, FirstLaunchIsTheSceneSizeAtTheCenter)
{
    const WindowFramePlan plan = WindowFramePlan::make(WindowState(), scene, screen);
    EXPECT_EQ(plan.size, QSize(1024, 720));
    EXPECT_TRUE(plan.centered);
    EXPECT_EQ(plan.origin, QPoint(448, 180));
    EXPECT_FALSE(plan.zoom || plan.minimize || plan.fullScreen);
}

TEST(WindowFramePlanTest, AnOriginCoordinateOfZeroOrLessCenters)
{
    // A window saved at the screen's left edge is therefore not put back there.
    for (const auto &[x, y] : {std::pair{0.0, 300.0}, std::pair{300.0, 0.0}, std::pair{-5.0, 40.0}}) {
        const WindowFramePlan plan = WindowFramePlan::make(frame(x, y, 800, 600), scene, screen);
        EXPECT_TRUE(plan.centered) << x << "," << y;
        EXPECT_EQ(plan.geometry(), QRect(560, 240, 800, 600));
    }
    const WindowFramePlan kept = WindowFramePlan::make(frame(1, 1, 800, 600), scene, screen);
    EXPECT_FALSE(kept.centered);
    EXPECT_EQ(kept.geometry(), QRect(1, 1, 800, 600));
}

TEST(WindowFramePlanTest, SizesOfOneHundredOrLessKeepTheSceneSize)
{
    EXPECT_EQ(WindowFramePlan::make(frame(10, 10, 100, 600), scene, screen).size, scene);
    EXPECT_EQ(WindowFramePlan::make(frame(10, 10, 600, 100), scene, screen).size, scene);
    const WindowFramePlan plan = WindowFramePlan::make(frame(10, 10, 101, 101), scene, screen);
    EXPECT_TRUE(plan.sizeRestored);
    EXPECT_EQ(plan.size, QSize(101, 101));
}

TEST(WindowFramePlanTest, StatesCarryOverAndALargerFrameShrinksToTheScreen)
{
    WindowState s = frame(100, 100, 2560, 1440);
    s.isZoomed = true;
    s.isMiniaturized = true;
    s.isFullscreen = true;
    const QRect small(1920, 0, 1280, 800);  // a second screen to the right
    const WindowFramePlan plan = WindowFramePlan::make(s, scene, small);
    EXPECT_TRUE(plan.zoom && plan.minimize && plan.fullScreen);
    EXPECT_EQ(plan.size, QSize(1280, 800));

    const WindowFramePlan centered = WindowFramePlan::make(frame(0, 0, 800, 600), scene, small);
    EXPECT_EQ(centered.origin, QPoint(1920 + 240, 100));
}

}  // namespace
