#include "app/WindowFramePlan.h"

#include <algorithm>
#include <cmath>

WindowFramePlan WindowFramePlan::make(const WindowState &state, const QSize &sceneSize, const QRect &availableGeometry)
{
    WindowFramePlan plan;
    plan.size = sceneSize;
    if (state.windowWidth > 100 && state.windowHeight > 100) {
        plan.size = QSize(int(std::lround(state.windowWidth)), int(std::lround(state.windowHeight)));
        plan.sizeRestored = true;
    }
    // A frame stored on a larger screen must still fit on this one.
    if (availableGeometry.isValid())
        plan.size = plan.size.boundedTo(availableGeometry.size());

    if (state.windowOriginX > 0 && state.windowOriginY > 0) {
        plan.origin = QPoint(int(std::lround(state.windowOriginX)), int(std::lround(state.windowOriginY)));
    } else {
        plan.centered = true;
        const QPoint offset((availableGeometry.width() - plan.size.width()) / 2,
                            (availableGeometry.height() - plan.size.height()) / 2);
        plan.origin = availableGeometry.topLeft() + QPoint(std::max(0, offset.x()), std::max(0, offset.y()));
    }
    plan.zoom = state.isZoomed;
    plan.minimize = state.isMiniaturized;
    plan.fullScreen = state.isFullscreen;
    return plan;
}
