#include "store/StoreEntity.h"

#include "store/PromptArguments.h"
#include "store/PromptConfig.h"
#include "store/ResourceConfig.h"
#include "store/ServerConfig.h"
#include "store/ToolInSchemaParams.h"
#include "store/ToolInputSchema.h"
#include "store/ToolOutSchemeParams.h"
#include "store/ToolOutputSchema.h"
#include "store/ToolsConfig.h"

#include <array>

namespace {

std::array<StoreEntityInfo, storeEntityCount> makeInfos()
{
    // Each record type describes its own columns; the two schema and the two parameter
    // entities share theirs.
    return {{
        {StoreEntity::ServerConfig, QStringLiteral("ServerConfig"), ServerConfig::columnLayout(), std::nullopt, QString()},
        {StoreEntity::ToolsConfig, QStringLiteral("ToolsConfig"), ToolsConfig::columnLayout(), std::nullopt, QString()},
        {StoreEntity::ToolInputSchema, QStringLiteral("ToolInputSchema"), ToolInputSchema::columnLayout(),
         StoreEntity::ToolsConfig, QStringLiteral("toolConfig")},
        {StoreEntity::ToolOutputSchema, QStringLiteral("ToolOutputSchema"), ToolOutputSchema::columnLayout(),
         StoreEntity::ToolsConfig, QStringLiteral("toolConfig")},
        {StoreEntity::ToolInSchemaParams, QStringLiteral("ToolInSchemaParams"), ToolInSchemaParams::columnLayout(),
         StoreEntity::ToolInputSchema, QStringLiteral("toolInputSchema")},
        {StoreEntity::ToolOutSchemeParams, QStringLiteral("ToolOutSchemeParams"), ToolOutSchemeParams::columnLayout(),
         StoreEntity::ToolOutputSchema, QStringLiteral("toolOutputSchema")},
        {StoreEntity::ResourceConfig, QStringLiteral("ResourceConfig"), ResourceConfig::columnLayout(), std::nullopt,
         QString()},
        {StoreEntity::PromptConfig, QStringLiteral("PromptConfig"), PromptConfig::columnLayout(), std::nullopt, QString()},
        {StoreEntity::PromptArguments, QStringLiteral("PromptArguments"), PromptArguments::columnLayout(),
         StoreEntity::PromptConfig, QStringLiteral("promptConfig")},
    }};
}

const std::array<StoreEntityInfo, storeEntityCount> &infos()
{
    static const auto all = makeInfos();
    return all;
}

}  // namespace

const StoreEntityInfo &storeEntityInfo(StoreEntity entity) { return infos()[static_cast<int>(entity)]; }

QString storeEntityName(StoreEntity entity) { return storeEntityInfo(entity).name; }

std::optional<StoreEntity> storeEntityFromName(const QString &name)
{
    for (const StoreEntityInfo &info : infos()) {
        if (info.name == name)
            return info.entity;
    }
    return std::nullopt;
}
