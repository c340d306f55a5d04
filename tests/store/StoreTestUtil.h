#pragma once

#include "tests/support/TestSupport.h"

#include <QSqlDatabase>
#include <QSqlQuery>
#include <QString>
#include <QUuid>
#include <QVariant>

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

}  // namespace StoreTestUtil
