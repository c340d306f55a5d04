#pragma once

#include "store/PersistenceController.h"
#include "store/ToolInSchemaParams.h"
#include "store/ToolInputSchema.h"
#include "store/ToolsConfig.h"
#include "store/ToolsQueryService.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <QSqlDatabase>
#include <QSqlQuery>
#include <QString>
#include <QUuid>
#include <QVariant>

#include <memory>

// Direct access to a store file beside the context under test, to look at what really
// reached the disk and to make the disk refuse writes.
namespace StoreTestUtil {

inline QString freshStorePath()
{
    return TestSupport::makeTempDir(QStringLiteral("store")) + QStringLiteral("/Kelvara.sqlite");
}

// Runs one statement on its own connection; gives the first column of the first row.
inline QVariant sql(const QString &path, const QString &statement)
{
    const QString name = QStringLiteral("inspect-") + QUuid::createUuid().toString(QUuid::WithoutBraces);
    QVariant result;
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), name);
        db.setDatabaseName(path);
        if (db.open()) {
            QSqlQuery query(db);
            if (query.exec(statement) && query.next())
                result = query.value(0);
        }
        db.close();
    }
    QSqlDatabase::removeDatabase(name);
    return result;
}

inline int rowCount(const QString &path, const QString &table)
{
    return sql(path, QStringLiteral("SELECT count(*) FROM \"%1\"").arg(table)).toInt();
}

// Makes every insert into table fail with message until the trigger is dropped again.
inline void refuseInserts(const QString &path, const QString &table, const QString &message)
{
    sql(path, QStringLiteral("CREATE TRIGGER refuse BEFORE INSERT ON \"%1\" BEGIN SELECT RAISE(ABORT, '%2'); END")
                  .arg(table, message));
}

}  // namespace StoreTestUtil

// A fresh store file, opened the way the application opens its own.
class StoreTest : public ::testing::Test {
protected:
    int rowCount(const QString &table) const { return StoreTestUtil::rowCount(path, table); }
    // Closes the store and opens the file again, as after a restart.
    void reopen()
    {
        store.reset();
        store = std::make_unique<PersistenceController>(path);
        context = store->viewContext();
    }

    // A tool with two input schemas (types "object" with parameters "path" and "depth", and
    // "array" with one unnamed parameter) and one output schema, as a user would build it.
    ToolsConfig *makeTool(const QString &name)
    {
        ToolsConfig *tool = ToolsQueryService::createTool(context, 0);
        tool->setName(name);
        ToolInputSchema *first = ToolsQueryService::createInputSchema(context);
        first->properties().first()->setParameterName(QStringLiteral("path"));
        ToolInSchemaParams *extra = ToolsQueryService::createInSchemaParams(context);
        extra->setParameterName(QStringLiteral("depth"));
        first->addPropertiesObject(extra);
        ToolInputSchema *second = ToolsQueryService::createInputSchema(context);
        second->setType(QStringLiteral("array"));
        tool->addInputSchemasObject(first);
        tool->addInputSchemasObject(second);
        tool->addOutputSchmasObject(ToolsQueryService::createOutputSchema(context));
        return tool;
    }

    QString path = StoreTestUtil::freshStorePath();
    std::unique_ptr<PersistenceController> store = std::make_unique<PersistenceController>(path);
    StoreContext *context = store->viewContext();
};
