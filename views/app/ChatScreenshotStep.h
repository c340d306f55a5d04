#pragma once

#include "views/app/ScreenshotTour.h"

// The screenshot tour's look at the chat's rendering: a sample answer rendered as the chat
// shows it ("40-chat-answer") and the Chat Settings window ("41-chat-settings").
namespace ChatScreenshotStep {

ScreenshotTour::Step step();
// The AI Chat screen after a streamed answer of the providers' stand-in, whose address the
// environment gives in KELVARA_SCREENSHOT_CHAT_PEER ("42-chat-transcript"); nothing without it.
ScreenshotTour::Step transcriptStep();

}  // namespace ChatScreenshotStep
