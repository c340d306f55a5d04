#pragma once

#include "app/MenuDestination.h"
#include "app/UserDefaultsKeys.h"
#include "app/WindowState.h"

#include <QObject>
#include <QString>

class QSettings;

// One stored thing of the shell, bound to one key of the user defaults: a split pane's
// position, the stored destination or the main window's frame. Views and the delegate
// each hold their own instance. Main thread.
class SettingsManager : public QObject {
    Q_OBJECT
    Q_PROPERTY(double splitterPosition READ splitterPosition NOTIFY splitterPositionChanged)

public:
    static constexpr double initialSplitterPosition = 300;

    explicit SettingsManager(UserDefaultsKeys key, QObject *parent = nullptr);
    // A pane position under a key of a feature's own (e.g. "serverView.VSplitViewPos").
    SettingsManager(const QString &rawKey, double defaultPosition, QObject *parent = nullptr);

    QString settingsKey() const { return m_key; }

    // The pane position: the stored number when above 0, else the key's default.
    double splitterPosition() const { return m_splitterPosition; }
    WindowState windowState() const { return m_windowState; }

    void saveSplitter(double position);
    void saveDestination(MenuDestination destination);
    void saveWindowState(const WindowState &state);

    // The stored destination under this key: a raw text that names one, else menuAbout.
    MenuDestination storedDestination() const;

    // The frame under its seven keys. With no "windowOriginX" the defaults apply, whatever
    // the other keys hold.
    static WindowState readWindowState(QSettings &settings);
    static void writeWindowState(QSettings &settings, const WindowState &state);

signals:
    void splitterPositionChanged();
    void windowStateChanged();

private:
    void load(double defaultPosition);

    QString m_key;
    double m_splitterPosition = initialSplitterPosition;
    WindowState m_windowState;
};
