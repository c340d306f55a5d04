#pragma once

#include "engine/ListChangedNotifier.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace MCP {

// The part the tool, resource and prompt registries share: definitions under one mutex,
// keyed by one of their members, in key order. Registering a key that is there replaces
// its definition. Every registration, removal and clearing, also of a key that is not
// there, counts up the revision and then calls the list-changed notifier outside the lock,
// so a callback may read the registry again.
template <class Definition, std::string Definition::*Key>
class Registry {
public:
    void put(const Definition &definition)
    {
        change([&] { m_items.insert_or_assign(definition.*Key, definition); });
    }
    void remove(const std::string &key)
    {
        change([&] { m_items.erase(key); });
    }
    void clear()
    {
        change([&] { m_items.clear(); });
    }

    std::optional<Definition> find(const std::string &key)
    {
        std::lock_guard lock(m_mutex);
        auto it = m_items.find(key);
        if (it == m_items.end())
            return std::nullopt;
        return it->second;
    }

    std::vector<Definition> list()
    {
        std::lock_guard lock(m_mutex);
        std::vector<Definition> items;
        items.reserve(m_items.size());
        for (const auto &[key, definition] : m_items)
            items.push_back(definition);
        return items;
    }

    size_t count()
    {
        std::lock_guard lock(m_mutex);
        return m_items.size();
    }

    // Runs `use` on the definitions with the lock held; what it returns is returned. Whatever
    // it calls (a provider, a renderer) runs one at a time and must not change the registry.
    template <class Use>
    auto withLock(Use &&use)
    {
        std::lock_guard lock(m_mutex);
        return use(std::as_const(m_items));
    }

    // A list built at one revision is the list for as long as the revision stays.
    uint64_t revision() const { return m_revision.load(); }

    void setListChangedCallback(std::function<void()> callback) { m_notifier.setCallback(std::move(callback)); }
    void setMainQueuePoster(MainQueuePoster poster) { m_notifier.setMainQueuePoster(std::move(poster)); }
    void setListObserver(std::function<void()> observer) { m_notifier.setObserver(std::move(observer)); }
    void notifyListChanged() { m_notifier.notify(); }

private:
    template <class Edit>
    void change(Edit &&edit)
    {
        {
            std::lock_guard lock(m_mutex);
            edit();
            ++m_revision;
        }
        notifyListChanged();
    }

    std::map<std::string, Definition> m_items;
    ListChangedNotifier m_notifier;
    std::mutex m_mutex;
    std::atomic<uint64_t> m_revision{0};
};

}  // namespace MCP
