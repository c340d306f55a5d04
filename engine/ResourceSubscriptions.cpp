#include "engine/ResourceSubscriptions.h"

namespace MCP {

void ResourceSubscriptions::setWatch(Watch watch)
{
    std::lock_guard lock(m_mutex);
    m_watch = std::move(watch);
}

void ResourceSubscriptions::subscribe(const std::string &sessionId, const std::string &uri, const std::string &type)
{
    std::lock_guard lock(m_mutex);
    Entry &entry = m_byUri[uri];
    const bool first = entry.sessions.empty();
    entry.sessions.insert(sessionId);
    m_bySession[sessionId].insert(uri);
    if (first) {
        entry.type = type;
        if (m_watch)
            m_watch(uri, type, true);
    }
}

void ResourceSubscriptions::release(const std::string &sessionId, const std::string &uri)
{
    auto it = m_byUri.find(uri);
    if (it == m_byUri.end() || it->second.sessions.erase(sessionId) == 0 || !it->second.sessions.empty())
        return;
    const std::string type = std::move(it->second.type);
    m_byUri.erase(it);
    if (m_watch)
        m_watch(uri, type, false);
}

void ResourceSubscriptions::unsubscribe(const std::string &sessionId, const std::string &uri)
{
    std::lock_guard lock(m_mutex);
    auto session = m_bySession.find(sessionId);
    if (session == m_bySession.end() || session->second.erase(uri) == 0)
        return;
    if (session->second.empty())
        m_bySession.erase(session);
    release(sessionId, uri);
}

void ResourceSubscriptions::dropSession(const std::string &sessionId)
{
    std::lock_guard lock(m_mutex);
    auto session = m_bySession.find(sessionId);
    if (session == m_bySession.end())
        return;
    const std::set<std::string> uris = std::move(session->second);
    m_bySession.erase(session);
    for (const std::string &uri : uris)
        release(sessionId, uri);
}

void ResourceSubscriptions::clear()
{
    std::lock_guard lock(m_mutex);
    const auto byUri = std::move(m_byUri);
    m_byUri.clear();
    m_bySession.clear();
    if (m_watch)
        for (const auto &[uri, entry] : byUri)
            m_watch(uri, entry.type, false);
}

std::vector<std::string> ResourceSubscriptions::listeners(const std::string &uri) const
{
    std::lock_guard lock(m_mutex);
    auto it = m_byUri.find(uri);
    if (it == m_byUri.end())
        return {};
    return {it->second.sessions.begin(), it->second.sessions.end()};
}

size_t ResourceSubscriptions::uriCount() const
{
    std::lock_guard lock(m_mutex);
    return m_byUri.size();
}

}  // namespace MCP
