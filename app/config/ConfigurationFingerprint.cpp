#include "app/config/ConfigurationFingerprint.h"

#include "store/ConfigurationController.h"
#include "store/PromptQueryService.h"
#include "store/ResourceQueryService.h"
#include "store/ServerConfig.h"
#include "store/ServerQueryService.h"
#include "store/ToolsQueryService.h"
#include "store/PromptConfig.h"
#include "store/ResourceConfig.h"
#include "store/ToolsConfig.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace {

// The export stamps annotations with the time of the export; what is served is the same
// whatever the time.
QJsonObject withoutTimestamp(QJsonObject record)
{
    QJsonObject annotations = record.value(QStringLiteral("annotations")).toObject();
    annotations.remove(QStringLiteral("lastModified"));
    record.insert(QStringLiteral("annotations"), annotations);
    return record;
}

}  // namespace

QByteArray ConfigurationFingerprint::ofStore(StoreContext *context)
{
    // Each kind in the order export registers it, as export writes it: two stores that
    // export alike serve alike.
    QJsonArray tools;
    for (const ToolsConfig *tool : ToolsQueryService::fetchTools(context).valueOr({})) {
        if (const auto config = ConfigurationController::toolConfig(tool))
            tools.append(withoutTimestamp(config->toJson()));
        else
            tools.append(QStringLiteral("unexportable: %1").arg(tool->name().value_or(QString())));
    }
    QJsonArray resources;
    for (const ResourceConfig *resource : ResourceQueryService::fetchResourceConfigs(context).valueOr({}))
        resources.append(withoutTimestamp(ConfigurationController::resourceConfig(resource).toJson()));
    QJsonArray prompts;
    for (const PromptConfig *prompt : PromptQueryService::fetchPrompts(context).valueOr({}))
        prompts.append(withoutTimestamp(ConfigurationController::promptConfig(prompt).toJson()));
    QJsonObject server;
    if (const ServerConfig *row = ServerQueryService::fetchServerConfig(context).valueOr(nullptr)) {
        server.insert(QStringLiteral("port"), row->port());
        server.insert(QStringLiteral("name"), row->serverName().value_or(QString()));
        server.insert(QStringLiteral("title"), row->serverTitle().value_or(QString()));
        server.insert(QStringLiteral("version"), row->serverVersion().value_or(QString()));
        server.insert(QStringLiteral("instructions"), row->instructions().value_or(QString()));
    }
    const QJsonObject all{{QStringLiteral("tools"), tools},
                          {QStringLiteral("resources"), resources},
                          {QStringLiteral("prompts"), prompts},
                          {QStringLiteral("server"), server}};
    return QJsonDocument(all).toJson(QJsonDocument::Compact);
}
