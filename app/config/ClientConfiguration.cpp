#include "app/config/ClientConfiguration.h"

#include <QJsonArray>

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>

QJsonObject ClientConfiguration::stdioEntry(const QString &executable)
{
    return QJsonObject{{QStringLiteral("command"), executable},
                       {QStringLiteral("args"), QJsonArray{QStringLiteral("serve"), QStringLiteral("--stdio")}}};
}

QJsonObject ClientConfiguration::httpEntry(const QString &host, int port, const std::optional<QString> &token,
                                           const QString &type)
{
    QJsonObject entry{{QStringLiteral("type"), type},
                      {QStringLiteral("url"), QStringLiteral("http://%1:%2/mcp").arg(host).arg(port)}};
    if (token)
        entry.insert(QStringLiteral("headers"),
                     QJsonObject{{QStringLiteral("Authorization"), QStringLiteral("Bearer ") + *token}});
    return entry;
}

QJsonObject ClientConfiguration::document(const QJsonObject &entry)
{
    return QJsonObject{{QStringLiteral("mcpServers"), QJsonObject{{serverKey, entry}}}};
}

QString ClientConfiguration::clientHost(bool listenAtAll)
{
    return listenAtAll ? reachableHost() : QStringLiteral("127.0.0.1");
}

QString ClientConfiguration::reachableHost()
{
    ifaddrs *list = nullptr;
    if (::getifaddrs(&list) != 0)
        return QStringLiteral("127.0.0.1");
    QString found;
    for (ifaddrs *it = list; it && found.isEmpty(); it = it->ifa_next) {
        if (!it->ifa_addr || it->ifa_addr->sa_family != AF_INET || !(it->ifa_flags & IFF_UP) ||
            (it->ifa_flags & IFF_LOOPBACK))
            continue;
        char text[INET_ADDRSTRLEN] = {};
        const auto *address = reinterpret_cast<const sockaddr_in *>(it->ifa_addr);
        if (::inet_ntop(AF_INET, &address->sin_addr, text, sizeof text))
            found = QString::fromLatin1(text);
    }
    ::freeifaddrs(list);
    return found.isEmpty() ? QStringLiteral("127.0.0.1") : found;
}
