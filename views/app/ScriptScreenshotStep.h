#pragma once

#include "views/app/ScreenshotTour.h"

// The screenshot tour's step for the Script screen: an example script open from the folder
// tree with its find marks, the run dialog, and the "Editor Settings" sheet.
namespace ScriptScreenshotStep {

ScreenshotTour::Step step();

}  // namespace ScriptScreenshotStep
