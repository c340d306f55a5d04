#pragma once

#include <QMetaType>

// The stored frame of the main window: the origin and size of its frame (top-left origin,
// in desktop coordinates) and the three window states. isValid is not stored.
struct WindowState {
    static constexpr double defaultWidth = 1024;
    static constexpr double defaultHeight = 720;

    double windowOriginX = 0;
    double windowOriginY = 0;
    double windowWidth = defaultWidth;
    double windowHeight = defaultHeight;
    bool isZoomed = false;
    bool isMiniaturized = false;
    bool isFullscreen = false;
    bool isValid = true;

    bool operator==(const WindowState &) const = default;
};

Q_DECLARE_METATYPE(WindowState)
