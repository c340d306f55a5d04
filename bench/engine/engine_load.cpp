// engine_load: HTTP load generator for MCP servers. N client threads each open a fresh
// TCP connection per request, POST a `tools/call` (of `echo` unless --tool says otherwise),
// and read the whole answer; an answer counts when it is a 200 that holds the expected text.
// Prints requests per second and p50/p99 latency for every target and
// client count, and the throughput ratio of the first target to each other one.
//
//   engine_load --target NAME=PORT [--target NAME=PORT ...] [--clients 1,16]
//               [--duration SECONDS] [--warmup SECONDS]
//               [--tool NAME] [--arguments JSON] [--expect TEXT]
//
// With ENGINE_LOAD_DETAIL=1 in the environment it also prints p90, p95, p99.9 and the
// maximum latency of each run to stderr.

#include <algorithm>
#include <arpa/inet.h>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

struct Target {
    std::string name;
    int port = 0;
};

struct Result {
    std::string target;
    int clients = 0;
    uint64_t requests = 0;
    uint64_t errors = 0;
    double seconds = 0;
    double p50Ms = 0;
    double p99Ms = 0;
    double rps() const { return seconds > 0 ? static_cast<double>(requests) / seconds : 0; }
};

struct Call {
    std::string tool = "echo";
    std::string arguments = R"({"text":"hello"})";
    std::string expect = "hello";
};

std::string makeRequest(const Call &call)
{
    const std::string body = R"({"jsonrpc":"2.0","id":1,"method":"tools/call","params":{"name":")" + call.tool
        + R"(","arguments":)" + call.arguments + "}}";
    return "POST /mcp HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Type: application/json\r\n"
           "Accept: application/json, text/event-stream\r\nConnection: close\r\nContent-Length: "
        + std::to_string(body.size()) + "\r\n\r\n" + body;
}

// Length of the whole reply once its head is in, from Content-Length; 0 while unknown.
size_t expectedLength(const std::string &reply)
{
    const size_t headEnd = reply.find("\r\n\r\n");
    if (headEnd == std::string::npos)
        return 0;
    for (const char *name : {"Content-Length:", "content-length:"}) {
        const size_t at = reply.find(name);
        if (at != std::string::npos && at < headEnd)
            return headEnd + 4 + static_cast<size_t>(std::strtoull(reply.c_str() + at + 15, nullptr, 10));
    }
    return 0;
}

// One request on a fresh connection; true when the answer was a 200 carrying the text.
// Reading stops once the declared body is in, so that the client does not spend a
// receive on the end of the stream.
bool oneRequest(const sockaddr_in &address, const std::string &request, const std::string &expect, std::string &reply)
{
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return false;
    bool ok = false;
    reply.clear();
    if (::connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0) {
        size_t sent = 0;
        while (sent < request.size()) {
            const ssize_t n = ::send(fd, request.data() + sent, request.size() - sent, MSG_NOSIGNAL);
            if (n <= 0)
                break;
            sent += static_cast<size_t>(n);
        }
        if (sent == request.size()) {
            char buffer[8192];
            size_t expected = 0;
            for (;;) {
                const ssize_t n = ::recv(fd, buffer, sizeof buffer, 0);
                if (n <= 0)
                    break;
                reply.append(buffer, static_cast<size_t>(n));
                if (expected == 0)
                    expected = expectedLength(reply);
                if (expected != 0 && reply.size() >= expected)
                    break;
            }
            ok = reply.starts_with("HTTP/1.1 200") && reply.find(expect) != std::string::npos;
        }
    }
    ::close(fd);
    return ok;
}

Result run(const Target &target, const Call &call, int clients, double warmupSeconds, double durationSeconds)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<uint16_t>(target.port));
    const std::string request = makeRequest(call);

    const auto start = Clock::now();
    const auto measureFrom = start + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(warmupSeconds));
    const auto end = measureFrom + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(durationSeconds));

    std::vector<std::vector<uint32_t>> latencies(static_cast<size_t>(clients));
    std::vector<uint64_t> errors(static_cast<size_t>(clients), 0);
    std::vector<std::thread> threads;
    for (int c = 0; c < clients; ++c) {
        threads.emplace_back([&, c] {
            auto &mine = latencies[static_cast<size_t>(c)];
            mine.reserve(1 << 18);
            std::string reply;
            reply.reserve(1024);
            for (;;) {
                const auto t0 = Clock::now();
                if (t0 >= end)
                    break;
                const bool ok = oneRequest(address, request, call.expect, reply);
                const auto t1 = Clock::now();
                if (t0 < measureFrom)
                    continue;
                if (!ok) {
                    ++errors[static_cast<size_t>(c)];
                    continue;
                }
                if (t1 <= end)
                    mine.push_back(static_cast<uint32_t>(std::chrono::duration_cast<std::chrono::microseconds>(t1 - t0).count()));
            }
        });
    }
    for (auto &thread : threads)
        thread.join();

    std::vector<uint32_t> all;
    for (const auto &mine : latencies)
        all.insert(all.end(), mine.begin(), mine.end());
    std::sort(all.begin(), all.end());
    Result result;
    result.target = target.name;
    result.clients = clients;
    result.requests = all.size();
    for (uint64_t e : errors)
        result.errors += e;
    result.seconds = durationSeconds;
    auto percentile = [&](double p) {
        if (all.empty())
            return 0.0;
        const size_t index = std::min(all.size() - 1, static_cast<size_t>(p * static_cast<double>(all.size())));
        return all[index] / 1000.0;
    };
    result.p50Ms = percentile(0.50);
    result.p99Ms = percentile(0.99);
    if (std::getenv("ENGINE_LOAD_DETAIL"))
        std::fprintf(stderr, "  %s p90=%.3f p95=%.3f p999=%.3f max=%.3f ms\n", target.name.c_str(), percentile(0.90),
                     percentile(0.95), percentile(0.999), all.empty() ? 0.0 : all.back() / 1000.0);
    return result;
}

[[noreturn]] void usage(const char *message)
{
    std::fprintf(stderr,
                 "engine_load: %s\nusage: engine_load --target NAME=PORT [--target NAME=PORT ...] [--clients 1,16] "
                 "[--duration SECONDS] [--warmup SECONDS] [--tool NAME] [--arguments JSON] [--expect TEXT]\n",
                 message);
    std::exit(2);
}

}  // namespace

int main(int argc, char **argv)
{
    std::vector<Target> targets;
    std::vector<int> clientCounts{1, 16};
    double duration = 5;
    double warmup = 1;
    Call call;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (i + 1 >= argc)
            usage(("missing value for " + arg).c_str());
        const std::string value = argv[++i];
        if (arg == "--target") {
            const size_t eq = value.find('=');
            if (eq == std::string::npos)
                usage("a target is NAME=PORT");
            const int port = std::atoi(value.c_str() + eq + 1);
            if (port < 1 || port > 65535)
                usage("invalid port");
            targets.push_back({value.substr(0, eq), port});
        } else if (arg == "--clients") {
            clientCounts.clear();
            size_t pos = 0;
            while (pos <= value.size()) {
                size_t comma = value.find(',', pos);
                if (comma == std::string::npos)
                    comma = value.size();
                const int n = std::atoi(value.substr(pos, comma - pos).c_str());
                if (n < 1)
                    usage("client counts are positive numbers");
                clientCounts.push_back(n);
                pos = comma + 1;
            }
        } else if (arg == "--duration") {
            duration = std::atof(value.c_str());
        } else if (arg == "--warmup") {
            warmup = std::atof(value.c_str());
        } else if (arg == "--tool") {
            call.tool = value;
        } else if (arg == "--arguments") {
            call.arguments = value;
        } else if (arg == "--expect") {
            call.expect = value;
        } else {
            usage(("unknown argument " + arg).c_str());
        }
    }
    if (targets.empty())
        usage("no target");
    if (duration <= 0 || warmup < 0)
        usage("invalid duration");

    std::printf("%-10s %8s %10s %8s %12s %10s %10s\n", "target", "clients", "requests", "errors", "req/s", "p50 ms",
                "p99 ms");
    std::vector<Result> results;
    for (int clients : clientCounts) {
        for (const Target &target : targets) {
            Result r = run(target, call, clients, warmup, duration);
            std::printf("%-10s %8d %10llu %8llu %12.0f %10.3f %10.3f\n", r.target.c_str(), r.clients,
                        static_cast<unsigned long long>(r.requests), static_cast<unsigned long long>(r.errors), r.rps(),
                        r.p50Ms, r.p99Ms);
            std::fflush(stdout);
            results.push_back(r);
        }
    }
    if (targets.size() > 1) {
        std::printf("\n");
        for (int clients : clientCounts) {
            const Result *first = nullptr;
            for (const Result &r : results)
                if (r.clients == clients && r.target == targets[0].name)
                    first = &r;
            for (const Result &r : results) {
                if (r.clients != clients || &r == first || !first)
                    continue;
                std::printf("throughput ratio %s/%s at %d clients: %.1fx\n", first->target.c_str(), r.target.c_str(),
                            clients, r.rps() > 0 ? first->rps() / r.rps() : 0.0);
            }
        }
    }
    return 0;
}
