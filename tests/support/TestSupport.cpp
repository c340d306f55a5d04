#include "tests/support/TestSupport.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QRandomGenerator>
#include <QThread>
#include <QUuid>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace TestSupport {

bool waitUntil(const std::function<bool()> &pred, int timeoutMs)
{
    QDeadlineTimer deadline(timeoutMs);
    while (!pred()) {
        if (deadline.hasExpired())
            return pred();
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
        QThread::msleep(1);
    }
    return true;
}

void spin(int ms)
{
    QDeadlineTimer deadline(ms);
    while (!deadline.hasExpired()) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
        QThread::msleep(1);
    }
}

QString sandboxDir() { return qEnvironmentVariable("KELVARA_TEST_SANDBOX"); }

QString makeTempDir(const QString &prefix)
{
    const QString path = sandboxDir() + QLatin1Char('/') + prefix + QLatin1Char('-') + QUuid::createUuid().toString(QUuid::WithoutBraces);
    QDir().mkpath(path);
    return path;
}

namespace {

// A socket bound to 127.0.0.1:port (0: a port the kernel picks), or -1.
int boundSocket(int port)
{
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    addr.sin_port = htons(uint16_t(port));
    if (::bind(fd, reinterpret_cast<sockaddr *>(&addr), sizeof addr) == 0)
        return fd;
    ::close(fd);
    return -1;
}

}  // namespace

int freePort()
{
    const int fd = boundSocket(0);
    sockaddr_in addr{};
    socklen_t len = sizeof(addr);
    ::getsockname(fd, reinterpret_cast<sockaddr *>(&addr), &len);
    ::close(fd);
    return ntohs(addr.sin_port);
}

int freeLowPort()
{
    // Ephemeral ports usually start at 32768, so pick at random below that.
    for (int attempt = 0; attempt < 200; ++attempt) {
        const int port = 20000 + int(QRandomGenerator::global()->bounded(12000));
        if (const int fd = boundSocket(port); fd >= 0) {
            ::close(fd);
            return port;
        }
    }
    return 0;
}

}  // namespace TestSupport
