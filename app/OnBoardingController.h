#pragma once

#include "app/MenuDestination.h"
#include "app/OnBoardingStep.h"

#include <QList>
#include <QObject>
#include <functional>
#include <optional>

class OnBoardingCompletion;

// The guided tour of one screen: the steps in order of their index, where the tour stands,
// and whether it is done (kept in the shared completion store). Made when its screen is made;
// a screen whose tour is not done starts it as a later step on the main thread. Main thread.
class OnBoardingController : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool isActive READ isActive NOTIFY changed)
    Q_PROPERTY(int currentIndex READ currentIndex NOTIFY changed)

public:
    OnBoardingController(QList<OnBoardingStep> steps, MenuDestination scope, OnBoardingCompletion *completion = nullptr,
                         QObject *parent = nullptr);

    bool isActive() const { return m_isActive; }
    int currentIndex() const { return m_currentIndex; }
    MenuDestination scope() const { return m_scope; }
    const QList<OnBoardingStep> &steps() const { return m_steps; }
    // The sum of the steps' indexes: tells one step list from another.
    int obItemsId() const { return m_itemsId; }

    // Whether a step's control is on the screen in front; a step whose control is not is
    // passed over. Every step is, unless told otherwise.
    using Availability = std::function<bool(int index)>;
    void setAvailability(Availability available) { m_available = std::move(available); }

    // At least one step to show: the first such step, active. None: nothing.
    void start();
    std::optional<OnBoardingStep> currentStep() const;
    // No step to show before or after the current one.
    bool isFirst() const { return neighbour(m_currentIndex, -1) < 0; }
    bool isLast() const { return neighbour(m_currentIndex, 1) < 0; }
    void back();
    void forward();
    // The tour of this screen is done: stored, and no longer active.
    void finish();
    // Help ▸ Show onboarding on this screen: every screen's tour undone, this one from its
    // first step.
    void replay();

signals:
    void changed();

private:
    bool shows(int position) const;
    // The next position from `from` in direction `step` that shows, or -1.
    int neighbour(int from, int step) const;

    QList<OnBoardingStep> m_steps;
    Availability m_available;
    MenuDestination m_scope;
    OnBoardingCompletion *m_completion;
    bool m_isActive = false;
    int m_currentIndex = 0;
    int m_itemsId = 0;
};
