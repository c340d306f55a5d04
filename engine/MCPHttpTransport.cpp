#include "engine/MCPHttpTransport.h"

#include "engine/HttpRequest.h"
#include "engine/JSONValue.h"
#include "engine/MCPCodes.h"
#include "engine/PlatformLog.h"
#include "engine/ProtocolVersion.h"

#include <algorithm>
#include <array>
#include <arpa/inet.h>
#include <cerrno>
#include <chrono>
#include <charconv>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <fcntl.h>
#include <optional>
#include <iterator>
#include <netinet/in.h>
#include <poll.h>
#include <pthread.h>
#include <random>
#include <sys/eventfd.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>
#include <unordered_map>
#include <vector>

namespace MCP {

namespace {

struct Hooks {
    IMCPTransport::MessageHandler handler;
    LogCallback log;
    LogMessageType level = LogMessageType::Debug;
    MCPHttpPolicy policy;
    std::function<void(const std::string &)> sessionEnded;
};

// How long an acceptor waits for a connection before it ends, when another one is left
// waiting: the count of threads falls back after a burst.
constexpr auto kAcceptorIdleTime = std::chrono::seconds(2);

// Why a request or a connection was turned away. Each reason is throttled in the log on its
// own, so that a flood of one kind hides no other.
enum class Refusal {
    RepeatedHeader,
    Origin,
    Host,
    Token,
    Timeout,
    HeadTooLarge,
    BodyTooLarge,
    TooManyConnections,
    TooManyFromPeer,
    OverBudget,
    OutOfFiles,
    ProtocolVersion,
    Count
};

struct RefusalKind {
    int32_t code;
    LogMessageType level;
    const char *what;  // "Refused 12 more <what> since the last such line"
};

constexpr RefusalKind kRefusalKinds[] = {
    {LogCode::RequestRefused, LogMessageType::Warning, "requests with a repeated header"},
    {LogCode::RequestRefused, LogMessageType::Warning, "requests from origins that are not allowed"},
    {LogCode::RequestRefused, LogMessageType::Warning, "requests for hosts not served here"},
    {LogCode::RequestRefused, LogMessageType::Warning, "requests without a valid bearer token"},
    {LogCode::RequestReadFailed, LogMessageType::Warning, "connections that did not send a whole request in time"},
    {LogCode::RequestReadFailed, LogMessageType::Warning, "requests whose head is too large"},
    {LogCode::RequestReadFailed, LogMessageType::Warning, "requests whose body is too large"},
    {LogCode::ConnectionRefused, LogMessageType::Warning, "connections over the cap of open connections"},
    {LogCode::ConnectionRefused, LogMessageType::Warning, "connections over the cap of connections from one address"},
    {LogCode::ConnectionRefused, LogMessageType::Warning, "requests over the budget of buffered bytes"},
    {LogCode::AcceptFailed, LogMessageType::Critical, "connections for want of open files"},
    {LogCode::RequestRefused, LogMessageType::Warning, "requests naming a protocol version this server does not speak"},
};
static_assert(std::size(kRefusalKinds) == static_cast<size_t>(Refusal::Count));

struct RefusalLog {
    bool logged = false;
    std::chrono::steady_clock::time_point last{};
    size_t suppressed = 0;  // refused since the last line, not named yet
};

}  // namespace

// The listening socket of one start. Its workers accept on it themselves: a connection
// is served by the thread the kernel handed it to, with no hand-off and no wake-up of
// another thread. `waiting` counts the workers committed to accepting; the one that takes
// the last such place starts another before it serves, so a connection never waits for
// another one. `inAccept` counts the workers between their look at `open` and the return
// of accept: stop closes the descriptor only once it is 0, so the number cannot be reused
// under an accept.
struct MCPHttpTransport::Listener {
    explicit Listener(int socket) : fd(socket) {}
    const int fd;
    std::atomic<bool> open{true};
    std::atomic<int> waiting{0};
    std::atomic<int> inAccept{0};
};

// The events of one call's stream in a session, under its session's mutex: kept until the
// answer has been written to the client, so that a client whose stream ended (the server
// closed it, or the connection broke) resumes it with a GET and Last-Event-ID.
struct MCPHttpTransport::CallStream {
    explicit CallStream(uint64_t streamNumber) : number(streamNumber) {}
    const uint64_t number;
    std::deque<std::pair<uint64_t, std::string>> events;  // by their number in the stream
    uint64_t next = 1;         // 0 is the priming event's
    bool attached = true;      // the request's own connection still carries the stream
    bool finished = false;     // the answer (or the call's end without one) is among the events
    uint64_t generation = 0;   // counts the GETs that resumed it; an older one ends
};

// One client session: what the server remembers of it, and its stream's backlog. The
// backlog keeps the last kSessionBacklog messages for a GET stream to write or replay.
struct MCPHttpTransport::HttpSession {
    explicit HttpSession(std::string id) : info(std::make_shared<MCPSession>(std::move(id))) {}
    const std::shared_ptr<MCPSession> info;
    std::chrono::steady_clock::time_point lastUsed;  // under Shared::sessionsMutex
    std::atomic<bool> streamOpen{false};             // an open stream keeps the session alive

    std::mutex mutex;  // the members below
    std::condition_variable wake;
    std::deque<std::pair<uint64_t, std::string>> events;
    uint64_t nextEvent = 1;
    uint64_t delivered = 0;   // the last event id a stream has written
    uint64_t generation = 0;  // counts the GET streams; an older one ends when a newer opens
    bool ended = false;
    // The calls' streams not yet delivered whole, by stream number (1, 2, ...).
    std::map<uint64_t, std::shared_ptr<CallStream>> calls;
    uint64_t callStreams = 0;
};

namespace {

using HttpSession = MCPHttpTransport::HttpSession;
using CallStream = MCPHttpTransport::CallStream;

constexpr size_t kSessionBacklog = 256;
// Finished call streams nobody came back for are dropped, oldest first, beyond this many.
constexpr size_t kKeptCallStreams = 16;

}  // namespace

// What the workers share with the transport object. Workers hold it
// by shared pointer, so it outlives the transport if it must.
struct MCPHttpTransport::Shared {
    std::atomic<bool> running{false};
    std::atomic<bool> destroying{false};
    // While listening on loopback only, a request must name a loopback host.
    std::atomic<bool> loopbackOnly{true};
    // Connections accepted and not yet closed, against the policy's cap.
    std::atomic<size_t> openConnections{0};
    size_t connectionCap = 0;  // fixed at start
    // Connections open per peer address (IPv4, network order), against a cap fixed at start.
    std::mutex peersMutex;
    std::unordered_map<uint32_t, size_t> peerConnections;
    size_t peerCap = 0;
    // Bytes of requests held across all connections, against the policy's budget.
    std::atomic<size_t> bufferedBytes{0};
    // Readable once the transport is being destroyed: wakes workers waiting on idle peers.
    const int wakeFd = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);

    std::mutex hooksMutex;
    std::shared_ptr<const Hooks> hooks = std::make_shared<Hooks>();

    std::mutex connectionsMutex;
    std::map<std::string, Pending> pendingConnections;

    // Sessions by id. Lock order: connectionsMutex, then sessionsMutex, then a session's own.
    mutable std::mutex sessionsMutex;
    std::unordered_map<std::string, std::shared_ptr<HttpSession>> sessions;

    // Every worker thread, accepting or serving; the destructor waits for all to end.
    std::mutex poolMutex;
    std::condition_variable workersGone;
    int workers = 0;

    // Refusals come in floods: each reason gets one line an interval, and the next one
    // names how many there were in between.
    std::mutex refusalMutex;
    std::array<RefusalLog, static_cast<size_t>(Refusal::Count)> refusals{};
    std::atomic<bool> refusalsUncounted{false};  // some are counted and not named in a line yet

    ~Shared()
    {
        if (wakeFd >= 0)
            ::close(wakeFd);
    }

    std::shared_ptr<const Hooks> currentHooks()
    {
        std::lock_guard lock(hooksMutex);
        return hooks;
    }
};

static bool wants(const Hooks &hooks, LogMessageType type)
{
    return static_cast<int>(type) <= static_cast<int>(hooks.level);
}

static void emitLog(const Hooks &hooks, LogMessageType type, int32_t code, const std::string &text)
{
    if (!wants(hooks, type))
        return;
    if (hooks.log)
        hooks.log(type, code, text);
    else
        PlatformLog::write("[MCPTransport] " + text);
}

// Writes everything: partial sends are continued, EINTR is retried, and a peer that has
// gone away gives an error instead of SIGPIPE.
// Sends the pieces in order as one stream, in as few system calls as the socket allows.
static bool sendPieces(int fd, std::initializer_list<std::string_view> pieces)
{
    iovec vectors[8];
    size_t count = 0;
    for (std::string_view piece : pieces) {
        if (!piece.empty() && count < std::size(vectors))
            vectors[count++] = {const_cast<char *>(piece.data()), piece.size()};
    }
    iovec *next = vectors;
    while (count > 0) {
        msghdr message{};
        message.msg_iov = next;
        message.msg_iovlen = count;
        ssize_t sent = ::sendmsg(fd, &message, MSG_NOSIGNAL);
        if (sent < 0) {
            if (errno == EINTR)
                continue;
            return false;
        }
        while (count > 0 && size_t(sent) >= next->iov_len) {
            sent -= ssize_t(next->iov_len);
            ++next;
            --count;
        }
        if (count > 0) {
            next->iov_base = static_cast<char *>(next->iov_base) + sent;
            next->iov_len -= size_t(sent);
        }
    }
    return true;
}

static bool sendAll(int fd, const std::string &data)
{
    const char *p = data.data();
    size_t left = data.size();
    while (left > 0) {
        const ssize_t n = ::send(fd, p, left, MSG_NOSIGNAL);
        if (n < 0) {
            if (errno == EINTR)
                continue;
            return false;
        }
        p += n;
        left -= static_cast<size_t>(n);
    }
    return true;
}

// A random (version 4) UUID in its canonical form. Each worker thread seeds its own
// generator once from the kernel, so that a connection costs no system call for it; the
// id only keys the connection and names it in the log.
static std::string newConnectionId()
{
    thread_local std::mt19937_64 generator = [] {
        uint64_t seed[2] = {0, 0};
        if (::getrandom(seed, sizeof seed, 0) != static_cast<ssize_t>(sizeof seed)) {
            seed[0] = static_cast<uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count());
            seed[1] = std::hash<std::thread::id>{}(std::this_thread::get_id());
        }
        std::seed_seq sequence{seed[0], seed[0] >> 32, seed[1], seed[1] >> 32};
        return std::mt19937_64(sequence);
    }();
    unsigned char bytes[16];
    const uint64_t high = generator();
    const uint64_t low = generator();
    for (int i = 0; i < 8; ++i) {
        bytes[i] = static_cast<unsigned char>(high >> (8 * i));
        bytes[8 + i] = static_cast<unsigned char>(low >> (8 * i));
    }
    bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0F) | 0x40);  // version 4
    bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3F) | 0x80);  // RFC 4122 variant
    static const char hex[] = "0123456789abcdef";
    std::string id;
    id.reserve(36);
    for (int i = 0; i < 16; ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10)
            id += '-';
        id += hex[bytes[i] >> 4];
        id += hex[bytes[i] & 0xF];
    }
    return id;
}

const char *MCPHttpTransport::reasonPhrase(int status)
{
    switch (status) {
    case 202: return "Accepted";
    case 400: return "Bad Request";
    case 401: return "Unauthorized";
    case 403: return "Forbidden";
    case 404: return "Not Found";
    case 405: return "Method Not Allowed";
    case 408: return "Request Timeout";
    case 413: return "Content Too Large";
    case 431: return "Request Header Fields Too Large";
    case 500: return "Internal Server Error";
    case 503: return "Service Unavailable";
    default: return "OK";
    }
}

std::string MCPHttpTransport::buildResponse(int status, std::string_view contentType, std::string_view body)
{
    return buildResponse(status, contentType, body, {});
}

std::string MCPHttpTransport::buildResponse(int status, std::string_view contentType, std::string_view body,
                                            std::string_view extraHeaders, bool keepAlive)
{
    std::string out = buildResponseHead(status, contentType, body.size(), extraHeaders, keepAlive, body.size());
    out += body;
    return out;
}

std::string MCPHttpTransport::buildResponseHead(int status, std::string_view contentType, size_t contentLength,
                                                std::string_view extraHeaders, bool keepAlive, size_t reserveBody)
{
    std::string out;
    out.reserve(220 + extraHeaders.size() + reserveBody);
    out += "HTTP/1.1 ";
    out += std::to_string(status);
    out += ' ';
    out += reasonPhrase(status);
    out += "\r\nContent-Type: ";
    out += contentType;
    out += "\r\nContent-Length: ";
    out += std::to_string(contentLength);
    out += "\r\nAccess-Control-Allow-Origin: *"
           "\r\nAccess-Control-Allow-Methods: POST, GET, OPTIONS"
           "\r\nAccess-Control-Allow-Headers: Content-Type"
           "\r\nConnection: ";
    out += keepAlive ? "keep-alive\r\n" : "close\r\n";
    out += extraHeaders;
    out += "\r\n";
    return out;
}

std::string MCPHttpTransport::buildPreflightResponse(bool keepAlive)
{
    std::string out = "HTTP/1.1 200 OK\r\nContent-Type: text/plain\r\nContent-Length: 0"
                      "\r\nAccess-Control-Allow-Origin: *"
                      "\r\nAccess-Control-Allow-Methods: POST, GET, DELETE, OPTIONS"
                      "\r\nAccess-Control-Allow-Headers: Content-Type, Accept, Authorization, MCP-Protocol-Version, "
                      "Mcp-Session-Id, Last-Event-ID"
                      "\r\nAccess-Control-Expose-Headers: Mcp-Session-Id"
                      "\r\nAccess-Control-Max-Age: 600"
                      "\r\nConnection: ";
    out += keepAlive ? "keep-alive\r\n\r\n" : "close\r\n\r\n";
    return out;
}

std::string MCPHttpTransport::refusalBody(std::string_view message)
{
    std::string body = R"({"jsonrpc":"2.0","id":null,"error":{"code":)";
    body += std::to_string(RPCCode::MiddlewareRejected);
    body += R"(,"message":")";
    JSONValue::appendEscaped(body, message);
    body += "\"}}";
    return body;
}

namespace {

using Clock = std::chrono::steady_clock;

enum class Wait { Readable, Destroying, TimedOut };

// Waits until the socket has bytes (or news of its peer), the transport is being
// destroyed, or the deadline (none when it is max()) has passed.
Wait waitReadable(const MCPHttpTransport::Shared &shared, int fd, Clock::time_point deadline)
{
    pollfd fds[2] = {{fd, POLLIN, 0}, {shared.wakeFd, POLLIN, 0}};
    for (;;) {
        int timeout = -1;
        if (deadline != Clock::time_point::max()) {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
            if (left <= 0)
                return Wait::TimedOut;
            timeout = static_cast<int>(std::min<long long>(left, 60000));
        }
        const int n = ::poll(fds, 2, timeout);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            return Wait::Readable;  // let the receive report the failure
        if (fds[1].revents & POLLIN)
            return Wait::Destroying;
        if (n == 0)
            continue;  // the deadline is looked at again above
        return Wait::Readable;
    }
}

using Shared = MCPHttpTransport::Shared;

// Logs a refusal, or counts it when a refusal of the same reason was logged less than an
// interval ago; the count goes into that reason's next line.
void logRefusal(Shared &shared, const Hooks &hooks, Refusal reason, const std::string &text)
{
    const RefusalKind &kind = kRefusalKinds[static_cast<size_t>(reason)];
    if (!wants(hooks, kind.level))
        return;
    std::string line = text;
    {
        std::lock_guard lock(shared.refusalMutex);
        RefusalLog &log = shared.refusals[static_cast<size_t>(reason)];
        const Clock::time_point now = Clock::now();
        if (log.logged && now - log.last < hooks.policy.refusalLogInterval) {
            ++log.suppressed;
            shared.refusalsUncounted.store(true);
            return;
        }
        if (log.suppressed > 0)
            line += " (and " + std::to_string(log.suppressed) + " more like it since the last such line)";
        log = RefusalLog{true, now, 0};
    }
    emitLog(hooks, kind.level, kind.code, line);
}

// Names the refusals that were counted and not yet logged: those whose interval has
// passed, or all of them.
void flushRefusals(Shared &shared, const Hooks &hooks, bool all)
{
    std::vector<std::pair<size_t, std::string>> lines;
    {
        std::lock_guard lock(shared.refusalMutex);
        const Clock::time_point now = Clock::now();
        bool left = false;
        for (size_t i = 0; i < shared.refusals.size(); ++i) {
            RefusalLog &log = shared.refusals[i];
            if (log.suppressed == 0)
                continue;
            if (!all && now - log.last < hooks.policy.refusalLogInterval) {
                left = true;
                continue;
            }
            lines.emplace_back(i, "Refused " + std::to_string(log.suppressed) + " more " + kRefusalKinds[i].what +
                                      " since the last such line");
            log = RefusalLog{true, now, 0};
        }
        shared.refusalsUncounted.store(left);
    }
    for (const auto &[index, text] : lines)
        emitLog(hooks, kRefusalKinds[index].level, kRefusalKinds[index].code, text);
}

// Closes a connection after its answer while the peer may still be sending: a close with
// unread bytes is a reset, which can destroy the answer on its way. The write side is shut
// first, so the peer sees the end at once; what it still sends is read and dropped, for a
// short while and up to a bound, and never kept.
void lingerAndClose(int fd)
{
    ::shutdown(fd, SHUT_WR);
    const Clock::time_point until = Clock::now() + std::chrono::milliseconds(500);
    char sink[16384];
    for (size_t drained = 0; drained < (4u << 20);) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now()).count();
        pollfd pfd{fd, POLLIN, 0};
        if (left <= 0 || ::poll(&pfd, 1, static_cast<int>(left)) <= 0)
            break;
        const ssize_t n = ::recv(fd, sink, sizeof sink, MSG_DONTWAIT);
        if (n <= 0)
            break;
        drained += static_cast<size_t>(n);
    }
    ::close(fd);
}

// Closes a connection after its answer, lingering only when the peer sent bytes that were
// never read, such as a request pipelined behind the one answered.
void closeAfterAnswer(int fd)
{
    char probe;
    if (::recv(fd, &probe, 1, MSG_PEEK | MSG_DONTWAIT) > 0)
        lingerAndClose(fd);
    else
        ::close(fd);
}

// Answers a refused request with a JSON-RPC error body and closes without reading the rest.
void refuse(int fd, int status, std::string_view message, std::string_view extraHeaders = {})
{
    sendAll(fd, MCPHttpTransport::buildResponse(status, "application/json", MCPHttpTransport::refusalBody(message), extraHeaders));
    lingerAndClose(fd);
}

// Turns a connection away before anything of it was read, without waiting for anything.
void turnAway(int fd, std::string_view message)
{
    const std::string busy = MCPHttpTransport::buildResponse(503, "application/json", MCPHttpTransport::refusalBody(message),
                                                             "Retry-After: 1\r\n");
    [[maybe_unused]] const ssize_t sent = ::send(fd, busy.data(), busy.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    ::close(fd);
}

// One request's share of the bytes buffered across all connections, given back when the
// request is done.
class BufferHold {
public:
    BufferHold(std::atomic<size_t> &total, size_t budget) : m_total(total), m_budget(budget) {}
    ~BufferHold() { m_total.fetch_sub(m_held); }
    BufferHold(const BufferHold &) = delete;
    BufferHold &operator=(const BufferHold &) = delete;

    // Takes the bytes into the total; false, taking nothing, when they would pass the budget.
    bool take(size_t bytes)
    {
        size_t total = m_total.load();
        do {
            if (m_budget > 0 && (bytes > m_budget || total > m_budget - bytes))
                return false;
        } while (!m_total.compare_exchange_weak(total, total + bytes));
        m_held += bytes;
        return true;
    }
    // Whether so many more bytes would fit now.
    bool fits(uint64_t bytes) const
    {
        const size_t total = m_total.load();
        return m_budget == 0 || (total <= m_budget && bytes <= m_budget - total);
    }

private:
    std::atomic<size_t> &m_total;
    const size_t m_budget;
    size_t m_held = 0;
};

enum class ReadOutcome { Complete, Closed, TimedOut, Malformed, HeadTooLarge, BodyTooLarge, OverBudget };

// One receive that waits for bytes until the deadline. The count, or 0 with `failure` set
// when the peer closed or failed, the deadline passed, or the transport is going away.
size_t receive(const Shared &shared, int fd, char *buffer, size_t size, int flags, Clock::time_point deadline,
               ReadOutcome &failure)
{
    for (;;) {
        const ssize_t n = ::recv(fd, buffer, size, flags | MSG_DONTWAIT);
        if (n > 0)
            return static_cast<size_t>(n);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            // Mostly the bytes are there already; only an empty socket costs a poll, which
            // also watches for the transport's destruction.
            switch (waitReadable(shared, fd, deadline)) {
            case Wait::Readable: continue;
            case Wait::Destroying: failure = ReadOutcome::Closed; return 0;
            case Wait::TimedOut: failure = ReadOutcome::TimedOut; return 0;
            }
        }
        failure = ReadOutcome::Closed;
        return 0;
    }
}

// Reads the request's head and not a byte behind it, so that a request can be refused
// before its body costs anything: the bytes are looked at in place and only the head's
// share is taken. Bytes carried over from the last request on the connection come first.
// On Complete, `verdict` is what the head says of the body.
ReadOutcome readHead(const Shared &shared, int fd, HttpRequest &request, std::string &carried, BufferHold &hold,
                     Clock::time_point deadline, HttpRequest::Progress &verdict)
{
    char buffer[8192];
    while (!request.headersComplete) {
        if (!carried.empty()) {
            const size_t take = request.headBytesWanted(carried.data(), carried.size());
            if (!hold.take(take))
                return ReadOutcome::OverBudget;
            verdict = request.feed(carried.data(), take);
            carried.erase(0, take);
        } else {
            ReadOutcome failure = ReadOutcome::Closed;
            const size_t seen = receive(shared, fd, buffer, sizeof buffer, MSG_PEEK, deadline, failure);
            if (seen == 0)
                return failure;
            const size_t take = request.headBytesWanted(buffer, seen);
            if (!hold.take(take))
                return ReadOutcome::OverBudget;
            for (size_t got = 0; got < take;) {
                const ssize_t n = ::recv(fd, buffer + got, take - got, MSG_DONTWAIT);
                if (n < 0 && errno == EINTR)
                    continue;
                if (n < 1)
                    return ReadOutcome::Closed;
                got += static_cast<size_t>(n);
            }
            verdict = request.feed(buffer, take);
        }
        if (verdict == HttpRequest::Progress::HeadTooLarge)
            return ReadOutcome::HeadTooLarge;
    }
    return ReadOutcome::Complete;
}

// Reads the body of an admitted request: first what was carried over, then from the
// connection, no further than its length where it has one.
ReadOutcome readBody(const Shared &shared, int fd, HttpRequest &request, std::string &carried, BufferHold &hold,
                     Clock::time_point deadline, HttpRequest::Progress progress)
{
    if (progress == HttpRequest::Progress::NeedMore && !carried.empty()) {
        if (!hold.take(carried.size()))
            return ReadOutcome::OverBudget;
        progress = request.feed(carried.data(), carried.size());
        carried.clear();
    }
    char buffer[8192];
    for (;;) {
        switch (progress) {
        case HttpRequest::Progress::Complete: return ReadOutcome::Complete;
        case HttpRequest::Progress::Malformed: return ReadOutcome::Malformed;
        case HttpRequest::Progress::HeadTooLarge: return ReadOutcome::HeadTooLarge;
        case HttpRequest::Progress::BodyTooLarge: return ReadOutcome::BodyTooLarge;
        case HttpRequest::Progress::NeedMore: break;
        }
        size_t want = sizeof buffer;
        if (!request.chunked && request.contentLength > request.body.size())
            want = static_cast<size_t>(std::min<uint64_t>(want, request.contentLength - request.body.size()));
        ReadOutcome failure = ReadOutcome::Closed;
        const size_t n = receive(shared, fd, buffer, want, 0, deadline, failure);
        if (n == 0)
            return failure;
        if (!hold.take(n))
            return ReadOutcome::OverBudget;
        progress = request.feed(buffer, n);
    }
}

std::string headerOf(const HttpRequest &request, const char *name)
{
    auto it = request.headers.find(name);
    return it == request.headers.end() ? std::string() : it->second;
}

// Headers that say who is asking or where the body ends: with two of them, a check could
// read one and the request be served by the other.
constexpr std::pair<const char *, const char *> kSingleHeaders[] = {
    {"origin", "Origin"}, {"host", "Host"}, {"authorization", "Authorization"},
    {"content-length", "Content-Length"}, {"transfer-encoding", "Transfer-Encoding"}};

std::string supportedList()
{
    std::string list;
    for (std::string_view version : ProtocolVersion::supported) {
        if (!list.empty())
            list += ", ";
        list += version;
    }
    return list;
}

// The checks a request passes on its head alone, before a byte of its body is read: a
// repeated header that decides who asks or where the body ends, a foreign origin (a web
// page), a foreign host on a loopback listener (DNS rebinding) and a missing or wrong token
// are refused, each logged with how to allow it. True when it may go on; a refused request
// is answered and its connection closed.
bool admit(Shared &shared, const Hooks &hooks, const HttpRequest &request, int fd)
{
    const MCPHttpPolicy &policy = hooks.policy;
    for (const auto &[name, shown] : kSingleHeaders) {
        if (request.repeatedHeaders.count(name)) {
            logRefusal(shared, hooks, Refusal::RepeatedHeader,
                       std::string("Refused a request with more than one ") + shown + " header");
            refuse(fd, 400, std::string("Bad Request: more than one ") + shown + " header");
            return false;
        }
    }
    if (auto it = request.headers.find("origin"); it != request.headers.end() && !policy.originAllowed(it->second)) {
        logRefusal(shared, hooks, Refusal::Origin,
                   "Refused a request from origin " + it->second +
                       ": a web page may not call this server. To allow it, add the origin to the allowed origins "
                       "(Server screen, or kelvara serve --allow-origin " + it->second + ")");
        refuse(fd, 403, "Forbidden: origin " + it->second + " is not allowed");
        return false;
    }
    if (shared.loopbackOnly.load()) {
        if (auto it = request.headers.find("host"); it != request.headers.end() && !MCPHttpPolicy::isLoopbackHost(it->second)) {
            logRefusal(shared, hooks, Refusal::Host,
                       "Refused a request for host " + it->second +
                           ": the server listens on loopback only and answers only for localhost, 127.0.0.1 and [::1]. "
                           "To serve other hosts, listen on all interfaces");
            refuse(fd, 403, "Forbidden: host " + it->second + " is not served here");
            return false;
        }
    }
    // A browser sends its preflight without credentials; it runs nothing and says nothing.
    if (request.method != "OPTIONS" && !policy.authorizationAccepted(headerOf(request, "authorization"))) {
        logRefusal(shared, hooks, Refusal::Token,
                   "Refused a request without a valid bearer token. Give the client the token shown on the Server "
                   "screen (kelvara serve prints it on standard error) as \"Authorization: Bearer <token>\"");
        refuse(fd, 401, "Unauthorized: a valid bearer token is required", "WWW-Authenticate: Bearer realm=\"kelvara\"\r\n");
        return false;
    }
    // A client that names its protocol revision must name one this server speaks; one that
    // names none is taken at the revision it negotiated.
    if (auto it = request.headers.find("mcp-protocol-version");
        it != request.headers.end() && !ProtocolVersion::isSupported(it->second)) {
        logRefusal(shared, hooks, Refusal::ProtocolVersion,
                   "Refused a request for protocol version " + it->second + ": this server speaks " + supportedList());
        refuse(fd, 400, "Bad Request: unsupported MCP-Protocol-Version " + it->second + " (supported: " + supportedList() + ")");
        return false;
    }
    return true;
}

// Answers and, unless the connection stays open for another request, closes. False when the
// connection is closed now.
bool reply(int fd, bool keepOpen, int status, std::string_view contentType, std::string_view body)
{
    const bool sent = sendAll(fd, MCPHttpTransport::buildResponse(status, contentType, body, {}, keepOpen));
    if (keepOpen && sent)
        return true;
    closeAfterAnswer(fd);
    return false;
}

// ---- sessions and streams ----

// 128 bits from the kernel, in hex; empty when the kernel gives none.
std::string newSessionId()
{
    unsigned char bytes[16];
    size_t got = 0;
    while (got < sizeof bytes) {
        const ssize_t n = ::getrandom(bytes + got, sizeof bytes - got, 0);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        got += size_t(n);
    }
    if (got < sizeof bytes) {
        const int fd = ::open("/dev/urandom", O_RDONLY | O_CLOEXEC);
        if (fd < 0)
            return {};
        got = 0;
        while (got < sizeof bytes) {
            const ssize_t n = ::read(fd, bytes + got, sizeof bytes - got);
            if (n < 0 && errno == EINTR)
                continue;
            if (n <= 0)
                break;
            got += size_t(n);
        }
        ::close(fd);
        if (got < sizeof bytes)
            return {};
    }
    static const char hex[] = "0123456789abcdef";
    std::string id;
    id.reserve(32);
    for (unsigned char byte : bytes) {
        id += hex[byte >> 4];
        id += hex[byte & 0xF];
    }
    return id;
}

bool expired(const HttpSession &session, Clock::time_point now, std::chrono::milliseconds timeout)
{
    return timeout.count() > 0 && !session.streamOpen.load() && now - session.lastUsed > timeout;
}

void endSession(HttpSession &session, const Hooks &hooks)
{
    // A call waiting on this client's answer hears at once that none will come.
    session.info->clientRequests().close("the client's session has ended");
    {
        std::lock_guard lock(session.mutex);
        session.ended = true;
        session.wake.notify_all();
    }
    if (hooks.sessionEnded)
        hooks.sessionEnded(session.info->id());
}

// A new session, after ending those that have been idle too long; null when no id could
// be drawn.
std::shared_ptr<HttpSession> createSession(Shared &shared, const Hooks &hooks)
{
    std::string id = newSessionId();
    if (id.empty()) {
        emitLog(hooks, LogMessageType::Error, LogCode::Info,
                "Could not draw a session id from the kernel; the client is served without a session");
        return nullptr;
    }
    auto session = std::make_shared<HttpSession>(id);
    const Clock::time_point now = Clock::now();
    session->lastUsed = now;
    std::vector<std::shared_ptr<HttpSession>> ended;
    {
        std::lock_guard lock(shared.sessionsMutex);
        for (auto it = shared.sessions.begin(); it != shared.sessions.end();) {
            if (expired(*it->second, now, hooks.policy.sessionIdleTimeout)) {
                ended.push_back(std::move(it->second));
                it = shared.sessions.erase(it);
            } else {
                ++it;
            }
        }
        shared.sessions.emplace(std::move(id), session);
    }
    for (const auto &old : ended)
        endSession(*old, hooks);
    return session;
}

// The live session of that id, marked as used now; null (and ended, when it was there but
// idle too long) otherwise.
std::shared_ptr<HttpSession> findSession(Shared &shared, const Hooks &hooks, const std::string &id, bool use = true)
{
    std::shared_ptr<HttpSession> session;
    {
        std::lock_guard lock(shared.sessionsMutex);
        auto it = shared.sessions.find(id);
        if (it == shared.sessions.end())
            return nullptr;
        const Clock::time_point now = Clock::now();
        if (!expired(*it->second, now, hooks.policy.sessionIdleTimeout)) {
            if (use)
                it->second->lastUsed = now;
            return it->second;
        }
        session = std::move(it->second);
        shared.sessions.erase(it);
    }
    endSession(*session, hooks);
    return nullptr;
}

// Queues a message for the session's stream.
void postEvent(HttpSession &session, const std::string &text)
{
    std::lock_guard lock(session.mutex);
    if (session.ended)
        return;
    session.events.emplace_back(session.nextEvent++, text);
    while (session.events.size() > kSessionBacklog)
        session.events.pop_front();
    session.wake.notify_all();
}

// Wakes every stream, so that it looks at the transport's state again (stop, destruction).
void wakeStreams(Shared &shared, bool endAll)
{
    std::vector<std::shared_ptr<HttpSession>> sessions;
    {
        std::lock_guard lock(shared.sessionsMutex);
        for (auto &[id, session] : shared.sessions)
            sessions.push_back(session);
        if (endAll)
            shared.sessions.clear();
    }
    for (const auto &session : sessions) {
        if (endAll)
            session->info->clientRequests().close("the server has stopped");
        std::lock_guard lock(session->mutex);
        if (endAll)
            session->ended = true;
        session->wake.notify_all();
    }
}

std::string streamHead(std::string_view sessionId);

void appendNumber(std::string &out, uint64_t number)
{
    char digits[24];
    out.append(digits, std::to_chars(digits, digits + sizeof digits, number).ptr);
}

// The rest of an event after its id: the message as data lines (a line break of the
// message's layout starts another data line, which the client joins back with a line feed).
void appendEventData(std::string &out, std::string_view text)
{
    out += "\nevent: message\n";
    size_t start = 0;
    for (;;) {
        const size_t end = text.find('\n', start);
        out += "data: ";
        out += text.substr(start, end == std::string_view::npos ? std::string_view::npos : end - start);
        out += '\n';
        if (end == std::string_view::npos)
            break;
        start = end + 1;
    }
    out += '\n';
}

// One server-sent event: its id, and the message.
void appendEvent(std::string &out, uint64_t id, std::string_view text)
{
    out += "id: ";
    appendNumber(out, id);
    appendEventData(out, text);
}

// An event of a call's stream: "<stream>-<n>" names the stream a resuming GET continues.
void appendCallEvent(std::string &out, uint64_t stream, uint64_t n, std::string_view text)
{
    out += "id: ";
    appendNumber(out, stream);
    out += '-';
    appendNumber(out, n);
    appendEventData(out, text);
}

// Whether the session's client knows priming events and streams the server ends early.
bool resumable(const HttpSession &session)
{
    return session.info->protocolVersion() >= "2025-11-25";
}

// A new stream for a call in the session. Finished streams beyond the kept number go.
std::shared_ptr<CallStream> openCallStream(HttpSession &session)
{
    std::lock_guard lock(session.mutex);
    auto call = std::make_shared<CallStream>(++session.callStreams);
    size_t finished = 0;
    for (const auto &[number, kept] : session.calls)
        finished += kept->finished ? 1 : 0;
    for (auto it = session.calls.begin(); finished > kKeptCallStreams && it != session.calls.end();) {
        if (it->second->finished) {
            it = session.calls.erase(it);
            --finished;
        } else {
            ++it;
        }
    }
    session.calls.emplace(call->number, call);
    return call;
}

// The first bytes of a call's stream: the head, and for a client that resumes, the priming
// event (the stream's id before any message, empty data).
std::string callStreamStart(const HttpSession &session, const CallStream &call, std::string_view issuedId)
{
    std::string out = streamHead(issuedId);
    if (resumable(session)) {
        out += "id: ";
        appendNumber(out, call.number);
        out += "-0\ndata: \n\n";
    }
    return out;
}

// Puts one message on a call's stream: kept in the session, and written after `out` (the
// stream's start, or nothing) to the request's own connection while that still carries the
// stream. Once the answer has been written the session lets the stream go.
void sendOnCall(HttpSession &session, CallStream &call, int fd, std::string out, std::string_view text, bool answer)
{
    uint64_t n = 0;
    bool attached = false;
    {
        std::lock_guard lock(session.mutex);
        n = call.next++;
        call.events.emplace_back(n, std::string(text));
        while (call.events.size() > kSessionBacklog)
            call.events.pop_front();
        call.finished = call.finished || answer;
        attached = call.attached;
        session.wake.notify_all();
    }
    if (!attached)
        return;
    appendCallEvent(out, call.number, n, text);
    const bool sent = sendAll(fd, out);
    std::lock_guard lock(session.mutex);
    if (!sent)
        call.attached = false;  // the client may come back for the rest
    else if (answer)
        session.calls.erase(call.number);
}

// The head of an event stream: no length, the stream ends when the connection closes.
std::string streamHead(std::string_view sessionId)
{
    std::string out = "HTTP/1.1 200 OK\r\nContent-Type: text/event-stream\r\nCache-Control: no-cache"
                      "\r\nAccess-Control-Allow-Origin: *"
                      "\r\nAccess-Control-Allow-Methods: POST, GET, OPTIONS"
                      "\r\nAccess-Control-Allow-Headers: Content-Type"
                      "\r\nConnection: close\r\n";
    if (!sessionId.empty()) {
        out += "Mcp-Session-Id: ";
        out += sessionId;
        out += "\r\n";
    }
    out += "\r\n";
    return out;
}

bool acceptsEventStream(const HttpRequest &request)
{
    auto it = request.headers.find("accept");
    return it != request.headers.end() && it->second.find("text/event-stream") != std::string::npos;
}

// Serves a session's GET stream until it is replaced, the session ends, the peer goes
// away or the transport stops; then closes the connection.
void serveStream(Shared &shared, const std::shared_ptr<HttpSession> &session, int fd, std::optional<uint64_t> lastEventId)
{
    constexpr auto kPingInterval = std::chrono::seconds(15);
    uint64_t generation = 0;
    uint64_t from = 0;
    {
        std::lock_guard lock(session->mutex);
        generation = ++session->generation;
        from = lastEventId ? *lastEventId : session->delivered;
        session->wake.notify_all();  // the stream this one replaces ends
    }
    session->streamOpen.store(true);
    bool open = sendAll(fd, streamHead(session->info->id()));
    Clock::time_point lastWrite = Clock::now();
    while (open) {
        std::vector<std::pair<uint64_t, std::string>> batch;
        {
            std::unique_lock lock(session->mutex);
            auto over = [&] {
                return generation != session->generation || session->ended || !shared.running.load() ||
                       shared.destroying.load();
            };
            session->wake.wait_for(lock, std::chrono::seconds(1),
                                   [&] { return over() || (!session->events.empty() && session->events.back().first > from); });
            if (over())
                break;
            for (const auto &event : session->events) {
                if (event.first > from)
                    batch.push_back(event);
            }
        }
        // A peer that closed its end is done with the stream; what it did not get stays
        // for the next one.
        char probe;
        if (::recv(fd, &probe, 1, MSG_PEEK | MSG_DONTWAIT) == 0)
            break;
        const Clock::time_point now = Clock::now();
        if (!batch.empty()) {
            std::string out;
            for (const auto &[id, text] : batch)
                appendEvent(out, id, text);
            uint64_t before = 0;
            {
                // Counted as delivered before it is written: a client that reads it and opens
                // its next stream at once must not find it there again.
                std::lock_guard lock(session->mutex);
                before = session->delivered;
                session->delivered = std::max(session->delivered, batch.back().first);
            }
            open = sendAll(fd, out);
            from = batch.back().first;
            lastWrite = now;
            if (!open) {
                // It did not go out whole: unless a newer stream has begun, the next one starts with it.
                std::lock_guard lock(session->mutex);
                if (generation == session->generation && session->delivered == from)
                    session->delivered = before;
            }
        } else if (now - lastWrite >= kPingInterval) {
            open = sendAll(fd, ": ping\n\n");
            lastWrite = now;
        }
    }
    {
        std::lock_guard lock(session->mutex);
        if (generation == session->generation)
            session->streamOpen.store(false);
    }
    {
        std::lock_guard lock(shared.sessionsMutex);
        session->lastUsed = Clock::now();
    }
    ::close(fd);
}

// Serves a call's stream from after its event `from` to its end, on a GET that resumes it:
// what is kept, then what comes, up to the answer; then closes. The request's own connection
// no longer carries the stream, nor does an earlier GET for it. False when the session holds
// no stream of that number.
bool serveCallStream(Shared &shared, const std::shared_ptr<HttpSession> &session, int fd, uint64_t number, uint64_t from)
{
    constexpr auto kPingInterval = std::chrono::seconds(15);
    std::shared_ptr<CallStream> call;
    uint64_t generation = 0;
    {
        std::lock_guard lock(session->mutex);
        if (auto it = session->calls.find(number); it != session->calls.end())
            call = it->second;
        if (!call)
            return false;
        generation = ++call->generation;
        call->attached = false;
        session->wake.notify_all();  // a GET this one replaces ends
    }
    bool open = sendAll(fd, streamHead(session->info->id()));
    Clock::time_point lastWrite = Clock::now();
    while (open) {
        std::string out;
        uint64_t last = from;
        bool done = false;
        {
            std::unique_lock lock(session->mutex);
            auto over = [&] {
                return generation != call->generation || session->ended || !shared.running.load() || shared.destroying.load();
            };
            auto more = [&] { return !call->events.empty() && call->events.back().first > from; };
            session->wake.wait_for(lock, std::chrono::seconds(1), [&] { return over() || more() || call->finished; });
            if (over())
                break;
            for (const auto &[n, text] : call->events) {
                if (n > from) {
                    appendCallEvent(out, call->number, n, text);
                    last = n;
                }
            }
            done = call->finished;
        }
        char probe;
        if (::recv(fd, &probe, 1, MSG_PEEK | MSG_DONTWAIT) == 0)
            break;
        const Clock::time_point now = Clock::now();
        if (!out.empty()) {
            open = sendAll(fd, out);
            from = last;
            lastWrite = now;
        } else if (now - lastWrite >= kPingInterval) {
            open = sendAll(fd, ": ping\n\n");
            lastWrite = now;
        }
        if (open && done) {
            // Delivered whole: the session lets it go.
            std::lock_guard lock(session->mutex);
            if (generation == call->generation)
                session->calls.erase(call->number);
            break;
        }
    }
    {
        std::lock_guard lock(shared.sessionsMutex);
        session->lastUsed = Clock::now();
    }
    closeAfterAnswer(fd);
    return true;
}

// Last-Event-ID of a call's stream, "<stream>-<n>": the two numbers; nothing for a header
// that is absent or of another form.
std::optional<std::pair<uint64_t, uint64_t>> callEventIdOf(const HttpRequest &request)
{
    auto it = request.headers.find("last-event-id");
    if (it == request.headers.end())
        return std::nullopt;
    const std::string &text = it->second;
    const size_t dash = text.find('-');
    if (dash == std::string::npos)
        return std::nullopt;
    uint64_t stream = 0;
    uint64_t n = 0;
    const char *middle = text.data() + dash;
    const char *end = text.data() + text.size();
    const auto first = std::from_chars(text.data(), middle, stream);
    const auto second = std::from_chars(middle + 1, end, n);
    if (first.ec != std::errc() || first.ptr != middle || second.ec != std::errc() || second.ptr != end)
        return std::nullopt;
    return std::make_pair(stream, n);
}

std::optional<uint64_t> lastEventIdOf(const HttpRequest &request)
{
    auto it = request.headers.find("last-event-id");
    if (it == request.headers.end())
        return std::nullopt;
    uint64_t id = 0;
    const std::string &text = it->second;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), id);
    if (error != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return id;
}

// Serves one admitted request that was read whole. True when the connection stays open for
// the next.
bool serveRequest(Shared &shared, const Hooks &hooks, int fd, HttpRequest &request, bool keepOpen)
{
    const std::string connectionId = newConnectionId();

    if (request.method == "OPTIONS") {
        // A browser's preflight (its origin was admitted above): the headers MCP clients send.
        const bool sent = sendAll(fd, MCPHttpTransport::buildPreflightResponse(keepOpen));
        if (keepOpen && sent)
            return true;
        closeAfterAnswer(fd);
        return false;
    }
    const auto sessionHeader = request.headers.find("mcp-session-id");
    const bool inSession = sessionHeader != request.headers.end();
    auto noSession = [&] {
        return reply(fd, keepOpen, 404, "application/json",
                     MCPHttpTransport::refusalBody("Not Found: no session " + sessionHeader->second +
                                                   " (it has ended or never was); initialize again"));
    };
    if (request.method == "DELETE") {
        if (!inSession)
            return reply(fd, keepOpen, 400, "application/json",
                         MCPHttpTransport::refusalBody("Bad Request: DELETE names the session to end in Mcp-Session-Id"));
        std::shared_ptr<HttpSession> session;
        {
            std::lock_guard lock(shared.sessionsMutex);
            if (auto it = shared.sessions.find(sessionHeader->second); it != shared.sessions.end()) {
                session = std::move(it->second);
                shared.sessions.erase(it);
            }
        }
        if (!session)
            return noSession();
        endSession(*session, hooks);
        return reply(fd, keepOpen, 200, "application/json", "");
    }
    if (request.method == "GET" && inSession && acceptsEventStream(request)) {
        auto session = findSession(shared, hooks, sessionHeader->second);
        if (!session)
            return noSession();
        if (const auto resume = callEventIdOf(request)) {
            if (!serveCallStream(shared, session, fd, resume->first, resume->second)) {
                return reply(fd, keepOpen, 400, "application/json",
                             MCPHttpTransport::refusalBody("Bad Request: stream " + std::to_string(resume->first) +
                                                           " of this session has ended or never was; nothing to resume"));
            }
            return false;
        }
        serveStream(shared, session, fd, lastEventIdOf(request));
        return false;
    }
    if (request.method != "POST" || request.body.empty())
        return reply(fd, keepOpen, 405, "application/json", R"({"error":"Method not allowed"})");

    const std::string_view text(request.body.data(), request.body.size());
    if (wants(hooks, LogMessageType::Debug))
        emitLog(hooks, LogMessageType::Debug, LogCode::Info, "Received request body (" + std::to_string(text.size()) + " bytes)");
    auto message = MCPMessage::parse(text);
    if (!message) {
        emitLog(hooks, LogMessageType::Critical, LogCode::InvalidRequest, "Invalid JSON-RPC request. BODY:\n" + std::string(text));
        return reply(fd, keepOpen, 400, "application/json", R"({"error":"Invalid JSON-RPC request"})");
    }
    if (!hooks.handler) {
        emitLog(hooks, LogMessageType::Critical, LogCode::NoMessageHandler, "No message handler available");
        return reply(fd, keepOpen, 500, "application/json", R"({"error":"No message handler available."})");
    }
    MCPHttpTransport::Pending pending;
    pending.fd = fd;
    pending.keepOpen = keepOpen;
    pending.acceptsStream = acceptsEventStream(request);
    if (inSession) {
        pending.session = findSession(shared, hooks, sessionHeader->second);
        if (!pending.session)
            return noSession();
        pending.sessionId = sessionHeader->second;
    } else if (message->method == "initialize" && message->type == MCPMessage::MessageType::Request) {
        if (auto session = createSession(shared, hooks)) {
            pending.sessionId = session->info->id();
            pending.issued = true;
            pending.session = std::move(session);
        }
    }
    message->inSession = !pending.sessionId.empty();
    message->clientListens = pending.acceptsStream || message->inSession;
    {
        std::lock_guard lock(shared.connectionsMutex);
        if (!shared.running.load()) {
            // Stopped while this request was being read: nobody will answer it.
            ::close(fd);
            return false;
        }
        shared.pendingConnections.emplace(connectionId, std::move(pending));
    }
    bool handled = true;
    try {
        hooks.handler(connectionId, std::move(message));
    } catch (...) {
        // The server answers standard errors itself; anything else that escapes must
        // not take the process down with this worker.
        handled = false;
    }

    // The handler answers through sendResponse before it returns. A request that gets
    // no response at all (a cancel notification) is acknowledged with 202 and an empty
    // body, so that its socket does not stay open until stop. A connection that stays
    // open comes back here once answered; one that does not was closed by the answer or
    // by stop.
    {
        std::lock_guard lock(shared.connectionsMutex);
        auto it = shared.pendingConnections.find(connectionId);
        if (it == shared.pendingConnections.end())
            return false;
        pending = std::move(it->second);
        shared.pendingConnections.erase(it);
    }
    if (pending.stopped) {
        ::close(fd);
        return false;
    }
    if (pending.answered) {
        if (shared.running.load())
            return true;
        ::close(fd);
        return false;
    }
    if (pending.streaming) {
        // A stream begun for a request that then got no answer ends here, and so does a
        // GET waiting to resume it.
        if (pending.call) {
            std::lock_guard lock(pending.session->mutex);
            pending.call->finished = true;
            if (pending.call->attached)
                pending.session->calls.erase(pending.call->number);
            pending.session->wake.notify_all();
        }
        closeAfterAnswer(fd);
        return false;
    }
    if (handled)
        return reply(fd, keepOpen, 202, "application/json", "");
    return reply(fd, keepOpen, 500, "application/json", R"({"error":"Internal error"})");
}

// Reads and serves requests until the connection is closed: one request unless the policy
// keeps connections open, then as many as the peer sends in turn, up to the policy's number,
// while each follows the last within the idle time.
void serveConnection(Shared &shared, const Hooks &hooks, int fd)
{
    const MCPHttpPolicy &policy = hooks.policy;
    std::string carried;
    for (size_t served = 0;; ++served) {
        if (served > 0 && carried.empty()) {
            // Between requests: the idle time, checked against stop a few times a second.
            const Clock::time_point idleEnd = Clock::now() + policy.idleTimeout;
            Wait waited = Wait::TimedOut;
            while (shared.running.load() && Clock::now() < idleEnd) {
                waited = waitReadable(shared, fd, std::min(idleEnd, Clock::now() + std::chrono::milliseconds(250)));
                if (waited != Wait::TimedOut)
                    break;
            }
            if (waited != Wait::Readable || !shared.running.load()) {
                ::close(fd);
                return;
            }
            char probe;
            const ssize_t n = ::recv(fd, &probe, 1, MSG_PEEK | MSG_DONTWAIT);
            if (n <= 0 && !(n < 0 && (errno == EAGAIN || errno == EINTR))) {
                ::close(fd);  // the peer is done with the connection
                return;
            }
        }
        HttpRequest request;
        request.exactFraming = policy.keepAlive;
        request.maxHeadBytes = policy.maxHeadBytes;
        request.maxBodyBytes = policy.maxBodyBytes;
        // The request's bytes count against the budget until it has been answered.
        BufferHold hold(shared.bufferedBytes, policy.maxBufferedBytes);
        const Clock::time_point deadline =
            policy.receiveTimeout.count() > 0 ? Clock::now() + policy.receiveTimeout : Clock::time_point::max();
        HttpRequest::Progress verdict = HttpRequest::Progress::NeedMore;
        ReadOutcome outcome = readHead(shared, fd, request, carried, hold, deadline, verdict);
        if (outcome == ReadOutcome::Complete) {
            if (!admit(shared, hooks, request, fd))
                return;
            const bool sized = verdict == HttpRequest::Progress::NeedMore && !request.chunked;
            if (sized && !hold.fits(request.contentLength)) {
                outcome = ReadOutcome::OverBudget;  // it could not be held whole now
            } else {
                // Room for the declared body at once: growing to it would hold it twice on the way.
                if (sized)
                    request.body.reserve(static_cast<size_t>(std::min<uint64_t>(request.contentLength, 64u << 20)));
                outcome = readBody(shared, fd, request, carried, hold, deadline, verdict);
            }
        }
        switch (outcome) {
        case ReadOutcome::Complete:
            break;
        case ReadOutcome::TimedOut:
            logRefusal(shared, hooks, Refusal::Timeout,
                       "Closed a connection that did not send a whole request within " +
                           std::to_string(policy.receiveTimeout.count() / 1000.0).substr(0, 4) + " s");
            refuse(fd, 408, "Request Timeout: the request did not arrive in time");
            return;
        case ReadOutcome::HeadTooLarge:
            logRefusal(shared, hooks, Refusal::HeadTooLarge,
                       "Refused a request whose head is larger than " + std::to_string(policy.maxHeadBytes) + " bytes");
            refuse(fd, 431, "Request Header Fields Too Large");
            return;
        case ReadOutcome::BodyTooLarge:
            logRefusal(shared, hooks, Refusal::BodyTooLarge,
                       "Refused a request whose body is larger than " + std::to_string(policy.maxBodyBytes) + " bytes");
            refuse(fd, 413, "Content Too Large: the body may have at most " + std::to_string(policy.maxBodyBytes) + " bytes");
            return;
        case ReadOutcome::OverBudget:
            logRefusal(shared, hooks, Refusal::OverBudget,
                       "Refused a request: the requests in progress hold " + std::to_string(shared.bufferedBytes.load()) +
                           " bytes, and all of them together may hold " + std::to_string(policy.maxBufferedBytes));
            refuse(fd, 503, "Service Unavailable: the server holds too much request data now", "Retry-After: 1\r\n");
            return;
        case ReadOutcome::Closed:
        case ReadOutcome::Malformed:
            if (!shared.destroying.load())
                emitLog(hooks, LogMessageType::Critical, LogCode::RequestReadFailed, "Failed to read complete HTTP request");
            ::close(fd);
            return;
        }
        // Bytes of the next request: left over from the head when this one had no body, or
        // read along with a chunked body.
        if (carried.empty())
            carried = request.takeSurplus();
        // HTTP/1.1 keeps a connection unless either side says "close"; HTTP/1.0 does not.
        const auto connection = request.headers.find("connection");
        const bool peerCloses = request.version != "HTTP/1.1" ||
                                (connection != request.headers.end() && connection->second.find("close") != std::string::npos);
        const bool keepOpen = policy.keepAlive && !peerCloses && served + 1 < policy.maxRequestsPerConnection;
        if (!serveRequest(shared, hooks, fd, request, keepOpen))
            return;
    }
}

}  // namespace

namespace {

void workerLoop(std::shared_ptr<MCPHttpTransport::Shared> shared, std::shared_ptr<MCPHttpTransport::Listener> listener);

// Counts a connection from the address; false when it has as many as the cap already.
bool takePeerSlot(Shared &shared, uint32_t address)
{
    std::lock_guard lock(shared.peersMutex);
    auto [it, added] = shared.peerConnections.try_emplace(address, 0);
    if (it->second >= shared.peerCap) {
        if (added)
            shared.peerConnections.erase(it);
        return false;
    }
    ++it->second;
    return true;
}

void releasePeerSlot(Shared &shared, uint32_t address)
{
    std::lock_guard lock(shared.peersMutex);
    auto it = shared.peerConnections.find(address);
    if (it != shared.peerConnections.end() && --it->second == 0)
        shared.peerConnections.erase(it);
}

// Starts one more worker, counted as accepting. False when no thread could be made.
bool startAcceptor(const std::shared_ptr<MCPHttpTransport::Shared> &shared,
                   const std::shared_ptr<MCPHttpTransport::Listener> &listener)
{
    {
        std::lock_guard lock(shared->poolMutex);
        ++shared->workers;
    }
    listener->waiting.fetch_add(1);
    try {
        std::thread(workerLoop, shared, listener).detach();
        return true;
    } catch (const std::system_error &) {
        listener->waiting.fetch_sub(1);
        std::lock_guard lock(shared->poolMutex);
        if (--shared->workers == 0)
            shared->workersGone.notify_all();
        return false;
    }
}

void workerLoop(std::shared_ptr<MCPHttpTransport::Shared> shared, std::shared_ptr<MCPHttpTransport::Listener> listener)
{
    pthread_setname_np(pthread_self(), "mcp.kelvara.wkr");
    for (;;) {
        listener->inAccept.fetch_add(1);
        if (!listener->open.load()) {
            listener->inAccept.fetch_sub(1);
            break;
        }
        sockaddr_in peer{};
        socklen_t peerLength = sizeof peer;
        const int fd = ::accept4(listener->fd, reinterpret_cast<sockaddr *>(&peer), &peerLength, SOCK_CLOEXEC);
        const int error = errno;
        listener->inAccept.fetch_sub(1);
        if (fd < 0) {
            if (!listener->open.load())
                break;
            if (error == EAGAIN || error == EWOULDBLOCK) {
                // Idle: a flood that has ended still gets its count logged.
                if (shared->refusalsUncounted.load())
                    flushRefusals(*shared, *shared->currentHooks(), false);
                // End unless this is the last worker waiting for connections.
                int waiting = listener->waiting.load();
                while (waiting > 1 && !listener->waiting.compare_exchange_weak(waiting, waiting - 1)) {}
                if (waiting > 1)
                    break;
                continue;
            }
            if (error == EINTR || error == ECONNABORTED)
                continue;
            const auto hooks = shared->currentHooks();
            if (error == EMFILE || error == ENFILE)
                logRefusal(*shared, *hooks, Refusal::OutOfFiles, "Failed to accept connection: the process has no open files left");
            else
                emitLog(*hooks, LogMessageType::Critical, LogCode::AcceptFailed, "Failed to accept connection");
            // Out of descriptors or memory: give the system a moment instead of spinning.
            if (error == EMFILE || error == ENFILE || error == ENOBUFS || error == ENOMEM)
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
            continue;
        }
        const auto hooks = shared->currentHooks();
        if (shared->refusalsUncounted.load())
            flushRefusals(*shared, *hooks, false);
        // Over the cap a connection is told so at once and closed, so that holding many
        // connections open cannot starve the others of threads and descriptors.
        if (shared->openConnections.load() >= shared->connectionCap) {
            logRefusal(*shared, *hooks, Refusal::TooManyConnections,
                       "Refused a connection: " + std::to_string(shared->connectionCap) + " connections are open already");
            turnAway(fd, "Service Unavailable: too many connections");
            continue;
        }
        // Nor may one address take them all: other local users share 127.0.0.1 with the
        // user's own clients.
        const uint32_t address = peer.sin_addr.s_addr;
        if (!takePeerSlot(*shared, address)) {
            char text[INET_ADDRSTRLEN] = "?";
            ::inet_ntop(AF_INET, &peer.sin_addr, text, sizeof text);
            logRefusal(*shared, *hooks, Refusal::TooManyFromPeer,
                       "Refused a connection from " + std::string(text) + ": " + std::to_string(shared->peerCap) +
                           " connections from that address are open already");
            turnAway(fd, "Service Unavailable: too many connections from this address");
            continue;
        }
        // Leaving the last accepting place: another worker takes it before this one serves.
        if (listener->waiting.fetch_sub(1) == 1 && !startAcceptor(shared, listener))
            emitLog(*hooks, LogMessageType::Critical, LogCode::AcceptFailed,
                    "Failed to accept connection: no thread could be started; new connections wait");
        const auto timeout = hooks->policy.receiveTimeout;
        if (timeout.count() > 0) {
            // A peer that never reads its answer must not hold a worker for ever either.
            timeval sendTimeout{static_cast<time_t>(timeout.count() / 1000),
                                static_cast<suseconds_t>((timeout.count() % 1000) * 1000)};
            ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &sendTimeout, sizeof sendTimeout);
        }
        shared->openConnections.fetch_add(1);
        serveConnection(*shared, *hooks, fd);
        releasePeerSlot(*shared, address);
        shared->openConnections.fetch_sub(1);
        listener->waiting.fetch_add(1);
    }
    std::lock_guard lock(shared->poolMutex);
    if (--shared->workers == 0)
        shared->workersGone.notify_all();
}

}  // namespace

MCPHttpTransport::MCPHttpTransport() : m_shared(std::make_shared<Shared>()) {}

MCPHttpTransport::~MCPHttpTransport()
{
    stop();
    // Wake every worker still waiting on its peer, end the idle ones, and wait for all of
    // them: a worker may be inside the message handler, which points into the owner of
    // this object.
    m_shared->destroying.store(true);
    const uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = ::write(m_shared->wakeFd, &one, sizeof one);
    wakeStreams(*m_shared, true);
    std::unique_lock lock(m_shared->poolMutex);
    m_shared->workersGone.wait(lock, [this] { return m_shared->workers == 0; });
}

bool MCPHttpTransport::waitUntilIdle(std::chrono::milliseconds limit)
{
    stop();
    // Workers waiting on a peer that sends nothing more end now, not at their receive limit.
    m_shared->destroying.store(true);
    const uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = ::write(m_shared->wakeFd, &one, sizeof one);
    wakeStreams(*m_shared, true);
    std::unique_lock lock(m_shared->poolMutex);
    return m_shared->workersGone.wait_for(lock, limit, [this] { return m_shared->workers == 0; });
}

void MCPHttpTransport::setMessageHandler(MessageHandler handler)
{
    std::lock_guard lock(m_shared->hooksMutex);
    auto hooks = std::make_shared<Hooks>(*m_shared->hooks);
    hooks->handler = std::move(handler);
    m_shared->hooks = std::move(hooks);
}

void MCPHttpTransport::setLogCallback(LogCallback callback)
{
    std::lock_guard lock(m_shared->hooksMutex);
    auto hooks = std::make_shared<Hooks>(*m_shared->hooks);
    hooks->log = std::move(callback);
    m_shared->hooks = std::move(hooks);
}

void MCPHttpTransport::setPolicy(MCPHttpPolicy policy)
{
    std::lock_guard lock(m_shared->hooksMutex);
    auto hooks = std::make_shared<Hooks>(*m_shared->hooks);
    hooks->policy = std::move(policy);
    m_shared->hooks = std::move(hooks);
}

MCPHttpPolicy MCPHttpTransport::policy() const
{
    return m_shared->currentHooks()->policy;
}

void MCPHttpTransport::setLogLevel(LogMessageType level)
{
    std::lock_guard lock(m_shared->hooksMutex);
    auto hooks = std::make_shared<Hooks>(*m_shared->hooks);
    hooks->level = level;
    m_shared->hooks = std::move(hooks);
}

bool MCPHttpTransport::isRunning() const
{
    return m_shared->running.load();
}

size_t MCPHttpTransport::openConnectionCount() const
{
    return m_shared->openConnections.load();
}

size_t MCPHttpTransport::bufferedByteCount() const
{
    return m_shared->bufferedBytes.load();
}

std::string MCPHttpTransport::startFailure() const
{
    std::lock_guard lifecycle(m_lifecycleMutex);
    return m_startFailure;
}

size_t MCPHttpTransport::pendingConnectionCount() const
{
    std::lock_guard lock(m_shared->connectionsMutex);
    return m_shared->pendingConnections.size();
}

bool MCPHttpTransport::start(int port, bool listenAtAll)
{
    std::lock_guard lifecycle(m_lifecycleMutex);
    if (m_shared->running.load())
        return false;
    const auto hooks = m_shared->currentHooks();
    m_startFailure.clear();
    auto fail = [&](int32_t code, const std::string &text, int error = 0) {
        m_startFailure = error ? text + ": " + std::strerror(error) : text;
        emitLog(*hooks, LogMessageType::Critical, code, text);
    };

    // Close-on-exec: processes that tools start must not inherit the listener.
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        fail(LogCode::SocketCreateFailed, "Failed to create socket", errno);
        return false;
    }
    const int one = 1;
    ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);

    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(listenAtAll ? INADDR_ANY : INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<uint16_t>(port));
    if (::bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) < 0) {
        const int error = errno;
        fail(LogCode::SocketBindFailed, "Failed to bind socket to port " + std::to_string(port), error);
        ::close(fd);
        return false;
    }
    if (::listen(fd, 128) < 0) {
        fail(LogCode::SocketListenFailed, "Failed to listen on socket", errno);
        ::close(fd);
        return false;
    }
    // Port 0 asks the system for a free port: the one it gave is the one to report.
    socklen_t length = sizeof address;
    if (::getsockname(fd, reinterpret_cast<sockaddr *>(&address), &length) == 0)
        port = ntohs(address.sin_port);
    // Accept gives up after this long, so that a worker idle since a burst can end.
    const timeval idle{static_cast<time_t>(std::chrono::duration_cast<std::chrono::seconds>(kAcceptorIdleTime).count()), 0};
    ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &idle, sizeof idle);
    auto listener = std::make_shared<Listener>(fd);
    m_shared->loopbackOnly.store(!listenAtAll);
    m_shared->connectionCap = hooks->policy.connectionCap();
    m_shared->peerCap = hooks->policy.peerConnectionCap();
    m_shared->running.store(true);
    if (!startAcceptor(m_shared, listener)) {
        m_shared->running.store(false);
        fail(LogCode::SocketListenFailed, "Failed to start the thread that accepts connections");
        ::close(fd);
        return false;
    }
    m_listener = std::move(listener);
    m_port = port;
    emitLog(*hooks, LogMessageType::Info, LogCode::Info, "MCP HTTP Server started on port " + std::to_string(port));
    return true;
}

void MCPHttpTransport::stop()
{
    std::lock_guard lifecycle(m_lifecycleMutex);
    if (!m_shared->running.exchange(false))
        return;
    // shutdown wakes every worker blocked in accept, and one about to enter it finds the
    // socket shut; the descriptor is closed only once none is inside accept, so its number
    // cannot be reused under one.
    m_listener->open.store(false);
    ::shutdown(m_listener->fd, SHUT_RDWR);
    while (m_listener->inAccept.load() > 0)
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    ::close(m_listener->fd);
    m_listener.reset();

    const auto hooks = m_shared->currentHooks();
    flushRefusals(*m_shared, *hooks, true);
    {
        std::lock_guard lock(m_shared->connectionsMutex);
        // A connection that closes with its answer is closed here; one that stays open belongs
        // to its worker, which closes it once the handler returns.
        for (auto it = m_shared->pendingConnections.begin(); it != m_shared->pendingConnections.end();) {
            if (it->second.keepOpen || it->second.streaming) {
                ::shutdown(it->second.fd, SHUT_RDWR);
                it->second.stopped = true;
                ++it;
            } else {
                ::close(it->second.fd);
                it = m_shared->pendingConnections.erase(it);
            }
    }
    }
    // Streams end, and the sessions with them: a client starts again with initialize.
    wakeStreams(*m_shared, true);
    emitLog(*hooks, LogMessageType::Info, LogCode::Info, "MCP HTTP Server stopped");
}

void MCPHttpTransport::sendResponse(const std::string &connectionId, std::shared_ptr<MCPMessage> message)
{
    if (!message)
        return;
    // Messages are immutable once handed on, so the text is built before the lock. A kept
    // result (a list) is sent from where it is kept, between its envelope's two ends.
    std::string before;
    std::string after;
    std::string body;
    const bool around = message->envelopeAroundResultText(before, after);
    if (!around)
        body = message->toString();
    // The entry leaves the table under the lock, so that stop can no longer close this
    // socket; the write and the close then happen outside it. Holding the lock across a
    // loopback write, which runs the receiver's side too, made every other response
    // wait in line for no gain. A connection that stays open keeps its entry, marked
    // answered, for its worker to take back.
    int fd = -1;
    bool keepOpen = false;
    bool streaming = false;
    std::string sessionId;
    uint64_t eventId = 0;
    std::shared_ptr<HttpSession> session;
    std::shared_ptr<CallStream> call;
    {
        std::lock_guard lock(m_shared->connectionsMutex);
        auto it = m_shared->pendingConnections.find(connectionId);
        if (it == m_shared->pendingConnections.end() || it->second.answered || it->second.stopped)
            return;
        fd = it->second.fd;
        keepOpen = it->second.keepOpen;
        streaming = it->second.streaming;
        if (it->second.issued)
            sessionId = it->second.sessionId;
        eventId = ++it->second.events;
        if (streaming && it->second.call) {
            session = it->second.session;
            call = it->second.call;
        }
        // An event stream ends with its answer, and the connection with it.
        if (keepOpen && !streaming)
            it->second.answered = true;
        else
            m_shared->pendingConnections.erase(it);
    }
    if (streaming) {
        if (around) {
            body = before;
            body += *message->resultText;
            body += after;
        }
        if (call) {
            sendOnCall(*session, *call, fd, {}, body, true);
        } else {
            std::string out;
            appendEvent(out, eventId, body);
            sendAll(fd, out);
        }
        closeAfterAnswer(fd);
        return;
    }
    // The answer to initialize names the session it began.
    std::string extra;
    if (!sessionId.empty())
        extra = "Mcp-Session-Id: " + sessionId + "\r\n";
    if (around) {
        const size_t length = before.size() + message->resultText->size() + after.size();
        sendPieces(fd, {buildResponseHead(200, "application/json", length, extra, keepOpen), before, *message->resultText, after});
    } else {
        sendPieces(fd, {buildResponseHead(200, "application/json", body.size(), extra, keepOpen), body});
    }
    if (!keepOpen)
        closeAfterAnswer(fd);
}

void MCPHttpTransport::notify(const std::string &connectionId, const std::string &text)
{
    int fd = -1;
    bool head = false;
    std::string sessionId;
    std::string issuedId;
    uint64_t eventId = 0;
    std::shared_ptr<HttpSession> session;
    std::shared_ptr<CallStream> call;
    {
        std::lock_guard lock(m_shared->connectionsMutex);
        auto it = m_shared->pendingConnections.find(connectionId);
        if (it == m_shared->pendingConnections.end() || it->second.answered || it->second.stopped)
            return;
        Pending &pending = it->second;
        sessionId = pending.sessionId;
        if (pending.acceptsStream) {
            // From here on stop shuts the connection down instead of closing it under a write.
            head = !pending.streaming;
            pending.streaming = true;
            fd = pending.fd;
            eventId = ++pending.events;
            if (pending.issued)
                issuedId = pending.sessionId;
            if (pending.session) {
                if (!pending.call)
                    pending.call = openCallStream(*pending.session);
                session = pending.session;
                call = pending.call;
            }
        }
    }
    if (call) {
        sendOnCall(*session, *call, fd, head ? callStreamStart(*session, *call, issuedId) : std::string(), text, false);
        return;
    }
    if (fd < 0) {
        // The client takes one JSON body: what the call says goes to its session's stream.
        if (!sessionId.empty()) {
            if (const auto session = findSession(*m_shared, *m_shared->currentHooks(), sessionId, false))
                postEvent(*session, text);
        }
        return;
    }
    std::string out = head ? streamHead(issuedId) : std::string();
    appendEvent(out, eventId, text);
    sendAll(fd, out);
}

bool MCPHttpTransport::closeStream(const std::string &connectionId, std::chrono::milliseconds retry)
{
    int fd = -1;
    bool head = false;
    std::string issuedId;
    std::shared_ptr<HttpSession> session;
    std::shared_ptr<CallStream> call;
    {
        std::lock_guard lock(m_shared->connectionsMutex);
        auto it = m_shared->pendingConnections.find(connectionId);
        if (it == m_shared->pendingConnections.end() || it->second.answered || it->second.stopped)
            return false;
        Pending &pending = it->second;
        // A client of an older revision would take the early end for the call's failure.
        if (!pending.acceptsStream || !pending.session || !resumable(*pending.session))
            return false;
        head = !pending.streaming;
        pending.streaming = true;
        fd = pending.fd;
        if (pending.issued)
            issuedId = pending.sessionId;
        if (!pending.call)
            pending.call = openCallStream(*pending.session);
        session = pending.session;
        call = pending.call;
    }
    {
        std::lock_guard lock(session->mutex);
        if (!call->attached)
            return true;  // already ended, or taken over by a GET
        call->attached = false;
    }
    std::string out = head ? callStreamStart(*session, *call, issuedId) : std::string();
    out += "retry: ";
    appendNumber(out, uint64_t(std::max<int64_t>(0, retry.count())));
    out += "\n\n";
    sendAll(fd, out);
    // The client sees the stream end; the descriptor is closed with the answer, by whoever
    // takes the connection back.
    ::shutdown(fd, SHUT_WR);
    return true;
}

void MCPHttpTransport::broadcast(const std::string &text)
{
    std::vector<std::shared_ptr<HttpSession>> sessions;
    {
        std::lock_guard lock(m_shared->sessionsMutex);
        sessions.reserve(m_shared->sessions.size());
        for (const auto &[id, session] : m_shared->sessions)
            sessions.push_back(session);
    }
    for (const auto &session : sessions)
        postEvent(*session, text);
}

void MCPHttpTransport::sendToSession(const std::string &sessionId, const std::string &text)
{
    std::shared_ptr<HttpSession> session;
    {
        std::lock_guard lock(m_shared->sessionsMutex);
        auto it = m_shared->sessions.find(sessionId);
        if (it == m_shared->sessions.end())
            return;
        session = it->second;
    }
    postEvent(*session, text);
}

void MCPHttpTransport::setSessionEndedHandler(std::function<void(const std::string &)> handler)
{
    std::lock_guard lock(m_shared->hooksMutex);
    auto hooks = std::make_shared<Hooks>(*m_shared->hooks);
    hooks->sessionEnded = std::move(handler);
    m_shared->hooks = std::move(hooks);
}

std::shared_ptr<MCPSession> MCPHttpTransport::session(const std::string &connectionId)
{
    std::string sessionId;
    {
        std::lock_guard lock(m_shared->connectionsMutex);
        auto it = m_shared->pendingConnections.find(connectionId);
        if (it == m_shared->pendingConnections.end() || it->second.sessionId.empty())
            return nullptr;
        sessionId = it->second.sessionId;
    }
    std::lock_guard lock(m_shared->sessionsMutex);
    auto it = m_shared->sessions.find(sessionId);
    return it == m_shared->sessions.end() ? nullptr : it->second->info;
}

size_t MCPHttpTransport::sessionCount() const
{
    std::lock_guard lock(m_shared->sessionsMutex);
    return m_shared->sessions.size();
}

}  // namespace MCP
