#include "engine/MCPStdioTransport.h"

#include "engine/MCPCodes.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>
#include <vector>

namespace MCP {

namespace {

constexpr size_t kReadChunk = 64 * 1024;

const char kParseError[] = "{\"jsonrpc\": \"2.0\", \"id\": null, \"error\": {\"code\": -32700, \"message\": \"Parse error\"}}";

bool isBlank(const std::string &line)
{
    return line.find_first_not_of(" \t\r") == std::string::npos;
}

}  // namespace

MCPStdioTransport::MCPStdioTransport(int inputFd, int outputFd) : m_inputFd(inputFd), m_outputFd(outputFd) {}

MCPStdioTransport::~MCPStdioTransport() { stop(); }

std::string MCPStdioTransport::lineOf(const MCPMessage &message)
{
    // The layout breaks lines only between tokens (a line feed inside a string is written
    // as \n), so dropping each break with the indentation after it leaves the same JSON.
    const std::string text = message.toString();
    std::string line;
    line.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\n') {
            line += text[i];
            continue;
        }
        while (i + 1 < text.size() && text[i + 1] == ' ')
            ++i;
        if (!line.empty() && line.back() != '{' && line.back() != '[' && i + 1 < text.size() && text[i + 1] != '}'
            && text[i + 1] != ']')
            line += ' ';
    }
    return line;
}

void MCPStdioTransport::log(LogMessageType type, int32_t code, const std::string &text) const
{
    if (static_cast<int>(type) > static_cast<int>(m_logLevel))
        return;
    if (m_logCallback)
        m_logCallback(type, code, text);
    else
        std::fprintf(stderr, "[MCPStdio] %s\n", text.c_str());
}

bool MCPStdioTransport::start(int, bool)
{
    if (m_running)
        return false;
    m_stopping = false;
    if (::pipe2(m_wakePipe, O_CLOEXEC) != 0) {
        log(LogMessageType::Critical, LogCode::SocketCreateFailed, "Failed to create the stdio wake pipe");
        return false;
    }
    // A host that closes its end must not end the process with SIGPIPE: the write fails instead.
    struct sigaction current = {};
    if (::sigaction(SIGPIPE, nullptr, &current) == 0 && current.sa_handler == SIG_DFL)
        std::signal(SIGPIPE, SIG_IGN);
    {
        std::lock_guard lock(m_writeMutex);
        m_outputClosed = false;
    }
    m_session->clientRequests().reopen();
    m_running = true;
    m_reader = std::thread([this] { readLoop(); });
    log(LogMessageType::Info, LogCode::Info, "MCP stdio transport started");
    return true;
}

void MCPStdioTransport::stop()
{
    const bool wasRunning = m_running.exchange(false);
    m_stopping = true;
    if (wasRunning) {
        const char byte = 1;
        [[maybe_unused]] const ssize_t written = ::write(m_wakePipe[1], &byte, 1);
    }
    m_session->clientRequests().close("the server has stopped");
    if (m_reader.joinable()) {
        if (m_reader.get_id() == std::this_thread::get_id())
            m_reader.detach();  // called from the closed handler: the reader ends right after it
        else
            m_reader.join();
    }
    waitForWorkers(std::chrono::milliseconds::max());
    for (int &fd : m_wakePipe) {
        if (fd >= 0)
            ::close(fd);
        fd = -1;
    }
    if (wasRunning)
        log(LogMessageType::Info, LogCode::Info, "MCP stdio transport stopped");
}

bool MCPStdioTransport::waitForWorkers(std::chrono::milliseconds limit)
{
    std::unique_lock lock(m_workersMutex);
    if (limit == std::chrono::milliseconds::max()) {
        m_workersDone.wait(lock, [this] { return m_workers == 0; });
        return true;
    }
    return m_workersDone.wait_for(lock, limit, [this] { return m_workers == 0; });
}

bool MCPStdioTransport::waitUntilIdle(std::chrono::milliseconds limit)
{
    // Stop without its unbounded wait: a handler that never returns must not hold the exit.
    const bool wasRunning = m_running.exchange(false);
    m_stopping = true;
    if (wasRunning) {
        const char byte = 1;
        [[maybe_unused]] const ssize_t written = ::write(m_wakePipe[1], &byte, 1);
    }
    m_session->clientRequests().close("the server has stopped");
    if (m_reader.joinable() && m_reader.get_id() != std::this_thread::get_id())
        m_reader.join();
    return waitForWorkers(limit);
}

bool MCPStdioTransport::isRunning() const { return m_running; }

void MCPStdioTransport::setMessageHandler(MessageHandler handler) { m_handler = std::move(handler); }
void MCPStdioTransport::setLogCallback(LogCallback callback) { m_logCallback = std::move(callback); }
void MCPStdioTransport::setLogLevel(LogMessageType level) { m_logLevel = level; }
void MCPStdioTransport::setClosedHandler(std::function<void()> handler) { m_closedHandler = std::move(handler); }
void MCPStdioTransport::setMaxMessageBytes(size_t bytes) { m_maxMessageBytes = bytes; }

void MCPStdioTransport::readLoop()
{
    std::string pending;
    bool skipping = false;  // inside a line that was too long, until its end
    auto refuseLongLine = [&] {
        log(LogMessageType::Error, LogCode::RequestReadFailed,
            "Message longer than " + std::to_string(m_maxMessageBytes) + " bytes skipped");
        writeLine(kParseError);
        pending.clear();
        pending.shrink_to_fit();
    };
    std::vector<char> chunk(kReadChunk);
    for (;;) {
        if (m_stopping)
            return;
        pollfd fds[2] = {{m_inputFd, POLLIN, 0}, {m_wakePipe[0], POLLIN, 0}};
        if (::poll(fds, 2, -1) < 0) {
            if (errno == EINTR)
                continue;
            break;
        }
        if (fds[1].revents)
            return;  // stopped: what is left of the input stays for whoever reads it next
        const ssize_t count = ::read(m_inputFd, chunk.data(), chunk.size());
        if (count < 0 && (errno == EINTR || errno == EAGAIN))
            continue;
        if (count <= 0)
            break;
        size_t start = 0;
        for (size_t i = 0; i < size_t(count); ++i) {
            if (chunk[i] != '\n')
                continue;
            if (!skipping) {
                pending.append(chunk.data() + start, i - start);
                if (pending.size() > m_maxMessageBytes)
                    refuseLongLine();
                else
                    handleLine(std::move(pending));
            }
            pending.clear();
            skipping = false;
            start = i + 1;
        }
        if (!skipping) {
            pending.append(chunk.data() + start, size_t(count) - start);
            if (pending.size() > m_maxMessageBytes) {
                refuseLongLine();
                skipping = true;
            }
        }
    }
    // A last line without its line feed still counts: a host may close right after writing.
    if (!skipping)
        handleLine(std::move(pending));
    // Nobody is left to answer what a call asked the client.
    m_session->clientRequests().close("the client has gone away");
    {
        std::unique_lock lock(m_workersMutex);
        m_workersDone.wait(lock, [this] { return m_workers == 0; });
    }
    log(LogMessageType::Info, LogCode::Info, "End of input");
    m_running = false;
    if (m_closedHandler)
        m_closedHandler();
}

void MCPStdioTransport::handleLine(std::string line)
{
    if (isBlank(line))
        return;
    auto message = MCPMessage::parse(line);
    if (message && message->expectsNoAnswer()) {
        // A notification (or a response of the client's) is never answered, in order.
        message->inSession = true;
        if (m_handler)
            m_handler(std::string(), std::move(message));
        return;
    }
    if (!message) {
        log(LogMessageType::Critical, LogCode::InvalidRequest, "Invalid JSON-RPC message. LINE:\n" + line);
        writeLine(kParseError);
        return;
    }
    if (!m_handler) {
        log(LogMessageType::Critical, LogCode::NoMessageHandler, "No message handler available");
        return;
    }
    // Whatever the server says before the answer goes out as lines of its own.
    message->clientListens = true;
    message->inSession = true;
    std::string connectionId;
    {
        std::lock_guard lock(m_workersMutex);
        ++m_workers;
        connectionId = "stdio-" + std::to_string(++m_nextConnection);
    }
    std::thread([this, connectionId = std::move(connectionId), message = std::move(message)]() mutable {
        m_handler(connectionId, std::move(message));
        std::lock_guard lock(m_workersMutex);
        if (--m_workers == 0)
            m_workersDone.notify_all();
    }).detach();
}

void MCPStdioTransport::sendResponse(const std::string &connectionId, std::shared_ptr<MCPMessage> message)
{
    if (message && !connectionId.empty())
        writeLine(lineOf(*message));
}

void MCPStdioTransport::notify(const std::string &connectionId, const std::string &text)
{
    if (!connectionId.empty())
        writeLine(text);
}

void MCPStdioTransport::broadcast(const std::string &text)
{
    if (m_running)
        writeLine(text);
}

void MCPStdioTransport::sendToSession(const std::string &sessionId, const std::string &text)
{
    if (m_running && sessionId == m_session->id())
        writeLine(text);
}

std::shared_ptr<MCPSession> MCPStdioTransport::session(const std::string &)
{
    return m_session;
}

void MCPStdioTransport::writeLine(const std::string &line)
{
    std::lock_guard lock(m_writeMutex);
    if (m_outputClosed)
        return;
    std::string bytes = line;
    bytes += '\n';
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t count = ::write(m_outputFd, bytes.data() + done, bytes.size() - done);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0) {
            m_outputClosed = true;
            return;
        }
        done += size_t(count);
    }
}

}  // namespace MCP
