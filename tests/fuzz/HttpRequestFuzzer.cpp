// libFuzzer entry point for the HTTP request reader: the input is cut into pieces at the
// positions its first bytes choose, as receives would deliver it, under small bounds. The
// reader must end in one of its outcomes without crashing, and whatever it reads must fit
// the bounds it was given.
#include "engine/HttpRequest.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 2)
        return 0;
    MCP::HttpRequest request;
    request.maxHeadBytes = 4096;
    request.maxBodyBytes = 65536;
    request.exactFraming = data[0] & 1;
    const size_t step = 1 + data[1] % 64;
    data += 2;
    size -= 2;
    for (size_t at = 0; at < size; at += step) {
        const size_t piece = at + step <= size ? step : size - at;
        const MCP::HttpRequest::Progress progress = request.feed(reinterpret_cast<const char *>(data + at), piece);
        if (progress != MCP::HttpRequest::Progress::NeedMore)
            break;
    }
    if (request.body.size() > request.maxBodyBytes + 8192 + 64)
        std::abort();  // more body kept than the bound allows (plus one receive's worth)
    (void)request.takeSurplus();
    return 0;
}
