#pragma once

#include "base/Result.h"
#include "store/FetchRequest.h"

#include <QList>

class StoreContext;
class ResourceConfig;

// Read helpers and creation defaults for resources. Holds no state.
class ResourceQueryService {
public:
    // "ResourceConfig" by `name` ascending.
    static FetchRequest resourcesRequest();
    static Result<QList<ResourceConfig *>> fetchResourceConfigs(StoreContext *context);

    // A new resource with its creation defaults, pending in the context.
    static ResourceConfig *createResourceConfig(StoreContext *context);

    // What readers take for a missing `annPriority`.
    static constexpr double defaultPriority = 0.9;
};
