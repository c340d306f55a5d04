#pragma once

#include <cstdint>

namespace MCP {

// The JSON-RPC error codes the engine answers with. The -326xx and -327xx codes are this
// server's own, one per kind of bad tools/call, resources/read and prompts/get request.
namespace RPCCode {
constexpr int32_t ParseError = -32700;
constexpr int32_t InvalidRequest = -32600;
constexpr int32_t MiddlewareRejected = -32000;
constexpr int32_t MethodNotFound = -32601;
constexpr int32_t InvalidParams = -32602;
constexpr int32_t InternalError = -32603;
constexpr int32_t RequestCancelled = -32800;

constexpr int32_t ToolInvalidContext = -32604;
constexpr int32_t ToolMissingName = -32614;
constexpr int32_t ToolEmptyName = -32625;
constexpr int32_t ToolNotFound = -32626;
constexpr int32_t ToolMissingType = -32627;
constexpr int32_t ToolMissingHandler = -32628;
constexpr int32_t ToolMissingMethod = -32629;

constexpr int32_t ResourceInvalidParams = -32730;
constexpr int32_t ResourceMissingUri = -32731;
constexpr int32_t ResourceNotFound = -32732;
// What clients look for when a URI names nothing: the protocol's own code, the URI in `data`.
constexpr int32_t ResourceUnknown = -32002;

constexpr int32_t PromptMissingName = -32613;
constexpr int32_t PromptEmptyName = -32614;
constexpr int32_t PromptParamsNotObject = -32615;
}  // namespace RPCCode

// The codes of the engine's log lines: 0 for plain information, 1001 to 1009 from the
// transport, 3001 to 3011 from the server and its routes.
namespace LogCode {
constexpr int32_t Info = 0;
constexpr int32_t SocketCreateFailed = 1001;
constexpr int32_t SocketBindFailed = 1002;
constexpr int32_t SocketListenFailed = 1003;
constexpr int32_t AcceptFailed = 1004;
constexpr int32_t RequestReadFailed = 1005;
constexpr int32_t InvalidRequest = 1006;
constexpr int32_t NoMessageHandler = 1007;
constexpr int32_t RequestRefused = 1008;
constexpr int32_t ConnectionRefused = 1009;
constexpr int32_t ServerAlreadyRunning = 3001;
constexpr int32_t TransportStartFailed = 3002;
constexpr int32_t InvalidCancel = 3003;
constexpr int32_t ToolCallFailed = 3004;
constexpr int32_t ResourceReadFailed = 3010;
constexpr int32_t PromptGetFailed = 3011;
}  // namespace LogCode

}  // namespace MCP
