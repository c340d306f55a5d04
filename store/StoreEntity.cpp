#include "store/StoreEntity.h"

#include <array>

namespace {

using Column = StoreEntityInfo::Column;

Column text(const char *name) { return {QString::fromLatin1(name), QStringLiteral("TEXT")}; }

std::array<StoreEntityInfo, storeEntityCount> makeInfos()
{
    const QList<Column> params{
        text("id"),           text("parameterName"), text("parameterType"), text("parameterDescription"),
        text("defaultValue"), text("itemType"),      text("items")};
    const QList<Column> schema{text("id"), text("type"), text("requiredParams")};
    return {{
        {StoreEntity::ServerConfig,
         QStringLiteral("ServerConfig"),
         {text("serverName"),
          text("serverTitle"),
          text("serverVersion"),
          text("instructions"),
          {QStringLiteral("port"), QStringLiteral("INTEGER NOT NULL DEFAULT 0")}},
         std::nullopt,
         QString()},
        {StoreEntity::ToolsConfig,
         QStringLiteral("ToolsConfig"),
         {text("id"), text("name"), text("title"), text("toolDescription"), text("toolType"), text("methodName"),
          text("handlerName"), text("pluginName"), text("scriptFileName")},
         std::nullopt,
         QString()},
        {StoreEntity::ToolInputSchema, QStringLiteral("ToolInputSchema"), schema, StoreEntity::ToolsConfig,
         QStringLiteral("toolConfig")},
        {StoreEntity::ToolOutputSchema, QStringLiteral("ToolOutputSchema"), schema, StoreEntity::ToolsConfig,
         QStringLiteral("toolConfig")},
        {StoreEntity::ToolInSchemaParams, QStringLiteral("ToolInSchemaParams"), params, StoreEntity::ToolInputSchema,
         QStringLiteral("toolInputSchema")},
        {StoreEntity::ToolOutSchemeParams, QStringLiteral("ToolOutSchemeParams"), params, StoreEntity::ToolOutputSchema,
         QStringLiteral("toolOutputSchema")},
        {StoreEntity::ResourceConfig,
         QStringLiteral("ResourceConfig"),
         {text("id"),
          text("name"),
          text("resourceDescription"),
          text("type"),
          text("mimeType"),
          text("uri"),
          text("contextTags"),
          text("relatedResources"),
          text("annAudience"),
          {QStringLiteral("annPriority"), QStringLiteral("REAL")},
          text("annLastModified")},
         std::nullopt,
         QString()},
        {StoreEntity::PromptConfig,
         QStringLiteral("PromptConfig"),
         {text("id"), text("name"), text("promptDescription"), text("template")},
         std::nullopt,
         QString()},
        {StoreEntity::PromptArguments,
         QStringLiteral("PromptArguments"),
         {text("id"),
          text("name"),
          text("info"),
          {QStringLiteral("required"), QStringLiteral("INTEGER NOT NULL DEFAULT 0")}},
         StoreEntity::PromptConfig,
         QStringLiteral("promptConfig")},
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
