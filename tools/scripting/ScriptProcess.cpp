#include "tools/scripting/ScriptProcess.h"

#include "tools/scripting/ScriptChildProcesses.h"
#include "tools/scripting/ScriptWatchdog.h"

#include <QFile>
#include <QRegularExpression>
#include <QStringDecoder>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

QString systemDescription(int error)
{
    return QString::fromLocal8Bit(std::strerror(error));
}

void closeBoth(int pipe[2])
{
    for (int i = 0; i < 2; ++i) {
        if (pipe[i] >= 0)
            ::close(pipe[i]);
        pipe[i] = -1;
    }
}

// A descriptor that becomes readable when the child ends, or -1 where the system has none.
int openPidDescriptor(pid_t pid)
{
#ifdef SYS_pidfd_open
    return int(::syscall(SYS_pidfd_open, pid, 0));
#else
    (void)pid;
    return -1;
#endif
}

// How long one wait lasts at most: the call's limits are looked at this often, and without a
// descriptor for the child's end, so is the child.
constexpr int kLookIntervalMs = 100;
constexpr int kReapIntervalMs = 10;

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

ScriptProcess::Outcome ScriptProcess::run(const QString &executablePath, const QStringList &arguments,
                                          const QString &workingDirectory)
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
    // Only the child moves: the process's own directory is shared by every thread.
    const QByteArray directory = QFile::encodeName(workingDirectory);
    if (!directory.isEmpty())
        posix_spawn_file_actions_addchdir_np(&actions, directory.constData());

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
    posix_spawnattr_setpgroup(&attributes, 0);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);

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

    // The child leads its own group, which its background children join: the call ends
    // them all at its end, or at once when it is to stop.
    ScriptWatchdog *call = ScriptWatchdog::current();
    ScriptChildProcesses &children = ScriptChildProcesses::shared();
    children.add(pid, call);

    const int pidfd = openPidDescriptor(pid);
    int fds[2] = {outPipe[0], errPipe[0]};
    QByteArray buffers[2];
    bool reaped = false;
    bool statusKnown = false;
    bool stopped = false;
    bool groupEnded = false;
    int waitStatus = 0;
    char chunk[16384];
    // Reads both pipes to their end, whichever has data first: a chatty child never stalls on
    // a full pipe. A child's own children may still hold the pipes after it has ended.
    while (!reaped || ((fds[0] >= 0 || fds[1] >= 0) && !stopped)) {
        struct pollfd polled[3];
        nfds_t count = 0;
        for (int fd : fds)
            polled[count++] = {fd, POLLIN, 0};  // poll passes over negative descriptors
        polled[count++] = {reaped ? -1 : pidfd, POLLIN, 0};
        const int timeout = !reaped && pidfd < 0 ? kReapIntervalMs : call ? kLookIntervalMs : -1;
        if (::poll(polled, count, timeout) < 0 && errno != EINTR)
            break;
        for (int i = 0; i < 2; ++i) {
            if (fds[i] < 0 || polled[i].revents == 0)
                continue;
            const ssize_t got = ::read(fds[i], chunk, sizeof chunk);
            if (got > 0) {
                buffers[i].append(chunk, qsizetype(got));
            } else if (got == 0 || errno != EINTR) {
                ::close(fds[i]);
                fds[i] = -1;
            }
        }
        if (!reaped && (pidfd < 0 || polled[2].revents != 0)) {
            pid_t waited;
            do {
                waited = ::waitpid(pid, &waitStatus, WNOHANG);
            } while (waited < 0 && errno == EINTR);
            // Reaped by someone else (waited < 0): the status is unknown, and no success.
            reaped = waited == pid || waited < 0;
            statusKnown = waited == pid;
        }
        if (!stopped && call && call->reasonToStop()) {
            // What it has written so far is dropped: the call ends without looking at it.
            ScriptChildProcesses::endGroup(pid);
            groupEnded = stopped = true;
        }
        if (reaped && !call && !groupEnded) {
            // No call to outlive: what the child left in the background ends now, and its
            // output is read to the end.
            ScriptChildProcesses::endGroup(pid);
            groupEnded = true;
        }
    }
    if (!reaped) {
        // The wait itself failed: the child must not outlive it unreaped.
        ScriptChildProcesses::endGroup(pid);
        statusKnown = ::waitpid(pid, &waitStatus, 0) == pid;
        groupEnded = true;
    }
    for (int fd : fds) {
        if (fd >= 0)
            ::close(fd);
    }
    if (pidfd >= 0)
        ::close(pidfd);
    // A group with members left stays the call's until it ends.
    if (groupEnded || !ScriptChildProcesses::hasMembers(pid))
        children.remove(pid);

    if (!statusKnown) {
        outcome.status = -1;
    } else if (WIFEXITED(waitStatus)) {
        outcome.exitedNormally = true;
        outcome.status = WEXITSTATUS(waitStatus);
    } else if (WIFSIGNALED(waitStatus)) {
        outcome.status = WTERMSIG(waitStatus);
    }
    outcome.standardOutput = lines(buffers[0]);
    outcome.standardError = lines(buffers[1]);
    return outcome;
}
