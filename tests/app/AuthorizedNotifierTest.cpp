#include "app/AppLaunchState.h"
#include "app/AuthorizedNotifier.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <QStringList>

namespace {

class RecordingNotifier : public DesktopNotifier {
public:
    QStringList shown;
    void notify(const QString &title, const QString &body, const QString &) override { shown.append(title + ": " + body); }
};

TEST(AuthorizedNotifierTest, DropsNotificationsUntilTheDesktopSaysYes)
{
    AppLaunchState state;
    RecordingNotifier desktop;
    AuthorizedNotifier notifier(&desktop, &state);
    notifier.notify(QStringLiteral("Kelvara"), QStringLiteral("MCP Server running"));  // before any answer
    EXPECT_TRUE(desktop.shown.isEmpty());
    state.setNotificationsAllowed(true);
    notifier.notify(QStringLiteral("Kelvara"), QStringLiteral("MCP Server stopped"));
    EXPECT_EQ(desktop.shown, QStringList{QStringLiteral("Kelvara: MCP Server stopped")});
}

TEST(AuthorizedNotifierTest, NoSessionBusAnswersNoWithTheReason)
{
    // The test runner points the session bus at a socket that does not exist.
    AppLaunchState state;
    state.setNotificationsAllowed(true);
    std::optional<bool> allowed;
    std::optional<QString> reason;
    AuthorizedNotifier::requestAuthorization(&state, [&](bool yes, std::optional<QString> error) {
        allowed = yes;
        reason = error;
    });
    ASSERT_TRUE(TestSupport::waitUntil([&] { return allowed.has_value(); }));
    EXPECT_FALSE(*allowed);
    ASSERT_TRUE(reason.has_value());
    EXPECT_FALSE(reason->isEmpty());
    EXPECT_FALSE(state.notificationsAllowed());
}

// A notification the desktop cannot take leaves the failure line on standard error.
TEST(AuthorizedNotifierTest, AFailedNotificationSaysSo)
{
    // The test runner points the session bus at a socket that does not exist.
    DesktopNotifier desktop;
    testing::internal::CaptureStderr();
    desktop.notify(QStringLiteral("Kelvara"), QStringLiteral("MCP Server running"));
    TestSupport::spin(50);
    const std::string printed = testing::internal::GetCapturedStderr();
    EXPECT_NE(printed.find("[AppDelegete] Failed to schedule main notification: "), std::string::npos) << printed;
}

}  // namespace
