#pragma once

#include "engine/LogMessageType.h"

#include <functional>
#include <mutex>

namespace MCP {

// The list-changed callback of a service and the main queue it runs on. With no main
// queue poster set, the callback runs on the thread that changed the list. The observer
// (the server's own) always runs on the thread that changed the list, first; it must be
// quick and may not call back into the registry's writers.
class ListChangedNotifier {
public:
    void setCallback(std::function<void()> callback)
    {
        std::lock_guard lock(m_mutex);
        m_callback = std::move(callback);
    }

    void setMainQueuePoster(MainQueuePoster poster)
    {
        std::lock_guard lock(m_mutex);
        m_poster = std::move(poster);
    }

    void setObserver(std::function<void()> observer)
    {
        std::lock_guard lock(m_mutex);
        m_observer = std::move(observer);
    }

    void notify()
    {
        std::function<void()> callback;
        MainQueuePoster poster;
        {
            std::lock_guard lock(m_mutex);
            if (m_observer)
                m_observer();
            callback = m_callback;
            poster = m_poster;
        }
        if (!callback)
            return;
        if (poster)
            poster(std::move(callback));
        else
            callback();
    }

private:
    std::mutex m_mutex;
    std::function<void()> m_callback;
    std::function<void()> m_observer;
    MainQueuePoster m_poster;
};

}  // namespace MCP
