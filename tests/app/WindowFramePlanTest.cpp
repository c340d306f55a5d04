#include "app/WindowFramePlan.h"

#include <gtest/gtest.h>

namespace {

const QSize scene(1024, 720);
const QRect screen(0, 0, 1920, 1080);

TEST(WindowFramePlanTest, OriginsAboveZeroAndSizesAboveOneHundredAreRestored)
{
    const struct {
        WindowState stored;
        QRect area, expected;
        bool centered, sizeRestored;
    } cases[] = {
        // First launch: the defaults hold the scene size, centered.
        {WindowState(), screen, QRect(448, 180, 1024, 720), true, true},
        // A coordinate of zero or less centers: a window saved at the left edge is not put back there.
        {WindowState{0, 300, 800, 600}, screen, QRect(560, 240, 800, 600), true, true},
        {WindowState{300, 0, 800, 600}, screen, QRect(560, 240, 800, 600), true, true},
        {WindowState{-5, 40, 800, 600}, screen, QRect(560, 240, 800, 600), true, true},
        {WindowState{1, 1, 800, 600}, screen, QRect(1, 1, 800, 600), false, true},
        {WindowState{10, 10, 100, 600}, screen, QRect(QPoint(10, 10), scene), false, false},
        {WindowState{10, 10, 600, 100}, screen, QRect(QPoint(10, 10), scene), false, false},
        {WindowState{10, 10, 101, 101}, screen, QRect(10, 10, 101, 101), false, true},
        // A second screen to the right; a larger frame shrinks to it.
        {WindowState{0, 0, 800, 600}, QRect(1920, 0, 1280, 800), QRect(2160, 100, 800, 600), true, true},
        {WindowState{100, 100, 2560, 1440}, QRect(1920, 0, 1280, 800), QRect(100, 100, 1280, 800), false, true},
    };
    for (const auto &c : cases) {
        const WindowFramePlan plan = WindowFramePlan::make(c.stored, scene, c.area);
        SCOPED_TRACE(testing::Message() << c.stored.windowOriginX << "," << c.stored.windowOriginY << " "
                                        << c.stored.windowWidth << "x" << c.stored.windowHeight);
        EXPECT_EQ(plan.geometry(), c.expected);
        EXPECT_EQ(plan.centered, c.centered);
        EXPECT_EQ(plan.sizeRestored, c.sizeRestored);
        EXPECT_FALSE(plan.zoom || plan.minimize || plan.fullScreen);
    }
}

TEST(WindowFramePlanTest, StatesCarryOver)
{
    WindowState s = WindowState{100, 100, 800, 600};
    s.isZoomed = true;
    s.isMiniaturized = true;
    s.isFullscreen = true;
    const WindowFramePlan plan = WindowFramePlan::make(s, scene, screen);
    EXPECT_TRUE(plan.zoom && plan.minimize && plan.fullScreen);
}

}  // namespace
