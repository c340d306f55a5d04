#include "store/StoredConfigurationLookup.h"

#include "base/AppError.h"
#include "base/MainThread.h"
#include "store/ConfigurationController.h"
#include "store/PersistenceController.h"
#include "store/PromptConfig.h"
#include "store/PromptQueryService.h"
#include "store/ResourceConfig.h"
#include "store/ResourceQueryService.h"

#include <QJsonDocument>
#include <QJsonObject>

namespace {

// The JSON text of the first record that `matches`. The store's context belongs to the main
// thread: the look-up runs there (directly when already there).
template <class Fetch, class Matches, class ToConfig>
ConfigurationLookup::Answer find(Fetch fetch, Matches matches, ToConfig toConfig)
{
    ConfigurationLookup::Answer answer = std::optional<QString>();
    MainThread::runBlocking([&] {
        const auto records = fetch(PersistenceController::shared()->viewContext());
        if (!records) {
            answer = records.error();
            return;
        }
        for (const auto *record : *records) {
            if (matches(record)) {
                answer = std::optional(QString::fromUtf8(QJsonDocument(toConfig(record).toJson()).toJson(QJsonDocument::Indented)));
                return;
            }
        }
    });
    return answer;
}

}  // namespace

ConfigurationLookup::Answer StoredConfigurationLookup::resourceConfig(const QString &name)
{
    return find(
        &ResourceQueryService::fetchResourceConfigs,
        [&name](const ResourceConfig *resource) {
            const std::optional<QString> resourceName = resource->name();
            return !name.isEmpty() && resourceName && resourceName->contains(name, Qt::CaseSensitive);
        },
        &ConfigurationController::resourceConfig);
}

ConfigurationLookup::Answer StoredConfigurationLookup::promptConfig(const QString &name)
{
    return find(
        &PromptQueryService::fetchPrompts,
        [&name](const PromptConfig *prompt) { return prompt->name().value_or(QString()) == name; },
        &ConfigurationController::promptConfig);
}
