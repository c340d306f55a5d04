#include "app/config/RunningServer.h"

#include "base/UserDefaults.h"

#include <QCoreApplication>

void RunningServer::publish(int port)
{
    auto settings = UserDefaults::standard();
    settings->setValue(pidKey, QCoreApplication::applicationPid());
    settings->setValue(portKey, port);
    settings->sync();
}

void RunningServer::withdraw()
{
    auto settings = UserDefaults::standard();
    if (settings->value(pidKey).toLongLong() != QCoreApplication::applicationPid())
        return;
    settings->remove(pidKey);
    settings->remove(portKey);
    settings->sync();
}

std::optional<RunningServer::Record> RunningServer::read()
{
    auto settings = UserDefaults::standard();
    settings->sync();  // another process wrote it
    bool pidOk = false;
    bool portOk = false;
    const Record record{settings->value(pidKey).toLongLong(&pidOk), settings->value(portKey).toInt(&portOk)};
    if (!pidOk || !portOk || record.pid <= 0 || record.port <= 0 || record.port > 65535)
        return std::nullopt;
    return record;
}
