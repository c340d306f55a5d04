#include "tests/http/TestHttpServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>

namespace {

bool sendAll(int fd, const QByteArray &data)
{
    qsizetype sent = 0;
    while (sent < data.size()) {
        const ssize_t n = ::send(fd, data.constData() + sent, size_t(data.size() - sent), MSG_NOSIGNAL);
        if (n <= 0)
            return false;
        sent += n;
    }
    return true;
}

}  // namespace

QByteArray TestHttpServer::Request::header(const QByteArray &name) const
{
    for (const auto &field : headers)
        if (field.first.compare(name, Qt::CaseInsensitive) == 0)
            return field.second;
    return {};
}

int TestHttpServer::Request::headerCount(const QByteArray &name) const
{
    int count = 0;
    for (const auto &field : headers)
        count += field.first.compare(name, Qt::CaseInsensitive) == 0;
    return count;
}

TestHttpServer::TestHttpServer(Handler handler) : m_handler(std::move(handler))
{
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (::bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0 && ::listen(fd, 16) == 0
        && ::getsockname(fd, reinterpret_cast<sockaddr *>(&address), &length) == 0) {
        m_listenFd = fd;
        m_port = ntohs(address.sin_port);
        m_acceptThread = std::thread([this] { acceptLoop(); });
    } else if (fd >= 0) {
        ::close(fd);
    }
}

TestHttpServer::~TestHttpServer()
{
    stop();
}

QString TestHttpServer::url(const QString &pathAndQuery) const
{
    return QStringLiteral("http://127.0.0.1:%1%2").arg(m_port).arg(pathAndQuery);
}

QList<TestHttpServer::Request> TestHttpServer::requests() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_requests;
}

void TestHttpServer::stop()
{
    if (m_stopping.exchange(true))
        return;
    m_stopped.notify_all();
    if (m_acceptThread.joinable())
        m_acceptThread.join();
    std::vector<std::thread> connections;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        connections.swap(m_connections);
    }
    for (auto &thread : connections)
        thread.join();
    if (m_listenFd >= 0)
        ::close(m_listenFd);
    m_listenFd = -1;
}

bool TestHttpServer::waitOrStop(int ms)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_stopped.wait_for(lock, std::chrono::milliseconds(ms), [this] { return m_stopping.load(); });
}

void TestHttpServer::acceptLoop()
{
    while (!m_stopping) {
        pollfd pfd{m_listenFd, POLLIN, 0};
        if (::poll(&pfd, 1, 50) <= 0)
            continue;
        const int client = ::accept4(m_listenFd, nullptr, nullptr, SOCK_CLOEXEC);
        if (client < 0)
            continue;
        std::lock_guard<std::mutex> lock(m_mutex);
        m_connections.emplace_back([this, client] { serve(client); });
    }
}

void TestHttpServer::serve(int fd)
{
    struct Closer {
        int fd;
        ~Closer()
        {
            ::shutdown(fd, SHUT_WR);
            ::close(fd);
        }
    } closer{fd};
    QByteArray data;
    qsizetype headerEnd = -1;
    Request request;
    char buffer[4096];
    // Read the head, then as many body bytes as Content-Length says.
    while (headerEnd < 0 || data.size() < headerEnd + 4 + request.header("Content-Length").toLongLong()) {
        pollfd pfd{fd, POLLIN, 0};
        if (m_stopping)
            return;
        if (::poll(&pfd, 1, 50) <= 0)
            continue;
        const ssize_t n = ::recv(fd, buffer, sizeof buffer, 0);
        if (n <= 0)
            return;
        data.append(buffer, n);
        if (headerEnd < 0 && (headerEnd = data.indexOf("\r\n\r\n")) >= 0) {
            const QList<QByteArray> lines = data.left(headerEnd).split('\n');
            const QList<QByteArray> requestLine = lines.value(0).trimmed().split(' ');
            request.method = requestLine.value(0);
            request.target = requestLine.value(1);
            for (const QByteArray &line : lines.mid(1)) {
                if (const qsizetype colon = line.indexOf(':'); colon > 0)
                    request.headers.append({line.left(colon).trimmed(), line.mid(colon + 1).trimmed()});
            }
        }
    }
    request.body = data.mid(headerEnd + 4);
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_requests.append(request);
    }

    const Response response = m_handler(request);
    if (response.mode == Response::Mode::NeverAnswer) {
        while (!waitOrStop(1000)) {
        }
        return;
    }
    QByteArray head = "HTTP/1.1 " + QByteArray::number(response.status) + " Test\r\n";  // the phrase is not read
    for (const auto &field : response.headers)
        head += field.first + ": " + field.second + "\r\n";
    if (response.mode != Response::Mode::Endless)
        head += "Content-Length: " + QByteArray::number(response.body.size()) + "\r\n";
    head += "Connection: close\r\n\r\n";
    if (response.mode == Response::Mode::Answer) {
        if (sendAll(fd, head + response.body))
            m_bytesSent += response.body.size();
    } else if (response.mode == Response::Mode::Endless) {
        if (!sendAll(fd, head) || response.body.isEmpty())
            return;
        // Ends when the peer closes (the send fails) or the server stops.
        while (!(response.dribbleDelayMs > 0 ? waitOrStop(response.dribbleDelayMs) : m_stopping.load())
               && sendAll(fd, response.body))
            m_bytesSent += response.body.size();
    } else if (sendAll(fd, head)) {
        qsizetype sent = 0;
        for (char byte : response.body) {
            if (sent == response.stallAfter) {
                // Silent until the peer gives up (its end reads as readable) or the server stops.
                for (pollfd pfd{fd, POLLIN, 0}; !m_stopping.load() && ::poll(&pfd, 1, 50) == 0;)
                    pfd.revents = 0;
                return;
            }
            if (waitOrStop(response.dribbleDelayMs) || !sendAll(fd, QByteArray(1, byte)))
                break;
            ++m_bytesSent;
            ++sent;
        }
    }
}
