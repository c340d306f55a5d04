// Runs the providers' stand-in until stdin closes: prints its base URL on the first line, so a
// script can point the chat at it. A failure mode may be given as the first argument, and
// --earlier-stream after it makes the chat stream use LM Studio's earlier tool-call form.
#include "tests/chatclients/peer/ProviderPeer.h"

#include <cstdio>
#include <cstring>
#include <iostream>
#include <string>

int main(int argc, char **argv)
{
    ProviderPeer peer;
    if (argc > 1) {
        const std::string mode = argv[1];
        if (mode == "server-error") peer.setFailure(ProviderPeer::Failure::serverError);
        else if (mode == "cut-stream") peer.setFailure(ProviderPeer::Failure::cutStream);
        else if (mode == "undecodable") peer.setFailure(ProviderPeer::Failure::undecodable);
        else if (mode == "slow") peer.setFailure(ProviderPeer::Failure::slow);
        else if (mode == "stall") peer.setFailure(ProviderPeer::Failure::stall);
        else if (mode == "error-frame") peer.setFailure(ProviderPeer::Failure::errorFrame);
        else if (mode == "tool-failure") peer.setFailure(ProviderPeer::Failure::toolFailure);
        else if (mode != "none") {
            std::fprintf(stderr, "usage: provider_peer [none|server-error|cut-stream|undecodable|slow|stall|error-frame|"
                                 "tool-failure] [--earlier-stream]\n");
            return 2;
        }
    }
    if (argc > 2 && std::strcmp(argv[2], "--earlier-stream") == 0)
        peer.setStreamForm(ProviderPeer::StreamForm::earlier);
    std::printf("%s\n", peer.baseURL().toUtf8().constData());
    std::fflush(stdout);
    std::string line;
    while (std::getline(std::cin, line)) {
    }
    return 0;
}
