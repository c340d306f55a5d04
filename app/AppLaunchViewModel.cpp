#include "app/AppLaunchViewModel.h"

#include "app/AppLaunchState.h"

#include <algorithm>

AppLaunchViewModel::AppLaunchViewModel(AppLaunchState *state, QObject *parent)
    : QObject(parent), m_state(state ? state : AppLaunchState::shared())
{
    m_timer.setSingleShot(true);
    m_timer.setTimerType(Qt::PreciseTimer);
    connect(&m_timer, &QTimer::timeout, this, &AppLaunchViewModel::advance);
}

void AppLaunchViewModel::start()
{
    if (m_step != Step::Idle)
        return;
    setProgress(0.1);
    pause(Step::FirstPause, firstPauseMs);
    emit runningChanged();
}

void AppLaunchViewModel::cancelPause()
{
    if (!m_timer.isActive())
        return;
    m_timer.stop();
    advance();
}

void AppLaunchViewModel::setProgress(double progress)
{
    progress = std::clamp(progress, 0.0, 1.0);
    if (m_job.progress == progress)
        return;
    m_job.progress = progress;
    emit jobChanged();
}

void AppLaunchViewModel::setMessage(const QString &message)
{
    if (m_job.message == message)
        return;
    m_job.message = message;
    emit jobChanged();
}

void AppLaunchViewModel::pause(Step step, int ms)
{
    m_step = step;
    m_timer.start(ms);
}

void AppLaunchViewModel::advance()
{
    switch (m_step) {
    case Step::FirstPause:
        setProgress(0.5);
        pause(Step::SecondPause, secondPauseMs);
        break;
    case Step::SecondPause:
        setMessage(QStringLiteral("Done"));
        setProgress(1.0);
        pause(Step::FinalPause, finalPauseMs);
        break;
    case Step::FinalPause:
        m_step = Step::Finished;
        m_state->markLaunchFinished();
        emit jobChanged();
        emit runningChanged();
        emit finished();
        break;
    case Step::Idle:
    case Step::Finished:
        break;
    }
}
