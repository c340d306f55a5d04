#include "engine/PlatformLog.h"

#include <string>
#include <unistd.h>

namespace MCP {

void PlatformLog::write(std::string_view line)
{
    // One write call per line keeps lines from different threads whole.
    std::string text(line);
    text += '\n';
    size_t done = 0;
    while (done < text.size()) {
        const ssize_t n = ::write(STDERR_FILENO, text.data() + done, text.size() - done);
        if (n <= 0)
            return;
        done += static_cast<size_t>(n);
    }
}

}  // namespace MCP
