#include "store/ServerConfig.h"

#include "store/StoreColumns.h"

#include <QSqlQuery>

ServerConfig::ServerConfig(StoreContext *context, qint64 key, State state)
    : StoreRecord(staticEntity, context, key, state)
{}

const StoreColumns<ServerConfig::Values> &ServerConfig::columns()
{
    static const auto columns = StoreColumns<Values>().add("serverName", &Values::serverName)
                                                  .add("serverTitle", &Values::serverTitle)
                                                  .add("serverVersion", &Values::serverVersion)
                                                  .add("instructions", &Values::instructions)
                                                  .addInteger("port", &Values::port);
    return columns;
}

QList<StoreEntityInfo::Column> ServerConfig::columnLayout() { return columns().layout(); }

QVariantList ServerConfig::columnValues() const { return columns().values(m_v); }

void ServerConfig::readColumns(const QSqlQuery &query, int first) { columns().read(m_v, query, first); }
