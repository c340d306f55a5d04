#include "app/AppLaunchState.h"
#include "app/AppLaunchViewModel.h"
#include "app/MenuVisibility.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <QElapsedTimer>
#include <QSignalSpy>

namespace {

TEST(LaunchJobTest, RunsItsStepsInOrderAndSetsLaunchFinishedOnce)
{
    AppLaunchState state;
    AppLaunchViewModel model(&state);
    QList<std::pair<QString, double>> seen;
    QObject::connect(&model, &AppLaunchViewModel::jobChanged, [&] {
        const StartupJob job = model.job();
        if (seen.isEmpty() || seen.last() != std::pair{job.message, job.progress})
            seen.append({job.message, job.progress});
    });
    QSignalSpy finished(&model, &AppLaunchViewModel::finished);
    QSignalSpy flag(&state, &AppLaunchState::launchFinishedChanged);

    EXPECT_EQ(model.job().id, "startup");
    EXPECT_FALSE(model.isRunning());
    QElapsedTimer clock;
    clock.start();
    model.start();
    EXPECT_EQ(model.job().progress, 0.1);
    EXPECT_EQ(model.job().percentText(), "10%");
    EXPECT_TRUE(model.isRunning());
    model.start();  // a second start changes nothing
    ASSERT_TRUE(TestSupport::waitUntil([&] { return finished.count() == 1; }, 3000));
    // Three pauses: 0.35 + 0.35 + 0.15 seconds.
    EXPECT_GE(clock.elapsed(), 800);

    const QList<std::pair<QString, double>> expected = {
        {QStringLiteral("Waiting..."), 0.1}, {QStringLiteral("Waiting..."), 0.5}, {QStringLiteral("Done"), 0.5},
        {QStringLiteral("Done"), 1.0}};
    EXPECT_EQ(seen, expected);
    EXPECT_TRUE(state.launchFinished());
    EXPECT_EQ(flag.count(), 1);
    EXPECT_FALSE(model.isRunning());

    // A later job of another window finds the flag set and leaves it.
    AppLaunchViewModel later(&state);
    later.start();
    later.cancelPause();
    later.cancelPause();
    later.cancelPause();
    EXPECT_TRUE(state.launchFinished());
    EXPECT_EQ(flag.count(), 1);
}

TEST(LaunchJobTest, ACancelledPauseGoesOnToTheNextStep)
{
    AppLaunchState state;
    AppLaunchViewModel model(&state);
    model.start();
    model.cancelPause();
    EXPECT_EQ(model.job().progress, 0.5);
    model.cancelPause();
    EXPECT_EQ(model.job().message, "Done");
    EXPECT_EQ(model.job().percentText(), "100%");
    EXPECT_FALSE(state.launchFinished());
    model.cancelPause();
    EXPECT_TRUE(state.launchFinished());
    model.cancelPause();  // nothing left to cut short
}

TEST(LaunchJobTest, ProgressIsClampedToZeroAndOne)
{
    AppLaunchState state;
    AppLaunchViewModel model(&state);
    model.setProgress(1.7);
    EXPECT_EQ(model.job().progress, 1.0);
    model.setProgress(-0.2);
    EXPECT_EQ(model.job().progress, 0.0);
    model.setProgress(0.456);
    EXPECT_EQ(model.job().percentText(), "46%");
}

TEST(MenuVisibilityTest, WindowIdBelowOneTakesTheMainWindowOrMinusTwo)
{
    MenuVisibility menus;
    EXPECT_EQ(menus.appWindowId(), -666);
    menus.setAppWindowId(0);
    EXPECT_EQ(menus.appWindowId(), -2);  // no main window known
    menus.setMainWindowNumberProvider([] { return std::optional<int>(4); });
    menus.setAppWindowId(-1);
    EXPECT_EQ(menus.appWindowId(), 4);
    menus.setAppWindowId(7);
    EXPECT_EQ(menus.appWindowId(), 7);
}

TEST(MenuVisibilityTest, ARequestIsTakenOnce)
{
    MenuVisibility menus;
    EXPECT_EQ(menus.requestedDestinationNumber(), -1);
    QSignalSpy requested(&menus, &MenuVisibility::requestedDestinationChanged);
    menus.setRequestedDestination(MenuDestination::menuToolConfig);
    EXPECT_EQ(menus.takeRequestedDestination(), MenuDestination::menuToolConfig);
    EXPECT_FALSE(menus.takeRequestedDestination());
    EXPECT_EQ(requested.count(), 2);
    // Repeating the same request is news again.
    menus.setRequestedDestination(MenuDestination::menuToolConfig);
    menus.setRequestedDestination(MenuDestination::menuToolConfig);
    EXPECT_EQ(requested.count(), 4);
}

}  // namespace
