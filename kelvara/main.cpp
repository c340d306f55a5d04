// The `kelvara` executable: `kelvara serve ...` runs the MCP server without the window;
// anything else opens the desktop application.
#include "app/AccessCommand.h"
#include "app/ChildProcessPluginInspector.h"
#include "app/McpConfigCommand.h"
#include "app/PluginCommand.h"
#include "app/ServeCommand.h"
#include "views/app/DesktopApp.h"

#include <cstdio>
#include <cstring>
#include <malloc.h>

static const char kUsage[] =
    "Usage: kelvara [--new-window] [FILE|URL...]\n"
    "       kelvara serve [options]\n"
    "       kelvara mcp-config [--stdio | --http] [--entry] [--type TYPE] [--port N]\n"
    "       kelvara plugin add PATH [--yes] | list\n"
    "       kelvara access grant|revoke calendars|reminders|contacts... | show\n"
    "       kelvara access grant|revoke folder PATH...\n"
    "\n"
    "Without a command Kelvara opens its window (--new-window opens a further window in a\n"
    "Kelvara that already runs). \"kelvara serve\" runs the MCP server headless; see\n"
    "\"kelvara serve --help\". \"kelvara mcp-config\" prints what an MCP client is configured\n"
    "with; see \"kelvara mcp-config --help\". \"kelvara plugin\" registers native plug-ins; see\n"
    "\"kelvara plugin --help\". \"kelvara access\" lets the calendar, reminder and contact\n"
    "tools reach your data, and the file tools a folder; see \"kelvara access --help\".\n";

int main(int argc, char **argv)
{
    // Large buffers (request bodies, long log texts) are mapped on their own and handed back
    // when freed. glibc would otherwise raise this threshold after freeing the first such
    // buffer and keep the later ones in its heap: 100 requests of 5 MB left 167 MB behind.
    mallopt(M_MMAP_THRESHOLD, 1 << 20);
    if (argc > 1 && std::strcmp(argv[1], "serve") == 0)
        return ServeCommand::main(argc, argv);
    if (argc > 1 && std::strcmp(argv[1], "mcp-config") == 0)
        return McpConfigCommand::main(argc, argv);
    if (argc > 1 && std::strcmp(argv[1], "plugin") == 0)
        return PluginCommand::main(argc, argv);
    if (argc > 1 && std::strcmp(argv[1], "access") == 0)
        return AccessCommand::main(argc, argv);
    if (argc == 2 && (std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0)) {
        std::fputs(kUsage, stdout);
        return 0;
    }
    // The register dialog reads a plug-in's details in a child, as "kelvara plugin add" does.
    static ChildProcessPluginInspector inspector(QStringLiteral("/proc/self/exe"));
    PluginInspector::setShared(&inspector);
    return runDesktop(argc, argv);
}
