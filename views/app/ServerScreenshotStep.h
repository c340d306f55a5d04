#pragma once

#include "views/app/ScreenshotTour.h"

// The screenshot tour's look at a working server: it starts the server on a free port,
// sends it a few requests so that the log has lines, and takes the picture
// "30-server-running"; then stops the server again.
namespace ServerScreenshotStep {

ScreenshotTour::Step step();

}  // namespace ServerScreenshotStep
