#pragma once

#include "app/UserDefaultsKeys.h"

#include <QObject>

class QSplitter;
class SettingsManager;

// Keeps a two-pane splitter's divider under one pane-position key: the position (the size
// of the first pane) is put back the first time the splitter is shown with a size, and
// written each time the user moves the divider. A pane hidden at first is waited for.
class PanePosition : public QObject {
    Q_OBJECT

public:
    // Belongs to the splitter.
    static PanePosition *keep(QSplitter *splitter, UserDefaultsKeys key);

    SettingsManager *settings() const { return m_settings; }
    bool applied() const { return m_applied; }

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    PanePosition(QSplitter *splitter, UserDefaultsKeys key);
    void apply();

    QSplitter *m_splitter;
    SettingsManager *m_settings;
    bool m_applied = false;
    bool m_queued = false;
};
