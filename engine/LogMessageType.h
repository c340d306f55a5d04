#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace MCP {

enum class LogMessageType : int32_t { Critical = 0, Error = 1, Warning = 2, Info = 3, Debug = 4 };

// The engine's log sink: level, code (1001-1007 transport, 3001-3011 server and routes,
// 0 plain information) and text. Called on whatever thread the event happened on.
using LogCallback = std::function<void(LogMessageType type, int32_t code, const std::string &message)>;

// Runs a task on the embedding application's main queue.
using MainQueuePoster = std::function<void(std::function<void()>)>;

}  // namespace MCP
