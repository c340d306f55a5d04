#include "ServerProcess.h"

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace EngineTest {

ServerProcess::ServerProcess(const std::vector<std::string> &arguments)
{
    int output[2];
    if (::pipe(output) != 0)
        return;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
    posix_spawn_file_actions_addclose(&actions, output[0]);
    std::vector<std::string> words{KELVARA_ENGINE_SERVER_PROCESS};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char *> argv;
    for (std::string &word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    if (::posix_spawn(&m_pid, KELVARA_ENGINE_SERVER_PROCESS, &actions, nullptr, argv.data(), environ) != 0)
        m_pid = -1;
    posix_spawn_file_actions_destroy(&actions);
    ::close(output[1]);
    char line[32] = {};
    const ssize_t got = m_pid > 0 ? ::read(output[0], line, sizeof line - 1) : 0;
    ::close(output[0]);
    m_port = got > 0 ? std::atoi(line) : 0;
}

ServerProcess::~ServerProcess()
{
    if (m_pid > 0) {
        ::kill(m_pid, SIGKILL);
        ::waitpid(m_pid, nullptr, 0);
    }
}

long ServerProcess::peakResidentKiB() const
{
    std::ifstream status("/proc/" + std::to_string(m_pid) + "/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.starts_with("VmHWM:"))
            return std::atol(line.c_str() + 6);
    }
    return -1;
}

}  // namespace EngineTest
