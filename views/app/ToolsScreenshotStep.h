#pragma once

#include "views/app/ScreenshotTour.h"

// The screenshot tour's step for the Tools screen: the screen with a tool selected, and its
// input schema editor open.
namespace ToolsScreenshotStep {

ScreenshotTour::Step step();

}  // namespace ToolsScreenshotStep
