#pragma once

#include "app/MenuDestination.h"

#include <QObject>
#include <functional>
#include <optional>

// What the menus know about the front window, one object for the process: the destination
// it shows, a one-shot navigation request that a menu writes and the front window
// consumes, the number of the application's first window and the onboarding request.
// Main thread.
class MenuVisibility : public QObject {
    Q_OBJECT
    // -1 stands for "none" in the two destination properties.
    Q_PROPERTY(int activeDestination READ activeDestinationNumber NOTIFY activeDestinationChanged)
    Q_PROPERTY(int requestedDestination READ requestedDestinationNumber NOTIFY requestedDestinationChanged)
    Q_PROPERTY(int appWindowId READ appWindowId NOTIFY appWindowIdChanged)
    Q_PROPERTY(bool startOnboarding READ startOnboarding WRITE setStartOnboarding NOTIFY startOnboardingChanged)

public:
    static constexpr int initialAppWindowId = -666;
    static constexpr int noMainWindowId = -2;

    // Made at start-up, after the store and the delegate.
    static MenuVisibility *shared();

    explicit MenuVisibility(QObject *parent = nullptr);

    std::optional<MenuDestination> activeDestination() const { return m_activeDestination; }
    void setActiveDestination(std::optional<MenuDestination> destination);
    std::optional<MenuDestination> requestedDestination() const { return m_requestedDestination; }
    void setRequestedDestination(std::optional<MenuDestination> destination);
    // Takes the pending request out, so that only one window acts on it.
    std::optional<MenuDestination> takeRequestedDestination();

    int appWindowId() const { return m_appWindowId; }
    // A number below 1 is replaced by the number of the application's main window, or by
    // -2 when there is none.
    void setAppWindowId(int number);
    // Tells setAppWindowId the number of the main window; installed by the desktop.
    void setMainWindowNumberProvider(std::function<std::optional<int>()> provider);

    bool startOnboarding() const { return m_startOnboarding; }
    void setStartOnboarding(bool flag);

    int activeDestinationNumber() const { return m_activeDestination ? int(*m_activeDestination) : -1; }
    int requestedDestinationNumber() const { return m_requestedDestination ? int(*m_requestedDestination) : -1; }

signals:
    void activeDestinationChanged();
    void requestedDestinationChanged();
    void appWindowIdChanged();
    void startOnboardingChanged();

private:
    std::optional<MenuDestination> m_activeDestination;
    std::optional<MenuDestination> m_requestedDestination;
    int m_appWindowId = initialAppWindowId;
    bool m_startOnboarding = false;
    std::function<std::optional<int>()> m_mainWindowNumber;
};
