#pragma once

#include <QCoreApplication>
#include <QMetaObject>
#include <QThread>
#include <utility>

// Hops onto the Qt main thread. Work queued from any thread runs there in the order it
// was queued.
namespace MainThread {

inline bool isCurrent()
{
    auto *app = QCoreApplication::instance();
    return app && QThread::currentThread() == app->thread();
}

// Queues fn on the main thread's event loop, even when called from the main thread.
template <typename Fn>
void post(Fn &&fn)
{
    if (auto *app = QCoreApplication::instance())
        QMetaObject::invokeMethod(app, std::forward<Fn>(fn), Qt::QueuedConnection);
}

// Runs fn on the main thread and waits for it; runs it directly when already there,
// since a blocking hop from the main thread to itself would never return.
template <typename Fn>
void runBlocking(Fn &&fn)
{
    auto *app = QCoreApplication::instance();
    if (!app || isCurrent()) {
        fn();
        return;
    }
    QMetaObject::invokeMethod(app, std::forward<Fn>(fn), Qt::BlockingQueuedConnection);
}

}  // namespace MainThread
