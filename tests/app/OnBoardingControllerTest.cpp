#include "app/OnBoardingCompletion.h"
#include "app/OnBoardingController.h"
#include "base/UserDefaults.h"

#include <gtest/gtest.h>

#include <QCoreApplication>

namespace {

class OnBoardingControllerTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        for (int d = 0; d < 8; ++d)
            UserDefaults::standard()->remove(OnBoardingCompletion::keyFor(MenuDestination(d)));
    }
    static void settle() { QCoreApplication::processEvents(); }
};

}  // namespace

TEST_F(OnBoardingControllerTest, AScreensTourStartsByItselfUntilItIsDoneAndStaysDone)
{
    OnBoardingCompletion completion;
    const QList<OnBoardingStep> steps{{92, "b"}, {10, "a"}, {91, "c"}};
    OnBoardingController tour(steps, MenuDestination::menuAbout, &completion);
    EXPECT_FALSE(tour.isActive());  // a later step, not at once
    settle();
    ASSERT_TRUE(tour.isActive());
    EXPECT_EQ(tour.obItemsId(), 193);
    EXPECT_EQ(tour.currentStep()->index, 10);  // sorted by index
    tour.back();
    EXPECT_EQ(tour.currentIndex(), 0);
    tour.forward();
    tour.forward();
    tour.forward();
    EXPECT_EQ(tour.currentStep()->index, 92);
    EXPECT_TRUE(tour.isLast());

    // Closing on the first step is enough: done, stored, and not started again.
    tour.back();
    tour.back();
    tour.finish();
    EXPECT_FALSE(tour.isActive());
    EXPECT_TRUE(UserDefaults::standard()->value(QStringLiteral("ob.completed.menuAbout")).toBool());
    EXPECT_FALSE(UserDefaults::standard()->value(QStringLiteral("ob.completed.menuServerConfig"), true).toBool());
    OnBoardingCompletion reread;
    EXPECT_TRUE(reread.isCompleted(MenuDestination::menuAbout));
    OnBoardingController again(steps, MenuDestination::menuAbout, &reread);
    settle();
    EXPECT_FALSE(again.isActive());

    // A replay undoes every screen's mark and runs this tour from its first step.
    reread.setCompleted(MenuDestination::menuToolConfig, true);
    again.replay();
    EXPECT_TRUE(again.isActive());
    EXPECT_EQ(again.currentIndex(), 0);
    for (int d = 0; d < 8; ++d)
        EXPECT_FALSE(UserDefaults::standard()->value(OnBoardingCompletion::keyFor(MenuDestination(d)), true).toBool()) << d;
}

TEST_F(OnBoardingControllerTest, WithoutStepsThereIsNoTour)
{
    OnBoardingCompletion completion;
    OnBoardingController empty({}, MenuDestination::menuServerConfig, &completion);
    settle();
    EXPECT_FALSE(empty.isActive());
    EXPECT_FALSE(empty.currentStep().has_value());
    empty.start();
    EXPECT_FALSE(empty.isActive());
    // The application's list: twelve steps, the About panel's four fixed at 90 to 93.
    const QList<OnBoardingStep> steps = OnBoardingStep::applicationSteps();
    ASSERT_EQ(steps.size(), 12);
    EXPECT_EQ(steps.at(11).text, "Install the ToolSDK to develop your own tools and expand your capabilities.");
    EXPECT_EQ(steps.at(11).position, OnBoardingStep::Position::top);
    EXPECT_EQ(steps.at(8).identity(), "ob.step.90");
}

// Steps whose control is not on the screen in front are passed over both ways, the ends are
// the ends of what shows, and a tour with nothing to show does not start.
TEST_F(OnBoardingControllerTest, StepsWithoutTheirControlArePassedOver)
{
    OnBoardingCompletion completion;
    const QList<OnBoardingStep> steps{{10, "a"}, {20, "b"}, {90, "c"}, {91, "d"}, {30, "e"}};
    QList<int> shown{20, 30, 91};
    OnBoardingController tour(steps, MenuDestination::menuServerConfig, &completion);
    tour.setAvailability([&](int index) { return shown.contains(index); });
    settle();
    ASSERT_TRUE(tour.isActive());
    EXPECT_EQ(tour.currentStep()->index, 20);  // 10 has no control here
    EXPECT_TRUE(tour.isFirst());
    tour.back();
    EXPECT_EQ(tour.currentStep()->index, 20);
    tour.forward();
    EXPECT_EQ(tour.currentStep()->index, 30);
    tour.forward();
    EXPECT_EQ(tour.currentStep()->index, 91);  // 90 passed over
    EXPECT_TRUE(tour.isLast());
    tour.forward();
    EXPECT_EQ(tour.currentStep()->index, 91);
    tour.back();
    EXPECT_EQ(tour.currentStep()->index, 30);
    EXPECT_FALSE(tour.isFirst());
    EXPECT_FALSE(tour.isLast());

    // A control that appears later (another screen in front) is a step again.
    shown.append(10);
    tour.back();
    tour.back();
    EXPECT_EQ(tour.currentStep()->index, 10);
    EXPECT_TRUE(tour.isFirst());

    OnBoardingController nothing(steps, MenuDestination::menuPromptConfig, &completion);
    nothing.setAvailability([](int) { return false; });
    settle();
    EXPECT_FALSE(nothing.isActive());
    EXPECT_FALSE(completion.isCompleted(MenuDestination::menuPromptConfig));
}
