#include "store/ServerConfig.h"

#include <QSqlQuery>

ServerConfig::ServerConfig(StoreContext *context, qint64 key, State state)
    : StoreRecord(staticEntity, context, key, state)
{}

QVariantList ServerConfig::columnValues() const
{
    return {toColumn(m_v.serverName), toColumn(m_v.serverTitle), toColumn(m_v.serverVersion),
            toColumn(m_v.instructions), QVariant(int(m_v.port))};
}

void ServerConfig::readColumns(const QSqlQuery &query, int first)
{
    m_v.serverName = textColumn(query.value(first + 0));
    m_v.serverTitle = textColumn(query.value(first + 1));
    m_v.serverVersion = textColumn(query.value(first + 2));
    m_v.instructions = textColumn(query.value(first + 3));
    m_v.port = qint16(query.value(first + 4).toInt());
}
