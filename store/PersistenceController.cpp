#include "store/PersistenceController.h"

#include "base/AppPaths.h"
#include "base/SystemLog.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace {

// Version 1: the nine entities, each owned one with its owner's key and list position.
// Written out literally so that later migrations start from a fixed shape.
const char *const schemaV1[] = {
    R"(CREATE TABLE "ServerConfig" ("pk" INTEGER PRIMARY KEY, "serverName" TEXT, "serverTitle" TEXT,
       "serverVersion" TEXT, "instructions" TEXT, "port" INTEGER NOT NULL DEFAULT 0))",
    R"(CREATE TABLE "ToolsConfig" ("pk" INTEGER PRIMARY KEY, "id" TEXT, "name" TEXT, "title" TEXT,
       "toolDescription" TEXT, "toolType" TEXT, "methodName" TEXT, "handlerName" TEXT, "pluginName" TEXT,
       "scriptFileName" TEXT))",
    R"(CREATE TABLE "ToolInputSchema" ("pk" INTEGER PRIMARY KEY, "id" TEXT, "type" TEXT, "requiredParams" TEXT,
       "toolConfig" INTEGER, "position" INTEGER))",
    R"(CREATE TABLE "ToolOutputSchema" ("pk" INTEGER PRIMARY KEY, "id" TEXT, "type" TEXT, "requiredParams" TEXT,
       "toolConfig" INTEGER, "position" INTEGER))",
    R"(CREATE TABLE "ToolInSchemaParams" ("pk" INTEGER PRIMARY KEY, "id" TEXT, "parameterName" TEXT,
       "parameterType" TEXT, "parameterDescription" TEXT, "defaultValue" TEXT, "itemType" TEXT, "items" TEXT,
       "toolInputSchema" INTEGER, "position" INTEGER))",
    R"(CREATE TABLE "ToolOutSchemeParams" ("pk" INTEGER PRIMARY KEY, "id" TEXT, "parameterName" TEXT,
       "parameterType" TEXT, "parameterDescription" TEXT, "defaultValue" TEXT, "itemType" TEXT, "items" TEXT,
       "toolOutputSchema" INTEGER, "position" INTEGER))",
    R"(CREATE TABLE "ResourceConfig" ("pk" INTEGER PRIMARY KEY, "id" TEXT, "name" TEXT, "resourceDescription" TEXT,
       "type" TEXT, "mimeType" TEXT, "uri" TEXT, "contextTags" TEXT, "relatedResources" TEXT, "annAudience" TEXT,
       "annPriority" REAL, "annLastModified" TEXT))",
    R"(CREATE TABLE "PromptConfig" ("pk" INTEGER PRIMARY KEY, "id" TEXT, "name" TEXT, "promptDescription" TEXT,
       "template" TEXT))",
    R"(CREATE TABLE "PromptArguments" ("pk" INTEGER PRIMARY KEY, "id" TEXT, "name" TEXT, "info" TEXT,
       "required" INTEGER NOT NULL DEFAULT 0, "promptConfig" INTEGER, "position" INTEGER))",
    R"(CREATE INDEX "ToolInputSchema_owner" ON "ToolInputSchema" ("toolConfig", "position"))",
    R"(CREATE INDEX "ToolOutputSchema_owner" ON "ToolOutputSchema" ("toolConfig", "position"))",
    R"(CREATE INDEX "ToolInSchemaParams_owner" ON "ToolInSchemaParams" ("toolInputSchema", "position"))",
    R"(CREATE INDEX "ToolOutSchemeParams_owner" ON "ToolOutSchemeParams" ("toolOutputSchema", "position"))",
    R"(CREATE INDEX "PromptArguments_owner" ON "PromptArguments" ("promptConfig", "position"))",
};

// Version 2: a tool keeps its hints for clients and its schemas as written; template
// variables and prompt arguments keep the values offered for completion.
const char *const schemaV2[] = {
    R"(ALTER TABLE "ToolsConfig" ADD COLUMN "annotationHints" TEXT)",
    R"(ALTER TABLE "ToolsConfig" ADD COLUMN "inputSchemaJson" TEXT)",
    R"(ALTER TABLE "ToolsConfig" ADD COLUMN "outputSchemaJson" TEXT)",
    R"(ALTER TABLE "ResourceConfig" ADD COLUMN "completionValues" TEXT)",
    R"(ALTER TABLE "PromptArguments" ADD COLUMN "completionValues" TEXT)",
};

// Version 3: a resource may be read and completed by a script, a prompt argument completed by one.
const char *const schemaV3[] = {
    R"(ALTER TABLE "ResourceConfig" ADD COLUMN "scriptFileName" TEXT)",
    R"(ALTER TABLE "ResourceConfig" ADD COLUMN "valuesScript" TEXT)",
    R"(ALTER TABLE "PromptArguments" ADD COLUMN "valuesScript" TEXT)",
};

// Version 4: a prompt keeps its messages (JSON text of the list).
const char *const schemaV4[] = {
    R"(ALTER TABLE "PromptConfig" ADD COLUMN "messagesJson" TEXT)",
};

QString failureText(const QSqlError &error)
{
    const QString text = error.text().trimmed();
    return text.isEmpty() ? QStringLiteral("unknown database error") : text;
}

}  // namespace

PersistenceController::PersistenceController(const QString &storePath, QObject *parent)
    : QObject(parent), m_storePath(storePath)
{
    static std::atomic<int> counter{0};
    m_connectionName = QStringLiteral("kelvara.store.%1").arg(++counter);
    m_loadError = open();
    if (m_loadError)
        SystemLog::write(QStringLiteral("Store %1 could not be opened: %2").arg(m_storePath, *m_loadError));
    m_viewContext = new StoreContext(m_connectionName, m_loadError, this);
    if (!m_loadError && !m_viewContext->isAvailable())
        m_loadError = m_viewContext->unavailableReason();
}

PersistenceController::~PersistenceController()
{
    delete m_viewContext;
    m_viewContext = nullptr;
    {
        QSqlDatabase db = QSqlDatabase::database(m_connectionName, false);
        if (db.isOpen())
            db.close();
    }
    QSqlDatabase::removeDatabase(m_connectionName);
    if (m_lockFd >= 0)
        ::close(m_lockFd);
}

std::optional<QString> PersistenceController::lock()
{
    // One process per store: two would each import into it and export the same bundle,
    // and fail each other's unique keys halfway. The lock goes with the process, also when
    // it dies; the file names the holder for the message.
    const QByteArray path = QFile::encodeName(m_storePath + QStringLiteral(".lock"));
    m_lockFd = ::open(path.constData(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (m_lockFd < 0)
        return QStringLiteral("its lock file cannot be opened: %1").arg(QString::fromLocal8Bit(std::strerror(errno)));
    if (::flock(m_lockFd, LOCK_EX | LOCK_NB) != 0) {
        const int error = errno;
        char holder[32] = {};
        const ssize_t got = ::pread(m_lockFd, holder, sizeof holder - 1, 0);
        ::close(m_lockFd);
        m_lockFd = -1;
        if (error != EWOULDBLOCK)
            return QStringLiteral("it cannot be locked: %1").arg(QString::fromLocal8Bit(std::strerror(error)));
        const QString pid = got > 0 ? QString::fromLatin1(holder).trimmed() : QStringLiteral("unknown");
        m_lockHolder = pid.toLongLong();
        return QStringLiteral("it is in use by process %1").arg(pid);
    }
    const QByteArray pid = QByteArray::number(::getpid()) + '\n';
    if (::ftruncate(m_lockFd, 0) != 0 || ::pwrite(m_lockFd, pid.constData(), size_t(pid.size()), 0) != pid.size()) {
        // The lock holds without the number; a refused process then says "unknown".
    }
    return std::nullopt;
}

std::optional<QString> PersistenceController::open()
{
    const QFileInfo file(m_storePath);
    if (!QDir().mkpath(file.absolutePath()))
        return QStringLiteral("cannot create the folder %1").arg(file.absolutePath());
    if (file.exists() && !file.isFile())
        return QStringLiteral("%1 is not a file").arg(m_storePath);
    if (std::optional<QString> busy = lock())
        return busy;

    QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), m_connectionName);
    if (!db.isValid())
        return QStringLiteral("the SQLite driver is not available");
    db.setDatabaseName(m_storePath);
    if (!db.open())
        return failureText(db.lastError());

    QSqlQuery query(db);
    // Reading the version is the first touch of the file: a file that is no database fails here.
    if (!query.exec(QStringLiteral("PRAGMA user_version")) || !query.next())
        return failureText(query.lastError());
    const int version = query.value(0).toInt();
    query.finish();
    if (version > schemaVersion)
        return QStringLiteral("the store was written by a newer version of Kelvara (schema version %1)").arg(version);

    // A commit is whole or absent even if the process dies halfway.
    if (!query.exec(QStringLiteral("PRAGMA journal_mode = WAL")))
        return failureText(query.lastError());
    query.finish();
    if (!query.exec(QStringLiteral("PRAGMA synchronous = FULL")))
        return failureText(query.lastError());

    if (version < schemaVersion) {
        if (!db.transaction())
            return failureText(db.lastError());
        auto fail = [&](const QSqlError &error) {
            const QString text = failureText(error);
            db.rollback();
            return text;
        };
        if (version < 1) {
            for (const char *statement : schemaV1) {
                if (!query.exec(QString::fromUtf8(statement)))
                    return fail(query.lastError());
            }
        }
        if (version < 2) {
            for (const char *statement : schemaV2) {
                if (!query.exec(QString::fromUtf8(statement)))
                    return fail(query.lastError());
            }
        }
        if (version < 3) {
            for (const char *statement : schemaV3) {
                if (!query.exec(QString::fromUtf8(statement)))
                    return fail(query.lastError());
            }
        }
        if (version < 4) {
            for (const char *statement : schemaV4) {
                if (!query.exec(QString::fromUtf8(statement)))
                    return fail(query.lastError());
            }
        }
        // Later versions add their steps here, each guarded by `version < N`.
        if (!query.exec(QStringLiteral("PRAGMA user_version = %1").arg(schemaVersion)))
            return fail(query.lastError());
        if (!db.commit())
            return fail(db.lastError());
    }
    return std::nullopt;
}
