#include "app/OnBoardingCompletion.h"
#include "tests/support/TestSupport.h"
#include "tests/views/ViewsTestSupport.h"
#include "tools/security/PrivacyAccess.h"
#include "views/app/AppMainWindow.h"
#include "views/app/BuiltinFeatures.h"
#include "views/app/OnBoardingBubble.h"
#include "views/app/StartupQuestions.h"
#include "tests/support/TestServices.h"

#include <gtest/gtest.h>

#include <QAbstractButton>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QTest>
#include <QToolButton>

using namespace ViewsTestSupport;

namespace {

class TourTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        BuiltinFeatures::registerAll(TestServices::application());
        OnBoardingCompletion::shared()->resetAll();
    }
    void TearDown() override
    {
        closeAllWindows();
        for (MenuDestination destination : MenuDestinations::all())
            OnBoardingCompletion::shared()->setCompleted(destination, true);
    }

    // Walks the tour shown now to its end, checking each bubble against its control.
    static QList<int> walk(AppMainWindow *window, OnBoardingBubble *bubble)
    {
        QList<int> indexes;
        for (int guard = 0; guard < 20; ++guard) {
            const int index = bubble->controller()->currentStep()->index;
            indexes << index;
            const std::optional<QRect> anchor = window->onboardingAnchor(index);
            EXPECT_TRUE(anchor.has_value()) << "step " << index << " points at nothing";
            if (anchor && bubble->controller()->currentStep()->position != OnBoardingStep::Position::center) {
                EXPECT_FALSE(bubble->geometry().intersects(*anchor)) << "step " << index << " covers its control";
                EXPECT_NE(bubble->arrowSide(), OnBoardingBubble::ArrowSide::none) << "step " << index;
            }
            EXPECT_TRUE(window->rect().contains(bubble->geometry())) << "step " << index;
            if (bubble->controller()->isLast())
                break;
            EXPECT_FALSE(bubble->doneButton()->isVisible());
            bubble->forwardButton()->click();
        }
        return indexes;
    }
};

// On a screen other than About the About panel's steps are passed over: the tour ends at
// the sidebar's last entry, with "Done", and no bubble floats over nothing.
TEST_F(TourTest, AnotherScreenShowsOnlyTheStepsWhoseControlsItHas)
{
    AppMainWindow *window = launchedWindow(MenuDestination::menuServerConfig);
    window->resize(1024, 720);
    OnBoardingBubble *bubble = window->onboardingBubble();
    ASSERT_TRUE(TestSupport::waitUntil([&] { return bubble->isVisible(); }));
    EXPECT_EQ(walk(window, bubble), (QList<int>{10, 20, 30, 40, 50, 60, 70, 80}));
    EXPECT_TRUE(bubble->forwardButton()->isHidden());
    ASSERT_TRUE(bubble->doneButton()->isVisible());
    EXPECT_EQ(bubble->doneButton()->text(), "Done");
    bubble->doneButton()->click();
    EXPECT_FALSE(bubble->isVisible());
    EXPECT_TRUE(OnBoardingCompletion::shared()->isCompleted(MenuDestination::menuServerConfig));
}

// On About every step has its control; the bubble keeps clear of each at the smallest size,
// its arrow on the side facing the control.
TEST_F(TourTest, OnAboutEveryStepStandsBesideItsControl)
{
    AppMainWindow *window = launchedWindow(MenuDestination::menuAbout);
    window->resize(1024, 720);
    OnBoardingBubble *bubble = window->onboardingBubble();
    ASSERT_TRUE(TestSupport::waitUntil([&] { return bubble->isVisible(); }));
    EXPECT_EQ(walk(window, bubble), (QList<int>{10, 20, 30, 40, 50, 60, 70, 80, 90, 91, 92, 93}));
    // The last button's bubble stands above it, pointing down.
    const QRect sdk = *window->onboardingAnchor(93);
    EXPECT_LE(bubble->geometry().bottom(), sdk.top());
    EXPECT_EQ(bubble->arrowSide(), OnBoardingBubble::ArrowSide::bottom);
    // Back from the end goes through the same steps.
    bubble->backButton()->click();
    EXPECT_EQ(bubble->controller()->currentStep()->index, 92);
    EXPECT_FALSE(bubble->doneButton()->isVisible());
    QTest::keyClick(bubble, Qt::Key_Escape);
    EXPECT_FALSE(bubble->isVisible());
}

// The first start shows one thing at a time: while a start-up question is open no bubble
// shows; the tour comes once the last one is answered.
TEST_F(TourTest, TheTourWaitsForTheStartUpQuestions)
{
    PrivacyAccess::setStatus(PrivacyAccess::Kind::Reminders, PrivacyAccess::NotDetermined);
    PrivacyAccess::setStatus(PrivacyAccess::Kind::Calendars, PrivacyAccess::NotDetermined);
    PrivacyAccess::setStatus(PrivacyAccess::Kind::Contacts, PrivacyAccess::FullAccess);
    OnBoardingCompletion::shared()->setCompleted(MenuDestination::menuServerConfig, true);
    AppMainWindow *window = launchedWindow(MenuDestination::menuServerConfig);
    StartupQuestions::ask(window);
    EXPECT_TRUE(window->isTourHeld());
    window->navigate(MenuDestination::menuPromptConfig);  // a screen whose tour is not done
    OnBoardingBubble *bubble = window->onboardingBubble();

    auto openQuestion = [&]() -> QMessageBox * {
        QMessageBox *found = nullptr;
        TestSupport::waitUntil([&] {
            for (QMessageBox *box : window->findChildren<QMessageBox *>())
                if (box->isVisible() && box->objectName().startsWith(QStringLiteral("privacyQuestion.")))
                    found = box;
            return found != nullptr;
        });
        return found;
    };
    for (int answered = 0; answered < 2; ++answered) {
        QMessageBox *question = openQuestion();
        ASSERT_NE(question, nullptr) << answered;
        TestSupport::spin(50);
        EXPECT_FALSE(bubble->isVisible()) << "the bubble shows while question " << answered + 1 << " is open";
        for (QAbstractButton *button : question->buttons())
            if (button->text() == QStringLiteral("Don't Allow"))
                button->click();
    }
    // A home folder notice, where this machine gives one, comes before the tour as well.
    for (QMessageBox *box : window->findChildren<QMessageBox *>(QStringLiteral("homeFolderNotice")))
        if (box->isVisible()) {
            EXPECT_FALSE(bubble->isVisible());
            box->reject();
        }
    ASSERT_TRUE(TestSupport::waitUntil([&] { return bubble->isVisible(); }));
    EXPECT_FALSE(window->isTourHeld());
    EXPECT_EQ(bubble->controller()->scope(), MenuDestination::menuPromptConfig);
}

// Holds count: the tour shows only when the last one is released.
TEST_F(TourTest, HoldsOnTheTourCount)
{
    for (MenuDestination destination : MenuDestinations::all())
        OnBoardingCompletion::shared()->setCompleted(destination, destination != MenuDestination::menuToolConfig);
    AppMainWindow *window = launchedWindow(MenuDestination::menuServerConfig);
    window->holdTour();
    window->holdTour();
    window->navigate(MenuDestination::menuToolConfig);
    TestSupport::spin(50);
    OnBoardingBubble *bubble = window->onboardingBubble();
    EXPECT_FALSE(bubble->isVisible());
    window->releaseTour();
    TestSupport::spin(50);
    EXPECT_FALSE(bubble->isVisible());
    window->releaseTour();
    ASSERT_TRUE(TestSupport::waitUntil([&] { return bubble->isVisible(); }));
    window->releaseTour();  // one too many is harmless
    EXPECT_FALSE(window->isTourHeld());
    EXPECT_TRUE(bubble->isVisible());
}

}  // namespace
