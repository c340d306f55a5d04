#pragma once

#include "app/StartupJob.h"

#include <QObject>
#include <QTimer>

class AppLaunchState;

// The launch job behind the splash: progress 0.1, a pause, 0.5, a pause, "Done" at 1.0, a
// short pause, then the process-wide launchFinished. The pauses are timers on the main
// thread, so the splash keeps painting. Main thread.
class AppLaunchViewModel : public QObject {
    Q_OBJECT
    Q_PROPERTY(StartupJob job READ job NOTIFY jobChanged)
    Q_PROPERTY(bool running READ isRunning NOTIFY runningChanged)

public:
    static constexpr int firstPauseMs = 350;
    static constexpr int secondPauseMs = 350;
    static constexpr int finalPauseMs = 150;

    // Over the process-wide launch state unless one is given.
    explicit AppLaunchViewModel(AppLaunchState *state = nullptr, QObject *parent = nullptr);

    StartupJob job() const { return m_job; }
    bool isRunning() const { return m_step != Step::Idle && m_step != Step::Finished; }

    // Starts the job; a second call while it runs, or after it finished, does nothing.
    void start();
    // Cuts the current pause short; the job goes on with its next step.
    void cancelPause();

    // The only ways the job changes; the progress is kept within 0 and 1.
    void setProgress(double progress);
    void setMessage(const QString &message);

signals:
    void jobChanged();
    void runningChanged();
    // The job has set launchFinished.
    void finished();

private:
    enum class Step { Idle, FirstPause, SecondPause, FinalPause, Finished };

    void advance();
    void pause(Step step, int ms);

    AppLaunchState *m_state;
    StartupJob m_job;
    Step m_step = Step::Idle;
    QTimer m_timer;
};
