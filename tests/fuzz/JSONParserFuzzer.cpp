// libFuzzer entry point for the engine's JSON parser and the message reader on top of it.
// Any input must be either refused or parsed; what the engine writes it must read back, and
// after one round (numbers are written with six significant digits, so the first may round)
// writing and reading again must give the same text. Nothing may crash, hang or read out of
// bounds.
#include "engine/JSONParser.h"
#include "engine/MCPMessage.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string_view text(reinterpret_cast<const char *>(data), size);
    std::string error;
    if (auto value = MCP::JSONParser::parseDocument(text, &error)) {
        auto first = MCP::JSONParser::parseDocument(value->toString(0));
        if (!first)
            std::abort();  // the engine wrote what it cannot read
        const std::string settled = first->toString(0);
        auto second = MCP::JSONParser::parseDocument(settled);
        if (!second || second->toString(0) != settled)
            std::abort();  // writing and reading do not settle
    }
    if (auto message = MCP::MCPMessage::parse(text))
        (void)message->toString();
    return 0;
}
