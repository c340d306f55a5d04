#pragma once

#include <QWidget>

class AppLaunchViewModel;
class QLabel;
class QProgressBar;

// The launch sheet over a main window: the job's title, "Preparing startup...", the job's
// message, a progress bar and the progress as a whole percentage. It covers the window
// and follows its size; dismiss() fades it out.
class SplashScreenView : public QWidget {
    Q_OBJECT

public:
    SplashScreenView(AppLaunchViewModel *model, QWidget *parent);

    QString titleText() const;
    QString messageText() const;
    QString percentText() const;
    int progressValue() const;

    // Fades out over 0.15 seconds, then hides.
    // Fades out; dismissed() follows once it is gone (at once when it is already hidden).
    void dismiss();

signals:
    void dismissed();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;
    void paintEvent(QPaintEvent *event) override;

private:
    void refresh();

    AppLaunchViewModel *m_model;
    QWidget *m_card;
    QLabel *m_title;
    QLabel *m_preparing;
    QLabel *m_message;
    QProgressBar *m_progress;
    QLabel *m_percent;
};
