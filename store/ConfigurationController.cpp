#include "store/ConfigurationController.h"

#include "base/AppPaths.h"
#include "base/AtomicFile.h"
#include "base/UserDefaults.h"
#include "diagnostics/LogController.h"
#include "engine/bridge/MCPServerBridge.h"
#include "base/AbstractController.h"
#include "store/PersistenceController.h"
#include "store/PromptArguments.h"
#include "store/PromptConfig.h"
#include "store/PromptQueryService.h"
#include "tools/router/PromptMessages.h"
#include "store/ResourceConfig.h"
#include "store/ResourceQueryService.h"
#include "store/StoreContext.h"
#include "store/ToolInSchemaParams.h"
#include "store/ToolInputSchema.h"
#include "store/ToolOutSchemeParams.h"
#include "store/ToolOutputSchema.h"
#include "store/ToolsConfig.h"
#include "store/ToolsQueryService.h"
#include "tools/router/MCPServer.h"
#include "tools/scripting/PluginScripting.h"
#include "tools/security/BookmarkController.h"
#include "tools/security/FileAccessPolicy.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QMetaObject>
#include <QStandardPaths>
#include <QStringDecoder>
#include <QUrl>
#include <QUuid>

#include <algorithm>
#include <dirent.h>
#include <sys/stat.h>

namespace {

// Eight hex digits of a name's SHA-256: the same name always gives the same file.
QString shortHash(const QString &text)
{
    return QString::fromLatin1(QCryptographicHash::hash(text.toUtf8(), QCryptographicHash::Sha256).toHex().left(8));
}

// A script named relative to a bundle is found beside it: a bundle travels as a folder.
std::optional<QString> bundlePath(const std::optional<QString> &name, const QString &root)
{
    if (!name || name->isEmpty() || !QDir::isRelativePath(*name))
        return name;
    return QDir::cleanPath(QDir(root).absoluteFilePath(*name));
}

// Folds the parameters of a tool's input or output schemas into one file schema.
template <class Schema>
Result<JSONToolSchema> mergeSchemas(const QList<Schema *> &schemas, const QString &missingName)
{
    JSONToolSchema merged;
    merged.type = QStringLiteral("object");
    QStringList required;
    for (const Schema *schema : schemas) {
        for (const auto *param : ToolsQueryService::sortedProperties(schema)) {
            const std::optional<QString> name = param->parameterName();
            if (!name || name->isEmpty())
                return TransferError::invalidConfig(missingName).toAppError();
            JSONToolSchemaProperty property;
            property.type = param->parameterType().value_or(QStringLiteral("string"));
            property.schemaDescription = param->parameterDescription().value_or(QString());
            property.defaultValue = param->defaultValue();
            property.name = *name;
            if (ToolsQueryService::hasItems(param->itemType()))
                property.items = JSONToolSchemaPropertyItems{*param->itemType(), param->items()};
            merged.properties.insert(*name, property);
        }
        // A later schema's list replaces an earlier one.
        if (const std::optional<QString> names = schema->requiredParams(); names && !names->isEmpty())
            required = ConfigurationController::splitList(*names);
    }
    if (!required.isEmpty())
        merged.required = required;
    return merged;
}

template <class SchemaRecord, class ParamRecord>
void insertSchema(StoreContext *context, ToolsConfig *tool, const JSONToolSchema &schema,
                  void (ToolsConfig::*addSchema)(SchemaRecord *))
{
    auto *record = context->insert<SchemaRecord>();
    record->setId(QUuid::createUuid());
    record->setType(schema.type);
    if (schema.required)
        record->setRequiredParams(schema.required->join(QStringLiteral(", ")));
    (tool->*addSchema)(record);
    for (auto it = schema.properties.cbegin(); it != schema.properties.cend(); ++it) {
        const JSONToolSchemaProperty &property = it.value();
        auto *param = context->insert<ParamRecord>();
        param->setId(QUuid::createUuid());
        param->setParameterName(it.key());
        param->setParameterType(property.type);
        param->setParameterDescription(property.schemaDescription);
        param->setDefaultValue(property.defaultValue.value_or(QString()));
        if (property.items) {
            param->setItemType(property.items->type);
            param->setItems(property.items->content.value_or(QString()));
        } else {
            param->setItemType(QStringLiteral("null"));
            param->setItems(QString());
        }
        record->addPropertiesObject(param);
    }
}

QString directoryURLText(const QString &path)
{
    return QUrl::fromLocalFile(QDir::cleanPath(path) + QLatin1Char('/')).toString();
}

}  // namespace

QString ConfigurationController::applicationExportRoot()
{
    // Without a data location there is no place for the exported bundle.
    const bool hasDataLocation = !QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation).isEmpty();
    return hasDataLocation ? AppPaths::preferencesDir() : QString();
}

ConfigurationController::ConfigurationController(StoreContext *context, MCPServer *router, QString exportRoot,
                                                 QString builtinRoot, QObject *parent)
    : QObject(parent),
      m_context(context),
      m_router(router),
      m_logger(router->logger()),
      m_exportRoot(std::move(exportRoot)),
      m_builtinRoot(std::move(builtinRoot))
{
}

ConfigurationController::~ConfigurationController() = default;

QString ConfigurationController::folderName(Directory directory)
{
    switch (directory) {
    case Directory::tools:
        return QStringLiteral("Tools");
    case Directory::resources:
        return QStringLiteral("Resources");
    case Directory::prompts:
        break;
    }
    return QStringLiteral("Prompts");
}

QString ConfigurationController::fileName(const std::optional<QString> &name, const QString &fallback)
{
    static const QString separators = QStringLiteral("/\\:*?\"<>|");
    QString result;
    const QString source = name.value_or(fallback);
    result.reserve(source.size() + 5);
    for (const QChar c : source)
        result += separators.contains(c) ? QChar(u'_') : c;
    result = result.toLower();
    // File systems take 255 bytes a name; leave room for a suffix of uniqueFileName.
    constexpr qsizetype maxStemBytes = 200;
    if (result.toUtf8().size() > maxStemBytes) {
        const QString hash = shortHash(source);
        QString stem;
        for (const QChar c : result) {
            if ((stem + c).toUtf8().size() > maxStemBytes - hash.size() - 1)
                break;
            stem += c;
        }
        // A surrogate pair cut in half would not encode.
        if (!stem.isEmpty() && stem.back().isHighSurrogate())
            stem.chop(1);
        result = stem + QLatin1Char('-') + hash;
    }
    return result + QStringLiteral(".json");
}

QString ConfigurationController::uniqueFileName(const std::optional<QString> &name, const QString &fallback,
                                                QSet<QString> &taken)
{
    const QString plain = fileName(name, fallback);
    QString chosen = plain;
    if (taken.contains(chosen)) {
        const QString stem = plain.chopped(5) + QLatin1Char('-') + shortHash(name.value_or(fallback));
        chosen = stem + QStringLiteral(".json");
        for (int n = 2; taken.contains(chosen); ++n)
            chosen = stem + QLatin1Char('-') + QString::number(n) + QStringLiteral(".json");
    }
    taken.insert(chosen);
    return chosen;
}

QStringList ConfigurationController::splitList(const QString &text)
{
    // Empty parts go before the trim, so a part of blanks alone stays, as an empty entry:
    // the list is exported as written.
    QStringList items;
    for (const QString &part : text.split(QLatin1Char(','), Qt::SkipEmptyParts))
        items.append(part.trimmed());
    return items;
}

QString ConfigurationController::importSummary(const ImportResult &result)
{
    return QStringLiteral("Import complete \u2014 %1 tools, %2 resources, %3 prompts imported.")
        .arg(result.importedTools)
        .arg(result.importedResources)
        .arg(result.importedPrompts);
}

// ---- conversions ----

QString ConfigurationController::compactText(const QJsonObject &object)
{
    return QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact));
}

std::optional<QJsonObject> ConfigurationController::storedObject(const std::optional<QString> &text)
{
    if (!text || text->isEmpty())
        return std::nullopt;
    const QJsonDocument document = QJsonDocument::fromJson(text->toUtf8());
    if (!document.isObject())
        return std::nullopt;
    return document.object();
}

Result<JSONToolConfig> ConfigurationController::toolConfig(const ToolsConfig *tool)
{
    JSONToolConfig config;
    config.name = tool->name().value_or(QString());
    config.title = tool->title();
    config.toolDescription = tool->toolDescription().value_or(QString());
    config.execHandler = tool->handlerName().value_or(QString());
    config.execMethod = tool->methodName().value_or(QString());
    config.pluginName = tool->pluginName().value_or(QString());
    config.toolType = tool->toolType().value_or(QString());
    config.scriptName = tool->scriptFileName().value_or(QString());
    config.annotations = JSONAnnotations::exportDefaults();
    config.annotations.setHints(storedObject(tool->annotationHints()).value_or(QJsonObject()));
    auto input = mergeSchemas(ToolsQueryService::sortedInputSchemas(tool),
                              QStringLiteral("Parameter input schema name missing."));
    if (!input)
        return input.error();
    auto output = mergeSchemas(ToolsQueryService::sortedOutputSchemas(tool),
                               QStringLiteral("Parameter output schema name missing."));
    if (!output)
        return output.error();
    config.inputSchema = *input;
    config.outputSchema = *output;
    config.inputSchema.document = storedObject(tool->inputSchemaJson());
    config.outputSchema.document = storedObject(tool->outputSchemaJson());
    return config;
}

JSONResourceConfig ConfigurationController::resourceConfig(const ResourceConfig *resource)
{
    JSONResourceConfig config;
    const std::optional<QUrl> uri = resource->uri();
    config.uri = uri ? uri->toString(QUrl::FullyEncoded) : QString();
    // A template keeps its braces and operators as written, which a URL would escape.
    if (resource->type() == QLatin1String("template"))
        config.uri = QUrl::fromPercentEncoding(config.uri.toUtf8());
    config.values = storedObject(resource->completionValues());
    config.script = resource->scriptFileName();
    config.valuesScript = resource->valuesScript();
    config.name = resource->name().value_or(QString());
    config.resourceDescription = resource->resourceDescription().value_or(QString());
    config.mimeType = resource->mimeType().value_or(QString());
    config.type = resource->type().value_or(QString());
    config.contextTags = resource->contextTags().value_or(QString());
    config.relatedResources = resource->relatedResources().value_or(QString());
    const std::optional<QString> audience = resource->annAudience();
    config.annotations.audience =
        audience ? splitList(*audience) : QStringList{QStringLiteral("user"), QStringLiteral("assistant")};
    config.annotations.priority = resource->annPriority().value_or(ResourceQueryService::defaultPriority);
    config.annotations.lastModified = JSONAnnotations::currentTimestamp();
    return config;
}

JSONPromptConfig ConfigurationController::promptConfig(const PromptConfig *prompt)
{
    JSONPromptConfig config;
    config.name = prompt->name().value_or(QString());
    config.promptDescription = prompt->promptDescription().value_or(QString());
    config.templateText = prompt->templateText().value_or(QString());
    config.messages = PromptMessages::fromText(prompt->messagesJson().value_or(QString()));
    for (const PromptArguments *argument : PromptQueryService::sortedArguments(prompt)) {
        JSONPromptArgument entry{argument->name().value_or(QString()), argument->info().value_or(QString()),
                                 argument->required(), std::nullopt};
        if (const std::optional<QString> values = argument->completionValues()) {
            QStringList list;
            for (const QJsonValue &value : QJsonDocument::fromJson(values->toUtf8()).array())
                list.append(value.toString());
            entry.values = list;
        }
        entry.valuesScript = argument->valuesScript();
        config.arguments.append(entry);
    }
    return config;
}

// ---- export ----

void ConfigurationController::logFailure(const QString &text)
{
    m_logger->log(text, -1, MCPLogMessageType::Info);
}

Result<ExportResult> ConfigurationController::exportConfiguration()
{
    auto failWith = [](const TransferError &e) -> Result<ExportResult> { return e.toAppError(); };
    if (m_exportRoot.isEmpty())
        return failWith(TransferError::invalidPath(QStringLiteral("Unable to get app sandbox library directory")));

    const QDir root(m_exportRoot);
    for (Directory directory : m_subdirectories) {
        const QString path = root.filePath(folderName(directory));
        const QFileInfo info(path);
        // A link is removed itself, never what it points to.
        const bool removed = info.isSymLink() || info.isFile() ? QFile::remove(path)
                             : info.exists()                   ? QDir(path).removeRecursively()
                                                               : true;
        if (!removed)
            return failWith(TransferError::unknown(QStringLiteral("Could not remove the folder '%1'.").arg(path)));
    }
    for (Directory directory : m_subdirectories) {
        const QString path = root.filePath(folderName(directory));
        if (!QDir().mkpath(path))
            return failWith(TransferError::unknown(QStringLiteral("Could not create the folder '%1'.").arg(path)));
    }

    // From here on the engine holds only what this export registers.
    m_router->bridge()->resetRegistry();

    ExportResult result;
    const Result<QList<ToolsConfig *>> tools = ToolsQueryService::fetchTools(m_context);
    if (!tools)
        return failWith(TransferError::unknown(tools.error().description));
    exportKind(*tools, root.filePath(folderName(Directory::tools)), QStringLiteral("tool"), QStringLiteral("tool"),
               result.exportedTools, result.toolsErrors,
               [](const ToolsConfig *tool) { return toolConfig(tool); });

    const Result<QList<ResourceConfig *>> resources = ResourceQueryService::fetchResourceConfigs(m_context);
    if (!resources)
        return failWith(TransferError::unknown(resources.error().description));
    exportKind(*resources, root.filePath(folderName(Directory::resources)), QStringLiteral("Resource"),
               QStringLiteral("resource"), result.exportedResources, result.resourcesErrors,
               [](const ResourceConfig *resource) { return Result<JSONResourceConfig>(resourceConfig(resource)); });

    const Result<QList<PromptConfig *>> prompts = PromptQueryService::fetchPrompts(m_context);
    if (!prompts)
        return failWith(TransferError::unknown(prompts.error().description));
    exportKind(*prompts, root.filePath(folderName(Directory::prompts)), QStringLiteral("prompt"),
               QStringLiteral("prompt"), result.exportedPrompts, result.promptsErrors,
               [](const PromptConfig *prompt) -> Result<JSONPromptConfig> {
                   // Messages being typed on the Prompts screen may not be whole yet: the file waits for them.
                   if (const auto problem = PromptMessages::textProblem(prompt->messagesJson().value_or(QString())))
                       return TransferError::invalidConfig(*problem).toAppError();
                   return promptConfig(prompt);
               });
    return result;
}

void ConfigurationController::registerRecord(const JSONToolConfig &config)
{
    // What the server runs on request is never rewritten through its own tools.
    if (config.toolType == QLatin1String("ScriptTool"))
        FileAccessPolicy::addScriptSource(PluginScripting::resolvedScriptPath(config.scriptName));
    MCPServer *router = m_router;
    // The handler keeps its own copy of the record for as long as the tool is registered.
    m_router->bridge()->registerTool(config.toVariant(), [router, config](const QJsonObject &arguments,
                                                                          const ToolInvocation &call) {
        return std::optional<QJsonValue>(router->handleToolCall(arguments, config, call).toJsonObject());
    });
}

namespace {
// Completion values from the scripts a record names, run as the router runs them.
MCPServerBridge::CompletionRunner scriptCompletions(MCPServer *router)
{
    return [router](const QString &script, const QString &argument, const QString &typed, const QVariantMap &given) {
        return router->completeWithScript(script, argument, typed, given);
    };
}
}  // namespace

void ConfigurationController::registerRecord(const JSONResourceConfig &config)
{
    MCPServer *router = m_router;
    const QString script = config.script.value_or(QString());
    for (const std::optional<QString> &named : {config.script, config.valuesScript})
        if (named && !named->isEmpty())
            FileAccessPolicy::addScriptSource(PluginScripting::resolvedScriptPath(*named));
    m_router->bridge()->registerResource(
        config.toVariant(),
        [router, script](const QVariantMap &resource) {
            return script.isEmpty() ? router->handleResource(resource) : router->readScriptResource(resource, script);
        },
        scriptCompletions(router));
}

void ConfigurationController::registerRecord(const JSONPromptConfig &config)
{
    MCPServer *router = m_router;
    for (const JSONPromptArgument &argument : config.arguments)
        if (argument.valuesScript && !argument.valuesScript->isEmpty())
            FileAccessPolicy::addScriptSource(PluginScripting::resolvedScriptPath(*argument.valuesScript));
    m_router->bridge()->registerPrompt(
        config.toVariant(), [router](const QVariantMap &params) { return router->handlePrompt(params); },
        scriptCompletions(router));
}

template <class Record, class Convert>
void ConfigurationController::exportKind(const QList<Record *> &records, const QString &folder,
                                         const QString &fallback, const QString &kindWord, int &count,
                                         QStringList &errors, Convert convert)
{
    QSet<QString> taken;
    for (Record *record : records) {
        // The conversion's own error, or why the converted record was not written.
        auto written = [&]() -> decltype(convert(record)) {
            auto config = convert(record);
            if (!config)
                return config;
            const QString path = QDir(folder).filePath(uniqueFileName(record->name(), fallback, taken));
            const QByteArray data = QJsonDocument(config->toJson()).toJson(QJsonDocument::Indented);
            if (data.isEmpty())
                return TransferError::encodingFailed(QStringLiteral("The record could not be written as JSON.")).toAppError();
            if (const std::optional<QString> failure = AtomicFile::write(path, data))
                return TransferError::writeFailed(QStringLiteral("'%1': %2").arg(path, *failure)).toAppError();
            return config;
        }();
        if (!written) {
            const QString text = QStringLiteral("Failed to export %1 '%2': %3")
                                     .arg(kindWord, record->name().value_or(QStringLiteral("unknown")),
                                          written.error().description);
            errors.append(text);
            logFailure(text);
            continue;
        }
        const auto &config = written;
        registerRecord(*config);
        ++count;
    }
}

// ---- import ----

Result<ImportResult> ConfigurationController::importBuiltinConfiguration(AbstractController *controller,
                                                                         ImportMode mode)
{
    if (m_builtinRoot.isEmpty() || !QFileInfo(m_builtinRoot).isDir())
        return TransferError::invalidBundle(QStringLiteral("The built-in configuration was not found at '%1'.")
                                                .arg(m_builtinRoot))
            .toAppError();
    m_importMode = mode;
    Result<ImportResult> result = importBundle(m_builtinRoot, controller);
    m_importMode = ImportMode::append;
    return result;
}

bool ConfigurationController::holdsNoRecords() const
{
    for (const StoreEntity entity : {StoreEntity::ToolsConfig, StoreEntity::ResourceConfig, StoreEntity::PromptConfig}) {
        const Result<QList<StoreRecord *>> found = m_context->execute(FetchRequest::forEntity(entity));
        if (!found || !found->isEmpty())
            return false;
    }
    return true;
}

bool ConfigurationController::alreadyStored(Directory directory, const QString &name) const
{
    auto named = [&name](const auto &records) {
        return std::any_of(records.begin(), records.end(), [&name](const auto *record) { return record->name() == name; });
    };
    if (directory == Directory::tools)
        return named(m_context->fetch<ToolsConfig>(FetchRequest::forEntity(StoreEntity::ToolsConfig)).valueOr({}));
    if (directory == Directory::resources)
        return named(m_context->fetch<ResourceConfig>(FetchRequest::forEntity(StoreEntity::ResourceConfig)).valueOr({}));
    return named(m_context->fetch<PromptConfig>(FetchRequest::forEntity(StoreEntity::PromptConfig)).valueOr({}));
}

qint64 ConfigurationController::maxImportFileBytes()
{
    bool ok = false;
    const qint64 stored = UserDefaults::standard()->value(maxImportFileBytesKey).toLongLong(&ok);
    return ok && stored > 0 ? stored : qint64(16) << 20;
}

QStringList ConfigurationController::undecodableJsonNames(const QString &folder)
{
    QStringList names;
    DIR *directory = ::opendir(QFile::encodeName(folder).constData());
    if (!directory)
        return names;
    while (const dirent *item = ::readdir(directory)) {
        const QByteArray raw(item->d_name);
        if (!raw.endsWith(".json"))
            continue;
        QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
        const QString decoded = decoder.decode(raw);
        if (decoder.hasError())
            names.append(decoded);  // shown with replacement characters where bytes were not UTF-8
    }
    ::closedir(directory);
    names.sort();
    return names;
}

Result<ImportResult> ConfigurationController::importConfiguration(const QString &folder,
                                                                  AbstractController *controller)
{
    BookmarkController *scopes = BookmarkController::shared();
    const QUrl url = QUrl::fromLocalFile(folder);
    // A scope that was already open (a stored choice) stays open afterwards.
    const bool wasOpen = scopes->isAccessActive(url);
    if (!scopes->startAccess(url))
        return TransferError::invalidPath(cannotAccessFolderText).toAppError();
    Result<ImportResult> result = importBundle(folder, controller);
    if (!wasOpen)
        scopes->stopAccess(url);
    return result;
}

Result<ImportResult> ConfigurationController::importBundle(const QString &root, AbstractController *controller)
{
    ImportResult result;
    // A folder that cannot be listed ends the whole import there.
    if (auto kind = importKind(Directory::tools, root, result.importedTools, result.toolsErrors); !kind)
        return kind.error();
    if (auto kind = importKind(Directory::resources, root, result.importedResources, result.resourcesErrors); !kind)
        return kind.error();
    if (auto kind = importKind(Directory::prompts, root, result.importedPrompts, result.promptsErrors); !kind)
        return kind.error();
    if (controller)
        QMetaObject::invokeMethod(controller, [controller] { controller->reload(); }, Qt::QueuedConnection);
    return result;
}

Result<void> ConfigurationController::importKind(Directory directory, const QString &root, int &count,
                                                 QStringList &errors)
{
    const QString folder = QDir(root).filePath(folderName(directory));
    if (!QFileInfo(folder).isDir()) {
        count = 0;
        errors = QStringList{folderName(directory) + QStringLiteral(" directory not found: ") + directoryURLText(folder)};
        return {};
    }
    const QDir dir(folder);
    if (!dir.isReadable())
        return TransferError::readFailed(QStringLiteral("The folder '%1' cannot be listed.").arg(folder)).toAppError();
    const QFileInfoList entries =
        dir.entryInfoList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System, QDir::Name);
    static const QHash<Directory, QString> kindWords{{Directory::tools, QStringLiteral("tool")},
                                                     {Directory::resources, QStringLiteral("resource")},
                                                     {Directory::prompts, QStringLiteral("prompt")}};
    auto failed = [&](const QString &name, const QString &description) {
        const QString text = QStringLiteral("Failed to import %1 from '%2': %3").arg(kindWords.value(directory), name, description);
        errors.append(text);
        logFailure(text);
    };
    // Names the file system holds that are not UTF-8 cannot be named by the listing above.
    for (const QString &name : undecodableJsonNames(folder))
        failed(name, QStringLiteral("the file name is not valid UTF-8; rename the file to import it"));
    const qint64 maxBytes = maxImportFileBytes();
    for (const QFileInfo &entry : entries) {
        // Only "json" exactly: "x.JSON" is passed over without a word.
        if (entry.suffix() != QLatin1String("json"))
            continue;
        TransferError fileError;
        bool ok = false;
        QFile file(entry.filePath());
        // Looked at before opening: opening a FIFO would wait for a writer for ever.
        struct stat st {};
        const bool found = ::stat(QFile::encodeName(entry.filePath()).constData(), &st) == 0;
        if (found && S_ISDIR(st.st_mode)) {
            fileError = TransferError::readFailed(QStringLiteral("Is a directory"));
        } else if (found && !S_ISREG(st.st_mode)) {
            fileError = TransferError::readFailed(QStringLiteral("Not a regular file (a FIFO, a device or a socket)"));
        } else if (found && st.st_size > maxBytes) {
            fileError = TransferError::readFailed(
                QStringLiteral("The file is larger than %1 bytes, the limit of %2").arg(maxBytes).arg(maxImportFileBytesKey));
        } else if (!file.open(QIODevice::ReadOnly)) {
            fileError = TransferError::readFailed(file.errorString());
        } else {
            const QByteArray data = file.readAll();
            AppError reason;
            ok = true;
            bool skipped = false;
            auto missing = [&](const QString &name) {
                skipped = m_importMode == ImportMode::onlyMissing && alreadyStored(directory, name);
                return !skipped;
            };
            if (directory == Directory::tools) {
                if (const Result<JSONToolConfig> config = JSONToolConfig::fromJsonData(data)) {
                    if (missing(config->name))
                        insertTool(*config, root);
                } else {
                    ok = false;
                    reason = config.error();
                }
            } else if (directory == Directory::resources) {
                if (const Result<JSONResourceConfig> config = JSONResourceConfig::fromJsonData(data)) {
                    if (missing(config->name))
                        insertResource(*config, root);
                } else {
                    ok = false;
                    reason = config.error();
                }
            } else {
                if (const Result<JSONPromptConfig> config = JSONPromptConfig::fromJsonData(data)) {
                    if (missing(config->name))
                        insertPrompt(*config, root);
                } else {
                    ok = false;
                    reason = config.error();
                }
            }
            if (skipped)
                continue;
            if (!ok) {
                fileError = TransferError::decodingFailed(reason.description);
            } else {
                // Each file is saved by itself; a failed save leaves its records pending.
                if (const Result<void> saved = m_context->save(); !saved) {
                    ok = false;
                    fileError = TransferError::saveFailed(saved.error().description);
                }
            }
        }
        if (!ok) {
            failed(entry.fileName(), fileError.description());
            continue;
        }
        ++count;
    }
    return {};
}

void ConfigurationController::insertTool(const JSONToolConfig &config, const QString &root)
{
    auto *tool = m_context->insert<ToolsConfig>();
    tool->setId(QUuid::createUuid());
    tool->setName(config.name);
    tool->setToolDescription(config.toolDescription);
    tool->setMethodName(config.execMethod);
    tool->setHandlerName(config.execHandler);
    tool->setToolType(config.toolType);
    tool->setPluginName(config.pluginName);
    // A bundle travels as a folder, so a script named relative to it is found beside it.
    QString scriptName = config.scriptName;
    if (!scriptName.isEmpty() && QDir::isRelativePath(scriptName))
        scriptName = QDir::cleanPath(QDir(root).absoluteFilePath(scriptName));
    tool->setScriptFileName(scriptName);
    tool->setTitle(config.title);
    if (const QJsonObject hints = config.annotations.hintsJson(); !hints.isEmpty())
        tool->setAnnotationHints(compactText(hints));
    if (config.inputSchema.document)
        tool->setInputSchemaJson(compactText(*config.inputSchema.document));
    if (config.outputSchema.document)
        tool->setOutputSchemaJson(compactText(*config.outputSchema.document));
    insertSchema<ToolInputSchema, ToolInSchemaParams>(m_context, tool, config.inputSchema,
                                                      &ToolsConfig::addInputSchemasObject);
    insertSchema<ToolOutputSchema, ToolOutSchemeParams>(m_context, tool, config.outputSchema,
                                                        &ToolsConfig::addOutputSchmasObject);
}

void ConfigurationController::insertResource(const JSONResourceConfig &config, const QString &root)
{
    auto *resource = m_context->insert<ResourceConfig>();
    resource->setId(QUuid::createUuid());
    resource->setName(config.name);
    resource->setResourceDescription(config.resourceDescription);
    // A template's braces are no URL characters: kept escaped, given back as written.
    const QUrl uri(config.uri, config.type == QLatin1String("template") ? QUrl::TolerantMode : QUrl::StrictMode);
    if (!config.uri.isEmpty() && uri.isValid())
        resource->setUri(uri);
    if (config.values)
        resource->setCompletionValues(compactText(*config.values));
    resource->setScriptFileName(bundlePath(config.script, root));
    resource->setValuesScript(bundlePath(config.valuesScript, root));
    resource->setMimeType(config.mimeType);
    resource->setType(config.type);
    resource->setContextTags(config.contextTags);
    resource->setRelatedResources(config.relatedResources);
    resource->setAnnAudience(config.annotations.audience.join(QStringLiteral(", ")));
    resource->setAnnPriority(config.annotations.priority);
}

void ConfigurationController::insertPrompt(const JSONPromptConfig &config, const QString &root)
{
    auto *prompt = m_context->insert<PromptConfig>();
    prompt->setId(QUuid::createUuid());
    prompt->setName(config.name);
    prompt->setPromptDescription(config.promptDescription);
    prompt->setTemplateText(config.templateText);
    if (config.messages)
        prompt->setMessagesJson(QString::fromUtf8(QJsonDocument(*config.messages).toJson(QJsonDocument::Indented)));
    for (const JSONPromptArgument &argument : config.arguments) {
        auto *record = m_context->insert<PromptArguments>();
        record->setId(QUuid::createUuid());
        record->setName(argument.name);
        record->setInfo(argument.argumentDescription);
        record->setRequired(argument.required);
        if (argument.values)
            record->setCompletionValues(QString::fromUtf8(
                QJsonDocument(QJsonArray::fromStringList(*argument.values)).toJson(QJsonDocument::Compact)));
        record->setValuesScript(bundlePath(argument.valuesScript, root));
        prompt->addArgumentsObject(record);
    }
}
