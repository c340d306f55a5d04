#include "tools/scripting/ScriptProcess.h"

#include <QFile>
#include <QRegularExpression>
#include <QStringDecoder>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <mutex>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

QString systemDescription(int error)
{
    return QString::fromLocal8Bit(std::strerror(error));
}

// One stream's collected bytes. The reader thread appends while the caller waits.
class GuardedBuffer {
public:
    void append(const char *data, qsizetype size)
    {
        std::lock_guard lock(m_mutex);
        m_data.append(data, size);
    }
    QByteArray take()
    {
        std::lock_guard lock(m_mutex);
        return std::exchange(m_data, QByteArray());
    }

private:
    std::mutex m_mutex;
    QByteArray m_data;
};

// Reads both pipes to their end, whichever has data first, and closes them.
void drain(int outFd, int errFd, GuardedBuffer &out, GuardedBuffer &err)
{
    struct pollfd fds[2] = {{outFd, POLLIN, 0}, {errFd, POLLIN, 0}};
    GuardedBuffer *buffers[2] = {&out, &err};
    int open = 2;
    char chunk[16384];
    while (open > 0) {
        if (::poll(fds, 2, -1) < 0) {
            if (errno == EINTR)
                continue;
            break;
        }
        for (int i = 0; i < 2; ++i) {
            if (fds[i].fd < 0 || fds[i].revents == 0)
                continue;
            const ssize_t got = ::read(fds[i].fd, chunk, sizeof chunk);
            if (got > 0) {
                buffers[i]->append(chunk, qsizetype(got));
            } else if (got == 0 || errno != EINTR) {
                ::close(fds[i].fd);
                fds[i].fd = -1;  // poll passes over negative descriptors
                --open;
            }
        }
    }
    for (const struct pollfd &fd : fds) {
        if (fd.fd >= 0)
            ::close(fd.fd);
    }
}

void closeBoth(int pipe[2])
{
    for (int i = 0; i < 2; ++i) {
        if (pipe[i] >= 0)
            ::close(pipe[i]);
        pipe[i] = -1;
    }
}

}  // namespace

QProcessEnvironment ScriptProcess::developerEnvironment(const QProcessEnvironment &base)
{
    QProcessEnvironment environment = base;
    const QString existing = base.value(QStringLiteral("PATH"));
    environment.insert(QStringLiteral("PATH"),
                       QStringLiteral("/usr/local/bin:/usr/bin:/bin:") + (existing.isEmpty() ? QStringLiteral(".") : existing));
    environment.insert(QStringLiteral("CC"), QStringLiteral("/usr/bin/cc"));
    environment.insert(QStringLiteral("CXX"), QStringLiteral("/usr/bin/c++"));
    environment.insert(QStringLiteral("CFLAGS"), QStringLiteral("--sysroot=/"));
    environment.insert(QStringLiteral("LDFLAGS"), QStringLiteral("-L/usr/lib"));
    return environment;
}

QStringList ScriptProcess::lines(const QByteArray &data)
{
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    const QString text = decoder.decode(data);
    if (decoder.hasError())
        return {};
    // Every line end a text system knows: LF, VT, FF, CR (and CR LF), NEL, LS, PS.
    static const QRegularExpression lineEnds(QStringLiteral("[\\n\\x{0B}\\x{0C}\\r\\x{85}\\x{2028}\\x{2029}]"));
    QStringList result;
    for (const QString &line : text.split(lineEnds, Qt::SkipEmptyParts)) {
        const QString trimmed = line.trimmed();
        if (!trimmed.isEmpty())
            result.append(trimmed);
    }
    return result;
}

ScriptProcess::Outcome ScriptProcess::run(const QString &executablePath, const QStringList &arguments)
{
    Outcome outcome;
    auto failLaunch = [&outcome](int error) {
        outcome.launchError = systemDescription(error);
        return outcome;
    };

    // Close-on-exec, so that children spawned meanwhile by other scripts never hold these
    // pipes open; the dup2 below gives the child its own inheritable copies.
    int outPipe[2] = {-1, -1};
    int errPipe[2] = {-1, -1};
    if (::pipe2(outPipe, O_CLOEXEC) != 0)
        return failLaunch(errno);
    if (::pipe2(errPipe, O_CLOEXEC) != 0) {
        const int error = errno;
        closeBoth(outPipe);
        return failLaunch(error);
    }

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, outPipe[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, errPipe[1], STDERR_FILENO);

    // The child starts with no blocked signals and every handler at its default, whatever
    // the calling thread has set up (the serve command blocks its stop signals).
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t noSignals;
    sigemptyset(&noSignals);
    sigset_t allSignals;
    sigfillset(&allSignals);
    posix_spawnattr_setsigmask(&attributes, &noSignals);
    posix_spawnattr_setsigdefault(&attributes, &allSignals);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);

    const QByteArray program = QFile::encodeName(executablePath);
    std::vector<QByteArray> argumentBytes;
    argumentBytes.reserve(size_t(arguments.size()) + 1);
    argumentBytes.push_back(program);
    for (const QString &argument : arguments)
        argumentBytes.push_back(argument.toLocal8Bit());
    std::vector<char *> argv;
    for (QByteArray &bytes : argumentBytes)
        argv.push_back(bytes.data());
    argv.push_back(nullptr);

    std::vector<QByteArray> environmentBytes;
    for (const QString &entry : developerEnvironment(QProcessEnvironment::systemEnvironment()).toStringList())
        environmentBytes.push_back(entry.toLocal8Bit());
    std::vector<char *> envp;
    for (QByteArray &bytes : environmentBytes)
        envp.push_back(bytes.data());
    envp.push_back(nullptr);

    pid_t pid = -1;
    // Not posix_spawnp: the path is used as it stands. glibc reports a failed exec here.
    const int spawnError = ::posix_spawn(&pid, program.constData(), &actions, &attributes, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    ::close(outPipe[1]);
    ::close(errPipe[1]);
    if (spawnError != 0) {
        ::close(outPipe[0]);
        ::close(errPipe[0]);
        return failLaunch(spawnError);
    }
    outcome.launched = true;

    GuardedBuffer out;
    GuardedBuffer err;
    std::thread reader;
    try {
        reader = std::thread(drain, outPipe[0], errPipe[0], std::ref(out), std::ref(err));
    } catch (const std::system_error &) {
        // No thread to be had: read here; the child ends once its output is taken.
        drain(outPipe[0], errPipe[0], out, err);
    }

    int waitStatus = 0;
    pid_t waited;
    do {
        waited = ::waitpid(pid, &waitStatus, 0);
    } while (waited < 0 && errno == EINTR);
    // Reading to the end: a child's own children may still hold the pipes.
    if (reader.joinable())
        reader.join();

    if (waited != pid) {
        // Someone else reaped it: the status is unknown, and no success.
        outcome.status = -1;
    } else if (WIFEXITED(waitStatus)) {
        outcome.exitedNormally = true;
        outcome.status = WEXITSTATUS(waitStatus);
    } else if (WIFSIGNALED(waitStatus)) {
        outcome.status = WTERMSIG(waitStatus);
    }
    outcome.standardOutput = lines(out.take());
    outcome.standardError = lines(err.take());
    return outcome;
}
