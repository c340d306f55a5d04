// `kelvara serve` in a process of its own, as people stop and pipe it: SIGTERM while calls are
// running, again and again, and a reader of its standard output that goes away.
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSettings>

#include <arpa/inet.h>
#include <atomic>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <spawn.h>
#include <string>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

extern char **environ;

namespace {

using Clock = std::chrono::steady_clock;

// One POST, answered or not; the status line's code, or 0 when nothing came back.
int post(int port, const std::string &body, std::string *reply = nullptr)
{
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return 0;
    timeval timeout{5, 0};
    ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
    ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(uint16_t(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    std::string answer;
    if (::connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0) {
        const std::string request = "POST /mcp HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Type: application/json\r\n"
                                    "Accept: application/json, text/event-stream\r\nConnection: close\r\nContent-Length: " +
                                    std::to_string(body.size()) + "\r\n\r\n" + body;
        if (::send(fd, request.data(), request.size(), MSG_NOSIGNAL) == ssize_t(request.size())) {
            char buffer[4096];
            for (ssize_t n; (n = ::recv(fd, buffer, sizeof buffer, 0)) > 0;)
                answer.append(buffer, size_t(n));
        }
    }
    ::close(fd);
    if (reply)
        *reply = answer;
    if (answer.compare(0, 9, "HTTP/1.1 ") != 0)
        return 0;
    return std::atoi(answer.c_str() + 9);
}

const std::string ping = R"({"jsonrpc":"2.0","id":1,"method":"ping"})";
const std::string busyCall =
    R"({"jsonrpc":"2.0","id":2,"method":"tools/call","params":{"name":"busy","arguments":{}}})";

struct Served {
    pid_t pid = -1;
    int output = -1;  // the read end of its standard output
};

// Starts `kelvara serve` with these arguments; its standard output (and standard error,
// when asked) is a pipe the test reads.
Served spawnServe(const std::vector<std::string> &arguments, bool withErrors = false)
{
    int pipeFds[2];
    if (::pipe2(pipeFds, O_CLOEXEC) != 0)
        return {};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, pipeFds[1], STDOUT_FILENO);
    if (withErrors)
        posix_spawn_file_actions_adddup2(&actions, pipeFds[1], STDERR_FILENO);
    else
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    std::vector<std::string> all{KELVARA_BINARY, "serve"};
    all.insert(all.end(), arguments.begin(), arguments.end());
    std::vector<char *> argv;
    for (std::string &argument : all)
        argv.push_back(argument.data());
    argv.push_back(nullptr);
    Served served;
    if (::posix_spawn(&served.pid, KELVARA_BINARY, &actions, nullptr, argv.data(), environ) != 0)
        served.pid = -1;
    posix_spawn_file_actions_destroy(&actions);
    ::close(pipeFds[1]);
    served.output = pipeFds[0];
    return served;
}

// Reads standard output until it holds `text`; false at its end or after the limit.
bool readUntil(int fd, std::string &seen, const std::string &text, int limitMs = 30000)
{
    const auto deadline = Clock::now() + std::chrono::milliseconds(limitMs);
    while (seen.find(text) == std::string::npos) {
        const int left = int(std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count());
        pollfd p{fd, POLLIN, 0};
        if (left <= 0 || ::poll(&p, 1, left) <= 0)
            return false;
        char buffer[4096];
        const ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n <= 0)
            return false;
        seen.append(buffer, size_t(n));
    }
    return true;
}

// Waits for the process's end (bounded); the wait status, or -1 when it did not end.
int waitFor(pid_t pid, int limitMs = 30000)
{
    const auto deadline = Clock::now() + std::chrono::milliseconds(limitMs);
    int status = 0;
    while (Clock::now() < deadline) {
        const pid_t done = ::waitpid(pid, &status, WNOHANG);
        if (done == pid)
            return status;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    ::kill(pid, SIGKILL);
    ::waitpid(pid, &status, 0);
    return -1;
}

std::string describe(int status)
{
    if (status == -1)
        return "did not end";
    if (WIFSIGNALED(status))
        return "killed by signal " + std::to_string(WTERMSIG(status));
    return "exit code " + std::to_string(WEXITSTATUS(status));
}

// A tool of a bundle whose script is `script`.
QJsonObject scriptTool(const QString &name, const QString &script)
{
    return QJsonObject{
        {"name", name}, {"description", "Keeps a worker busy"}, {"toolType", "ScriptTool"},
        {"annotations", QJsonObject{{"audience", QJsonArray{"assistant"}}, {"priority", 0.5},
                                    {"lastModified", "2026-01-01T00:00:00.000Z"}}},
        {"execHandler", name}, {"execMethod", "toolEntry"}, {"pluginName", ""},
        {"scriptName", script},
        {"inputSchema", QJsonObject{{"type", "object"}, {"properties", QJsonObject{}}}},
        {"outputSchema", QJsonObject{{"type", "object"}, {"properties", QJsonObject{}}}}};
}

// A bundle with one script tool that keeps its worker busy for a while.
QString busyBundle()
{
    const QString root = TestSupport::makeTempDir(QStringLiteral("busy-bundle"));
    QDir().mkpath(root + QStringLiteral("/Tools"));
    QDir().mkpath(root + QStringLiteral("/Scripts"));
    QFile script(root + QStringLiteral("/Scripts/busy.js"));
    script.open(QIODevice::WriteOnly);
    // JavaScript, then a child process: a stop can find the worker in either, and the
    // watchdog cannot end a host call early.
    script.write("function toolEntry() { const end = Date.now() + 10; while (Date.now() < end) {} "
                 "Kelvara.shell('sleep 0.03'); "
                 "return JSON.stringify({ text: 'done' }); }\n");
    script.close();
    QFile file(root + QStringLiteral("/Tools/busy.json"));
    file.open(QIODevice::WriteOnly);
    file.write(QJsonDocument(scriptTool(QStringLiteral("busy"), root + QStringLiteral("/Scripts/busy.js"))).toJson());
    return root;
}

// Points the data and settings folders of the processes started from now on at fresh ones,
// and back at the test's own at the end.
class FreshFolders {
public:
    FreshFolders()
        : m_data(qgetenv("XDG_DATA_HOME")), m_config(qgetenv("XDG_CONFIG_HOME")),
          m_root(TestSupport::makeTempDir(QStringLiteral("serve-fresh")))
    {
        qputenv("XDG_DATA_HOME", (m_root + QStringLiteral("/data")).toUtf8());
        qputenv("XDG_CONFIG_HOME", (m_root + QStringLiteral("/config")).toUtf8());
    }
    ~FreshFolders()
    {
        qputenv("XDG_DATA_HOME", m_data);
        qputenv("XDG_CONFIG_HOME", m_config);
    }
    // The settings file that `kelvara serve` reads.
    QString settingsFile() const { return m_root + QStringLiteral("/config/Kelvara/Kelvara.conf"); }

private:
    QByteArray m_data;
    QByteArray m_config;
    QString m_root;
};

}  // namespace

// Each round starts the server, has calls running in several workers, and stops it with
// SIGTERM in the middle of them: the process must end with 0, never with a signal.
TEST(ServeLifecycleTest, StopsUnderLoadEndCleanlyEveryTime)
{
    const int rounds = qEnvironmentVariableIsSet("KELVARA_STOP_ROUNDS") ? qEnvironmentVariableIntValue("KELVARA_STOP_ROUNDS")
                                                                        : 200;
    const std::string bundle = busyBundle().toStdString();
    int crashes = 0;
    for (int round = 0; round < rounds; ++round) {
        const int port = TestSupport::freeLowPort();
        std::vector<std::string> arguments{"--port", std::to_string(port), "--no-token", "--log-level", "info"};
        if (round == 0) {
            arguments.push_back("--import");
            arguments.push_back(bundle);
        }
        Served served = spawnServe(arguments);
        ASSERT_GT(served.pid, 0);
        std::string seen;
        ASSERT_TRUE(readUntil(served.output, seen, "MCP Server running")) << seen;

        // Standard output is read to its end, as a terminal would: a full pipe would hold the
        // server's main thread, which is not what this test is about.
        std::thread drain([fd = served.output] {
            char buffer[4096];
            while (::read(fd, buffer, sizeof buffer) > 0) {
            }
        });
        std::atomic<bool> going{true};
        std::atomic<int> answered{0};
        std::vector<std::thread> clients;
        for (int c = 0; c < 8; ++c) {
            clients.emplace_back([&] {
                while (going.load()) {
                    std::string reply;
                    // Only a call the script answered counts: the stop must find calls running.
                    if (post(port, busyCall, &reply) == 200 && reply.find("done") != std::string::npos)
                        ++answered;
                }
            });
        }
        // Stop while calls are in flight: after a few have come back, at a moment that varies.
        const auto deadline = Clock::now() + std::chrono::seconds(10);
        while (answered.load() < 2 + round % 3 && Clock::now() < deadline)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        EXPECT_GE(answered.load(), 2) << "round " << round << ": the script tool did not answer";
        std::this_thread::sleep_for(std::chrono::microseconds(500 * (round % 7)));
        ::kill(served.pid, SIGTERM);
        const int status = waitFor(served.pid);
        going = false;
        for (std::thread &client : clients)
            client.join();
        drain.join();
        ::close(served.output);
        if (!(status != -1 && WIFEXITED(status) && WEXITSTATUS(status) == 0)) {
            ++crashes;
            ADD_FAILURE() << "round " << round << ": " << describe(status);
        }
        if (crashes > 3)
            break;
    }
    EXPECT_EQ(crashes, 0);
}

// `kelvara serve | head -n 3`: once head has its lines and leaves, the server goes on serving
// and still stops cleanly.
TEST(ServeLifecycleTest, AReaderOfTheOutputThatLeavesDoesNotEndTheServer)
{
    const int port = TestSupport::freeLowPort();
    // Debug logs every request, so the server writes to the closed pipe again and again.
    Served served = spawnServe({"--port", std::to_string(port), "--no-token", "--log-level", "debug"});
    ASSERT_GT(served.pid, 0);
    std::string seen;
    ASSERT_TRUE(readUntil(served.output, seen, "MCP Server running")) << seen;
    ::close(served.output);

    std::string reply;
    for (int i = 0; i < 20; ++i)
        EXPECT_EQ(post(port, ping, &reply), 200) << reply;
    EXPECT_NE(reply.find("\"result\""), std::string::npos) << reply;
    EXPECT_EQ(::waitpid(served.pid, nullptr, WNOHANG), 0) << "the server ended";

    ::kill(served.pid, SIGTERM);
    const int status = waitFor(served.pid);
    EXPECT_TRUE(status != -1 && WIFEXITED(status) && WEXITSTATUS(status) == 0) << describe(status);
}

// The AI Chat's integration, stored by the window, limits the tools: serve says so on standard
// error and serves only the tools it switches on.
TEST(ServeLifecycleTest, AnIntegrationThatLimitsTheToolsIsToldAndApplied)
{
    FreshFolders folders;
    const QString bundle = busyBundle();
    QFile idle(bundle + QStringLiteral("/Tools/idle.json"));
    ASSERT_TRUE(idle.open(QIODevice::WriteOnly));
    idle.write(QJsonDocument(scriptTool(QStringLiteral("idle"), bundle + QStringLiteral("/Scripts/busy.js"))).toJson());
    idle.close();
    // As the window stores it: each tool's configuration and whether it is switched on.
    const QString script = bundle + QStringLiteral("/Scripts/busy.js");
    const QJsonObject integration{
        {"id", "6C1F2A8E-5B3D-4E7F-9A0B-1C2D3E4F5A6B"}, {"label", "kelvara"}, {"kind", "plugin"}, {"isEnabled", true},
        {"integratedTools", QJsonArray{QJsonObject{{"config", scriptTool(QStringLiteral("busy"), script)}, {"isEnabled", true}},
                                       QJsonObject{{"config", scriptTool(QStringLiteral("idle"), script)}, {"isEnabled", false}}}}};
    {
        QSettings settings(folders.settingsFile(), QSettings::IniFormat);
        settings.setValue(QStringLiteral("mcp.servers"), QJsonDocument(QJsonArray{integration}).toJson(QJsonDocument::Compact));
    }

    const int port = TestSupport::freeLowPort();
    Served served = spawnServe({"--port", std::to_string(port), "--no-token", "--import", bundle.toStdString()}, true);
    ASSERT_GT(served.pid, 0);
    std::string seen;
    const bool running = readUntil(served.output, seen, "MCP Server running");
    std::string listed;
    if (running)
        post(port, R"({"jsonrpc":"2.0","id":3,"method":"tools/list"})", &listed);
    ::kill(served.pid, SIGTERM);
    waitFor(served.pid);
    ::close(served.output);
    ASSERT_TRUE(running) << seen;
    EXPECT_NE(seen.find("kelvara serve: Serving 1 of 2 tools: limited by the AI Chat integration 'kelvara'\n"),
              std::string::npos)
        << seen;
    EXPECT_NE(listed.find("\"busy\""), std::string::npos) << listed;
    EXPECT_EQ(listed.find("\"idle\""), std::string::npos) << listed;
}
