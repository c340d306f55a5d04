#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

namespace MCP {

// Which session listens to which resource URI. Any thread. The watch is told when a URI
// gains its first listener (true) and when it loses its last one (false), so that whoever
// watches the resource's source starts and stops exactly once per URI. It is called under
// the registry's lock, in the order of the changes, and must not call back into it.
class ResourceSubscriptions {
public:
    // uri: as the client named it; type: the resource's kind ("file", "template", ...).
    using Watch = std::function<void(const std::string &uri, const std::string &type, bool watch)>;

    void setWatch(Watch watch);
    void subscribe(const std::string &sessionId, const std::string &uri, const std::string &type);
    void unsubscribe(const std::string &sessionId, const std::string &uri);
    // Forgets the session, and what only it listened to.
    void dropSession(const std::string &sessionId);
    // Forgets everything (the server stops).
    void clear();
    // The sessions listening to the URI.
    std::vector<std::string> listeners(const std::string &uri) const;
    size_t uriCount() const;

private:
    // Forgets one listener of a URI; unwatches the URI when it was the last. Under the lock.
    void release(const std::string &sessionId, const std::string &uri);

    mutable std::mutex m_mutex;
    Watch m_watch;
    struct Entry {
        std::string type;
        std::set<std::string> sessions;
    };
    std::map<std::string, Entry> m_byUri;
    std::map<std::string, std::set<std::string>> m_bySession;
};

}  // namespace MCP
