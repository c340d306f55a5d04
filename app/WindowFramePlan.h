#pragma once

#include "app/WindowState.h"

#include <QPoint>
#include <QRect>
#include <QSize>

// What to do with a new main window to restore its stored frame, worked out without a
// window: a size above 100 by 100 replaces the scene's size, an origin with both
// coordinates above 0 is taken as it is and anything else centers the window on the
// screen, then the window is zoomed, minimized or put in full screen as stored.
struct WindowFramePlan {
    QSize size;                 // the size to give the window
    bool sizeRestored = false;  // size came from the stored frame, not from the scene
    QPoint origin;              // top-left corner of the frame
    bool centered = false;      // origin centers the window on the available geometry
    bool zoom = false;
    bool minimize = false;
    bool fullScreen = false;

    QRect geometry() const { return QRect(origin, size); }

    // sceneSize: what the window has before anything is restored (1024 by 720).
    // availableGeometry: the screen's work area the window is centered in.
    static WindowFramePlan make(const WindowState &state, const QSize &sceneSize, const QRect &availableGeometry);
};
