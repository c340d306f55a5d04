#pragma once

#include <QString>
#include <QStringList>
#include <optional>

// `kelvara mcp-config`: prints what an MCP client is configured with to use Kelvara, the
// stdio form that launches this executable or the HTTP form with the address and token,
// as the whole {"mcpServers": …} document or the bare entry.
class McpConfigCommand {
public:
    struct Options {
        bool http = false;
        bool entryOnly = false;
        QString type = QStringLiteral("http");  // the HTTP entry's "type"
        std::optional<int> port;
        bool help = false;
    };

    static inline const QString usageText = QStringLiteral(
        "Usage: kelvara mcp-config [--stdio | --http] [--entry] [--type TYPE] [--port N]\n"
        "\n"
        "Prints the JSON an MCP client (a desktop assistant, an editor, MCP Inspector) is\n"
        "configured with to use Kelvara's tools, resources and prompts:\n"
        "\n"
        "  {\"mcpServers\": {\"kelvara\": {\"command\": \"/usr/bin/kelvara\", \"args\": [\"serve\", \"--stdio\"]}}}\n"
        "\n"
        "Options:\n"
        "  --stdio           the client launches 'kelvara serve --stdio' (the default): the\n"
        "                    path of this kelvara executable, installed or built\n"
        "  --http            the client connects to the server the window or 'kelvara serve'\n"
        "                    runs: its URL (this machine's reachable address while it listens\n"
        "                    on all interfaces) and, while a token is asked for, the header\n"
        "                    with the bearer token; the Server screen's \"Copy client\n"
        "                    configuration\" gives the same\n"
        "  --entry           print the bare entry, without the mcpServers document around it\n"
        "  --type TYPE       the HTTP entry's type: http (the default) or streamable-http (for\n"
        "                    MCP Inspector)\n"
        "  --port N          the HTTP port to name, instead of the running server's or the\n"
        "                    stored one\n"
        "  -h, --help        show this help and exit\n");

    // Reads the arguments after "mcp-config". On bad usage gives nothing and sets error.
    static std::optional<Options> parse(const QStringList &arguments, QString *error);

    // Runs the whole command; argv[1] is "mcp-config".
    static int main(int argc, char **argv);
};
