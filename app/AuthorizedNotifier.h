#pragma once

#include "base/DesktopNotifier.h"

#include <functional>
#include <optional>

class AppLaunchState;

// The desktop's notifications as the application uses them: asked for once after the
// launch (is there a notification service on the session bus?), and dropped without a
// word while the answer is not yes — also before the answer has come.
class AuthorizedNotifier : public DesktopNotifier {
public:
    // Forwards to target (the plain notifier when nullptr) while state allows it.
    explicit AuthorizedNotifier(DesktopNotifier *target = nullptr, AppLaunchState *state = nullptr);

    void notify(const QString &title, const QString &body, const QString &actionLabel = QString()) override;

    // Asks the session bus for the notification service; sets notificationsAllowed to the
    // answer, or to false with the line "Notification permission error: <description>)"
    // when it cannot be asked. The answer comes later on the main thread; done, when
    // given, hears it too.
    static void requestAuthorization(AppLaunchState *state = nullptr,
                                     std::function<void(bool allowed, std::optional<QString> error)> done = {});

private:
    DesktopNotifier *m_target;
    AppLaunchState *m_state;
};
