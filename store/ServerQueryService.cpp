#include "store/ServerQueryService.h"

#include "store/ServerConfig.h"
#include "store/StoreContext.h"

FetchRequest ServerQueryService::serverRequest()
{
    FetchRequest request = FetchRequest::forEntity(StoreEntity::ServerConfig);
    request.fetchLimit = 1;
    return request;
}

Result<ServerConfig *> ServerQueryService::fetchServerConfig(StoreContext *context)
{
    const Result<QList<ServerConfig *>> rows = context->fetch<ServerConfig>(serverRequest());
    if (!rows)
        return rows.error();
    return rows->isEmpty() ? nullptr : rows->first();
}

Result<ServerConfig *> ServerQueryService::fetchOrCreateServerConfig(StoreContext *context)
{
    const Result<QList<ServerConfig *>> rows = context->fetch<ServerConfig>(serverRequest());
    if (!rows)
        return rows.error();
    if (!rows->isEmpty())
        return rows->first();
    auto *config = context->insert<ServerConfig>();
    config->setServerName(QStringLiteral("tamsel_kelvara"));
    config->setServerTitle(QStringLiteral("Kelvara"));
    config->setServerVersion(QStringLiteral("1.0.0"));
    config->setInstructions(QStringLiteral("Kelvara - Model Context Protocol Server"));
    config->setPort(8888);
    return config;
}
