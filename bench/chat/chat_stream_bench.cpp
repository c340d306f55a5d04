// Prints two figures of LM Studio's chat stream:
// 1. the parser's throughput over a 32 MB reply of message deltas, fed in 1,500-byte pieces as
//    a socket would hand them over, and fed whole;
// 2. the time from the first byte of a frame leaving a local server to its event arriving on
//    the main thread through LMSChatStream (50 streams; median, p99 and worst).
#include "chat/clients/LMSChatStream.h"
#include "chat/clients/LMSStreamParser.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QTimer>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <netinet/in.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

QByteArray deltaFrame(int i)
{
    return "data: {\"type\":\"message.delta\",\"content\":\"token " + QByteArray::number(i)
         + " with some text \\u00e9\"}\n\n";
}

void parseThroughput()
{
    QByteArray reply;
    for (int i = 0; reply.size() < (32 << 20); ++i)
        reply += deltaFrame(i);
    for (qsizetype piece : {qsizetype(1500), reply.size()}) {
        LMSStreamParser parser;
        qsizetype events = 0;
        const auto start = Clock::now();
        for (qsizetype offset = 0; offset < reply.size(); offset += piece)
            events += parser.feed(QByteArrayView(reply).sliced(offset, std::min(piece, reply.size() - offset))).size();
        parser.end();
        const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
        std::printf("  parse %s: %.1f MB/s (%lld events, %.1f MB)\n",
                    piece == reply.size() ? "in one piece       " : "in 1,500-byte pieces",
                    reply.size() / 1e6 / seconds, static_cast<long long>(events), reply.size() / 1e6);
    }
}

// One connection: reads the request, answers the head, waits until the client is surely
// waiting for the body, notes the time, then sends one delta frame and chat.end.
void serveOne(int listenFd, std::atomic<long long> &sentAtNs)
{
    const int fd = ::accept(listenFd, nullptr, nullptr);
    if (fd < 0)
        return;
    QByteArray request;
    char buffer[4096];
    while (!request.contains("\r\n\r\n") || request.size() < request.indexOf("\r\n\r\n") + 4 + 10) {
        const ssize_t n = ::recv(fd, buffer, sizeof buffer, 0);
        if (n <= 0)
            break;
        request.append(buffer, n);
        const qsizetype end = request.indexOf("\r\n\r\n");
        if (end >= 0) {
            const qsizetype at = request.toLower().indexOf("content-length:");
            const qsizetype length = at < 0 ? 0 : request.mid(at + 15, request.indexOf("\r\n", at) - at - 15).trimmed().toLongLong();
            if (request.size() >= end + 4 + length)
                break;
        }
    }
    const QByteArray head = "HTTP/1.1 200 OK\r\nContent-Type: text/event-stream\r\nConnection: close\r\n\r\n";
    ::send(fd, head.constData(), head.size(), MSG_NOSIGNAL);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    const QByteArray frame = deltaFrame(1);
    sentAtNs.store(std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now().time_since_epoch()).count());
    ::send(fd, frame.constData(), frame.size(), MSG_NOSIGNAL);
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    const QByteArray end =
        "data: {\"type\":\"chat.end\",\"result\":{\"model_instance_id\":\"m\",\"output\":[],\"stats\":{\"input_tokens\":1,"
        "\"total_output_tokens\":1,\"reasoning_output_tokens\":0,\"tokens_per_second\":1,\"time_to_first_token_seconds\":0}}}\n\n";
    ::send(fd, end.constData(), end.size(), MSG_NOSIGNAL);
    ::close(fd);
}

void firstEventLatency()
{
    const int listenFd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (::bind(listenFd, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0 || ::listen(listenFd, 8) != 0
        || ::getsockname(listenFd, reinterpret_cast<sockaddr *>(&address), &length) != 0) {
        std::printf("  could not listen on 127.0.0.1\n");
        return;
    }
    const QString base = QStringLiteral("http://127.0.0.1:%1").arg(ntohs(address.sin_port));
    std::vector<double> latencies;
    for (int run = 0; run < 50; ++run) {
        std::atomic<long long> sentAtNs{0};
        std::thread server(serveOne, listenFd, std::ref(sentAtNs));
        LMSChatStream stream(base, QString());
        QEventLoop loop;
        bool first = true;
        QObject::connect(&stream, &LMSChatStream::event, [&](const LMSStreamEvent &) {
            if (!first)
                return;
            first = false;
            const long long now = std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now().time_since_epoch()).count();
            latencies.push_back((now - sentAtNs.load()) / 1e6);
        });
        QObject::connect(&stream, &LMSChatStream::finished, &loop, &QEventLoop::quit);
        QTimer::singleShot(10000, &loop, &QEventLoop::quit);
        LMSChatRequest request;
        request.model = QStringLiteral("m");
        request.input = QStringLiteral("hi");
        stream.start(request);
        loop.exec();
        server.join();
    }
    ::close(listenFd);
    if (latencies.empty())
        return;
    std::sort(latencies.begin(), latencies.end());
    std::printf("  first byte on the socket to first event on the main thread (%zu streams): median %.3f ms, "
                "p99 %.3f ms, worst %.3f ms (goal: under 5 ms)\n",
                latencies.size(), latencies[latencies.size() / 2], latencies[latencies.size() * 99 / 100],
                latencies.back());
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    std::printf("LM Studio chat stream\n");
    parseThroughput();
    firstEventLatency();
    return 0;
}
