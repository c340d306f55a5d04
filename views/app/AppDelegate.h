#pragma once

#include "app/WindowFramePlan.h"

#include <QList>
#include <QMetaObject>
#include <QObject>
#include <QPointer>
#include <QStringList>
#include <QUrl>

class QWidget;
class SettingsManager;

// The application's delegate: it prints the launch line, restores the first window's
// stored frame and keeps storing it while the window moves and changes state, logs open
// requests, and lets go of its observers when the application ends.
class AppDelegate : public QObject {
    Q_OBJECT

public:
    explicit AppDelegate(QObject *parent = nullptr);
    ~AppDelegate() override;

    SettingsManager *settingsManager() const { return m_settingsManager; }

    // With the first window: restore its frame and follow it. Without one nothing further
    // happens.
    void didFinishLaunching(QWidget *window);
    // The plan for a window on its screen, from the stored frame.
    WindowFramePlan framePlan(QWidget *window) const;
    static void applyFramePlan(QWidget *window, const WindowFramePlan &plan);

    // Open requests: logged, nothing else happens. The file forms answer true.
    void openURLs(const QList<QUrl> &urls);
    bool openFile(const QString &path);
    bool openFileWithoutUI(const QString &path);

    // Removes every observer; called when the application is about to end.
    void applicationWillTerminate();
    int observerCount() const { return int(m_notificationObservers.size()); }

    // The text of the launch line.
    static QString launchLine();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void saveFrame();

    SettingsManager *m_settingsManager;
    QPointer<QWidget> m_window;
    QList<QMetaObject::Connection> m_notificationObservers;
};
