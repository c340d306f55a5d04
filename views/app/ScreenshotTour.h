#pragma once

#include <QObject>
#include <QString>
#include <functional>

class AppMainWindow;
class QWidget;

// Renders a fresh start to PNG files, for looking at the window without a desktop: the
// launch sheet, each destination, the settings window and what features add (the server
// screen after a start). Then it closes the application. Started by the hidden
// "--screenshot-dir" option.
class ScreenshotTour : public QObject {
    Q_OBJECT

public:
    // A step gets the window and calls done when its picture is taken.
    using Step = std::function<void(ScreenshotTour *tour, AppMainWindow *window, std::function<void()> done)>;

    ScreenshotTour(const QString &directory, AppMainWindow *window, QObject *parent = nullptr);

    // Steps that features add after the built-in ones.
    static void addStep(Step step);

    void start();
    // Saves the widget's picture as DIR/name.png; tells whether it was written.
    bool grab(QWidget *widget, const QString &name);
    // Runs fn after ms milliseconds of the event loop.
    void after(int ms, std::function<void()> fn);

    int failures() const { return m_failures; }

private:
    void runStep(int index);

    QString m_directory;
    AppMainWindow *m_window;
    QList<Step> m_steps;
    int m_failures = 0;
};
