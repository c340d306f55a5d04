#include "engine/ClientRequests.h"

#include "engine/MCPMessage.h"

namespace MCP {

std::optional<uint64_t> ClientRequests::open()
{
    std::lock_guard lock(m_mutex);
    if (m_closed)
        return std::nullopt;
    const uint64_t id = m_nextId++;
    m_open.emplace(RequestId(id).key(), std::nullopt);
    return id;
}

bool ClientRequests::answer(const MCPMessage &response)
{
    if (!response.id.isValid())
        return false;
    Reply reply;
    if (response.errorMessage) {
        reply.error = *response.errorMessage;
        reply.code = response.errorCode;
    } else {
        reply.answered = true;
        reply.result = response.result;
    }
    std::lock_guard lock(m_mutex);
    auto it = m_open.find(response.id.key());
    if (it == m_open.end() || it->second)
        return false;
    it->second = std::move(reply);
    m_changed.notify_all();
    return true;
}

ClientRequests::Reply ClientRequests::wait(uint64_t id, const StopCheck &stop)
{
    const std::string key = RequestId(id).key();
    std::unique_lock lock(m_mutex);
    for (;;) {
        auto it = m_open.find(key);
        if (it == m_open.end()) {
            Reply gone;
            gone.error = "the request is not waiting";
            return gone;
        }
        if (it->second) {
            Reply reply = std::move(*it->second);
            m_open.erase(it);
            return reply;
        }
        if (m_closed) {
            m_open.erase(it);
            Reply ended;
            ended.error = *m_closed;
            return ended;
        }
        // The stop check may take locks of its own (a script's watchdog): asked unlocked.
        lock.unlock();
        std::optional<std::string> reason = stop ? stop() : std::nullopt;
        lock.lock();
        if (reason) {
            m_open.erase(key);
            Reply stopped;
            stopped.error = std::move(*reason);
            return stopped;
        }
        m_changed.wait_for(lock, kLookInterval, [&] {
            auto found = m_open.find(key);
            return m_closed || found == m_open.end() || found->second.has_value();
        });
    }
}

void ClientRequests::abandon(uint64_t id)
{
    std::lock_guard lock(m_mutex);
    m_open.erase(RequestId(id).key());
}

void ClientRequests::close(const std::string &reason)
{
    std::lock_guard lock(m_mutex);
    if (!m_closed)
        m_closed = reason;
    m_changed.notify_all();
}

void ClientRequests::reopen()
{
    std::lock_guard lock(m_mutex);
    m_closed.reset();
}

size_t ClientRequests::waiting() const
{
    std::lock_guard lock(m_mutex);
    return m_open.size();
}

}  // namespace MCP
