#include "store/ResourceQueryService.h"

#include "store/ResourceConfig.h"
#include "store/StoreContext.h"

#include <QCoreApplication>

FetchRequest ResourceQueryService::resourcesRequest()
{
    FetchRequest request = FetchRequest::forEntity(StoreEntity::ResourceConfig);
    request.sortByName = true;
    return request;
}

Result<QList<ResourceConfig *>> ResourceQueryService::fetchResourceConfigs(StoreContext *context)
{
    return context->fetch<ResourceConfig>(resourcesRequest());
}

ResourceConfig *ResourceQueryService::createResourceConfig(StoreContext *context)
{
    auto *resource = context->insert<ResourceConfig>();
    resource->setId(QUuid::createUuid());
    resource->setName(QCoreApplication::translate("Kelvara", "New Resource"));
    resource->setType(QStringLiteral("data"));
    resource->setMimeType(QStringLiteral("text/plain"));
    resource->setUri(QUrl(QStringLiteral("file:///anyfile.txt")));
    resource->setResourceDescription(QCoreApplication::translate("Kelvara", "Resource description"));
    resource->setContextTags(QStringLiteral("File,Resource"));
    resource->setRelatedResources(QStringLiteral(""));
    resource->setAnnAudience(QStringLiteral("user"));
    resource->setAnnPriority(0.0);
    return resource;
}
