#pragma once

#include "base/Result.h"
#include "store/ExportResult.h"
#include "store/ImportResult.h"
#include "store/TransferError.h"
#include "tools/router/JSONPromptConfig.h"
#include "tools/router/JSONResourceConfig.h"
#include "tools/router/JSONToolConfig.h"

#include <QList>
#include <QObject>
#include <QSet>
#include <QString>
#include <optional>

class AbstractController;
class BookmarkController;
class LogController;
class MCPServer;
class PromptConfig;
class ResourceConfig;
class StoreContext;
class ToolsConfig;

// Turns the store into a configuration bundle (three folders of JSON files, "Tools",
// "Resources" and "Prompts") and back.
//
// Export wipes and rewrites the exported bundle and, at the same time, publishes every
// written record to the engine: the registry is reset once the folders are ready, and each
// record is registered with the bridge, its handler, provider or renderer leading to the
// router. Import appends the records of a bundle to the store; it never deletes and never
// merges, so a folder imported twice gives every record twice.
//
// Main thread only: it works on the store's one context.
class ConfigurationController : public QObject {
    Q_OBJECT

public:
    enum class Directory { tools, resources, prompts };

    // Over the shared store, router and log; exports to AppPaths::preferencesDir() and
    // imports the built-in bundle from AppPaths::builtinConfigurationDir().
    static ConfigurationController *shared();

    // exportRoot empty: export fails with invalidPath.
    ConfigurationController(StoreContext *context, MCPServer *router, QString exportRoot, QString builtinRoot,
                            QObject *parent = nullptr);
    ~ConfigurationController() override;

    QString exportRoot() const { return m_exportRoot; }
    QString builtinRoot() const { return m_builtinRoot; }
    // tools, resources, prompts.
    const QList<Directory> &subdirectories() const { return m_subdirectories; }
    static QString folderName(Directory directory);

    // A TransferError (as an AppError) when the whole export ended; per-record failures are
    // in the result's lists and the log.
    Result<ExportResult> exportConfiguration();
    // Both imports reload the given controller's list afterwards.
    //
    // onlyMissing: a record is left out when the store has one of the same kind and name
    // already, so that importing the same bundle again adds nothing; left-out files are
    // neither counted nor errors.
    enum class ImportMode { append, onlyMissing };
    Result<ImportResult> importBuiltinConfiguration(AbstractController *controller = nullptr,
                                                    ImportMode mode = ImportMode::append);
    // True while the store holds no tool, resource and prompt at all (also when it cannot be
    // read: nothing is imported over a store that fails).
    bool holdsNoRecords() const;
    // The user's folder, inside an opened security scope. A scope that cannot be opened
    // gives invalidPath with cannotAccessFolderText.
    Result<ImportResult> importConfiguration(const QString &folder, AbstractController *controller = nullptr);
    static inline const QString cannotAccessFolderText = QStringLiteral("Cannot access the selected directory.");

    // The file name of a record: its name (or the fallback) split at / \ : * ? " < > |,
    // joined with "_", lower-cased, with ".json". A name too long for a file name keeps its
    // start and gets a short hash of the whole name instead of the rest.
    static QString fileName(const std::optional<QString> &name, const QString &fallback);
    // fileName, made unique among the names already `taken` in one folder (they are lower
    // case, so names that differ only in case would share a file): a later one gets a short
    // hash of its exact name, then a number. Adds the result to `taken`.
    static QString uniqueFileName(const std::optional<QString> &name, const QString &fallback, QSet<QString> &taken);

    // The in-memory forms of store records, as export writes them. A tool fails with
    // invalidConfig when a schema parameter has no name.
    static Result<JSONToolConfig> toolConfig(const ToolsConfig *tool);
    static JSONResourceConfig resourceConfig(const ResourceConfig *resource);
    static JSONPromptConfig promptConfig(const PromptConfig *prompt);
    // A comma list as exported: "a, b ,,c" gives a, b, c; "a, ,c" keeps its blank part as "".
    static QStringList splitList(const QString &text);
    // A JSON Object kept in a text column, and back; text that holds no Object reads as none.
    static QString compactText(const QJsonObject &object);
    static std::optional<QJsonObject> storedObject(const std::optional<QString> &text);

    // The texts the menus show.
    static inline const QString exportCompletedText = QStringLiteral(
        "Export completed, MCP server updated, and configuration written to the application support directory.");
    static inline const QString importCompleteText = QStringLiteral("Import complete");
    // "Import complete — 2 tools, 1 resources, 0 prompts imported."
    static QString importSummary(const ImportResult &result);

    // The largest bundle file an import reads (16 MiB when unset); larger ones are refused
    // by name.
    static inline const QString maxImportFileBytesKey = QStringLiteral("mcp.import.maxFileBytes");
    static qint64 maxImportFileBytes();
    // The names ending in ".json" in the folder that are not valid UTF-8, as they show.
    static QStringList undecodableJsonNames(const QString &folder);

private:
    template <class Record, class Convert>
    void exportKind(const QList<Record *> &records, const QString &folder, const QString &fallback,
                    const QString &kindWord, int &count, QStringList &errors, Convert convert);
    void registerRecord(const JSONToolConfig &config);
    void registerRecord(const JSONResourceConfig &config);
    void registerRecord(const JSONPromptConfig &config);
    Result<ImportResult> importBundle(const QString &root, AbstractController *controller);
    // Imports one kind; fails when listing the folder failed (the whole import ends).
    Result<void> importKind(Directory directory, const QString &root, int &count, QStringList &errors);
    void importFile(Directory directory, const QString &root, const QString &path);
    // Whether onlyMissing leaves a record of this kind and name out.
    bool alreadyStored(Directory directory, const QString &name) const;
    void insertTool(const JSONToolConfig &config, const QString &root);
    void insertResource(const JSONResourceConfig &config, const QString &root);
    void insertPrompt(const JSONPromptConfig &config, const QString &root);
    void logFailure(const QString &text);

    StoreContext *m_context;
    MCPServer *m_router;
    LogController *m_logger;
    QString m_exportRoot;
    QString m_builtinRoot;
    ImportMode m_importMode = ImportMode::append;
    QList<Directory> m_subdirectories{Directory::tools, Directory::resources, Directory::prompts};
};
