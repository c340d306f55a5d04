#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

namespace EngineTest {

// A transport serving pings in a process of its own (engine_server_process, with these
// arguments); killed when this goes.
class ServerProcess {
public:
    explicit ServerProcess(const std::vector<std::string> &arguments = {});
    ~ServerProcess();
    ServerProcess(const ServerProcess &) = delete;
    ServerProcess &operator=(const ServerProcess &) = delete;

    // 0 when the process did not start or print its port.
    int port() const { return m_port; }
    // The process's peak resident memory (VmHWM) in KiB, or -1.
    long peakResidentKiB() const;

private:
    pid_t m_pid = -1;
    int m_port = 0;
};

}  // namespace EngineTest
