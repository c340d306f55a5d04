#include "store/ServerQueryService.h"

#include "store/ServerConfig.h"
#include "store/StoreContext.h"

FetchRequest ServerQueryService::serverRequest()
{
    FetchRequest request = FetchRequest::forEntity(StoreEntity::ServerConfig);
    request.fetchLimit = 1;
    return request;
}

ServerConfig *ServerQueryService::fetchServerConfig(StoreContext *context, AppError *error)
{
    const QList<ServerConfig *> rows = context->fetch<ServerConfig>(serverRequest(), error);
    return rows.isEmpty() ? nullptr : rows.first();
}

ServerConfig *ServerQueryService::fetchOrCreateServerConfig(StoreContext *context, AppError *error)
{
    AppError fetchError;  // code stays 0 unless the fetch fails
    const QList<ServerConfig *> rows = context->fetch<ServerConfig>(serverRequest(), &fetchError);
    if (fetchError.code != 0) {
        if (error)
            *error = fetchError;
        return nullptr;
    }
    if (!rows.isEmpty())
        return rows.first();
    auto *config = context->insert<ServerConfig>();
    config->setServerName(QStringLiteral("tamsel_kelvara"));
    config->setServerTitle(QStringLiteral("Kelvara"));
    config->setServerVersion(QStringLiteral("1.0.0"));
    config->setInstructions(QStringLiteral("Kelvara - Model Context Protocol Server"));
    config->setPort(8888);
    return config;
}
