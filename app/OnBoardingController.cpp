#include "app/OnBoardingController.h"

#include "app/OnBoardingCompletion.h"

#include <QMetaObject>
#include <algorithm>

OnBoardingController::OnBoardingController(QList<OnBoardingStep> steps, MenuDestination scope,
                                           OnBoardingCompletion *completion, QObject *parent)
    : QObject(parent), m_steps(std::move(steps)), m_scope(scope),
      m_completion(completion ? completion : OnBoardingCompletion::shared())
{
    std::stable_sort(m_steps.begin(), m_steps.end(),
                     [](const OnBoardingStep &a, const OnBoardingStep &b) { return a.index < b.index; });
    for (const OnBoardingStep &step : m_steps)
        m_itemsId += step.index;
    if (!m_isActive && !m_completion->isCompleted(m_scope))
        QMetaObject::invokeMethod(this, &OnBoardingController::start, Qt::QueuedConnection);
}

bool OnBoardingController::shows(int position) const
{
    return !m_available || m_available(m_steps.at(position).index);
}

int OnBoardingController::neighbour(int from, int step) const
{
    for (int position = from + step; position >= 0 && position < m_steps.size(); position += step) {
        if (shows(position))
            return position;
    }
    return -1;
}

void OnBoardingController::start()
{
    const int first = neighbour(-1, 1);
    if (first < 0)
        return;
    m_currentIndex = first;
    m_isActive = true;
    emit changed();
}

std::optional<OnBoardingStep> OnBoardingController::currentStep() const
{
    if (m_currentIndex < 0 || m_currentIndex >= m_steps.size())
        return std::nullopt;
    return m_steps.at(m_currentIndex);
}

void OnBoardingController::back()
{
    if (const int previous = neighbour(m_currentIndex, -1); previous >= 0) {
        m_currentIndex = previous;
        emit changed();
    }
}

void OnBoardingController::forward()
{
    if (const int next = neighbour(m_currentIndex, 1); next >= 0) {
        m_currentIndex = next;
        emit changed();
    }
}

void OnBoardingController::finish()
{
    m_isActive = false;
    m_completion->setCompleted(m_scope, true);
    m_completion->storeAll();
    emit changed();
}

void OnBoardingController::replay()
{
    if (m_isActive)
        return;
    m_completion->resetAll();
    start();
}
