#pragma once

#include <QList>
#include <QString>
#include <optional>

// The nine entities of the model "Kelvara". Each is one table of the same name; an owned
// entity also has the owner's key and its position in the owner's list.
enum class StoreEntity : int {
    ServerConfig,
    ToolsConfig,
    ToolInputSchema,
    ToolOutputSchema,
    ToolInSchemaParams,
    ToolOutSchemeParams,
    ResourceConfig,
    PromptConfig,
    PromptArguments,
};

inline constexpr int storeEntityCount = 9;

// How an entity is laid out in its table. Attribute columns come in the order the record
// classes bind and read them.
struct StoreEntityInfo {
    struct Column {
        QString name;
        QString sqlType;
    };
    StoreEntity entity;
    QString name;                      // entity and table name
    QList<Column> columns;             // attributes, without the key
    std::optional<StoreEntity> owner;  // owning entity, for owned records
    QString ownerColumn;               // the to-one relationship's name
};

const StoreEntityInfo &storeEntityInfo(StoreEntity entity);
QString storeEntityName(StoreEntity entity);
std::optional<StoreEntity> storeEntityFromName(const QString &name);
