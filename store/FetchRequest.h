#pragma once

#include "store/StoreEntity.h"

#include <QStringList>

// What a fetch asks of the context: one entity, optionally sorted by `name` ascending
// (missing names first, then code-point order), optionally limited, with the named
// relationships loaded along with the records.
struct FetchRequest {
    StoreEntity entity = StoreEntity::ToolsConfig;
    bool sortByName = false;
    int fetchLimit = 0;  // 0: no limit
    QStringList relationshipKeyPathsForPrefetching;

    static FetchRequest forEntity(StoreEntity entity) { return FetchRequest{entity, false, 0, {}}; }
};
