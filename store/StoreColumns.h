#pragma once

#include "store/StoreEntity.h"
#include "store/StoreRecord.h"

#include <QSqlQuery>
#include <QVariantList>

#include <functional>

// The stored attributes of one record type, described once: each column's name and SQL type
// and how its value is written and read. The table layout, the values a save binds and
// the reading of a fetched row all come from this one list, in its order.
template <class V>
class StoreColumns {
public:
    template <class T>
    StoreColumns &add(const char *name, std::optional<T> V::*member)
    {
        m_columns.append({QString::fromLatin1(name), std::is_same_v<T, double> ? QStringLiteral("REAL") : QStringLiteral("TEXT"),
                          [member](const V &values) { return StoreRecord::toColumn(values.*member); },
                          [member](V &values, const QVariant &value) { values.*member = fromColumn<T>(value); }});
        return *this;
    }
    // A whole number that is always there (0 when the column holds nothing).
    template <class T>
    StoreColumns &addInteger(const char *name, T V::*member)
    {
        m_columns.append({QString::fromLatin1(name), QStringLiteral("INTEGER NOT NULL DEFAULT 0"),
                          [member](const V &values) { return QVariant(int(values.*member)); },
                          [member](V &values, const QVariant &value) {
                              if constexpr (std::is_same_v<T, bool>)
                                  values.*member = value.toInt() != 0;
                              else
                                  values.*member = T(value.toInt());
                          }});
        return *this;
    }

    QList<StoreEntityInfo::Column> layout() const
    {
        QList<StoreEntityInfo::Column> layout;
        for (const Column &column : m_columns)
            layout.append({column.name, column.sqlType});
        return layout;
    }

    QVariantList values(const V &values) const
    {
        QVariantList list;
        list.reserve(m_columns.size());
        for (const Column &column : m_columns)
            list.append(column.write(values));
        return list;
    }

    // Reads the row's columns from index `first` on.
    void read(V &values, const QSqlQuery &query, int first) const
    {
        for (int i = 0; i < m_columns.size(); ++i)
            m_columns[i].read(values, query.value(first + i));
    }

private:
    struct Column {
        QString name;
        QString sqlType;
        std::function<QVariant(const V &)> write;
        std::function<void(V &, const QVariant &)> read;
    };

    template <class T>
    static std::optional<T> fromColumn(const QVariant &value)
    {
        if constexpr (std::is_same_v<T, QString>)
            return StoreRecord::textColumn(value);
        else if constexpr (std::is_same_v<T, QUuid>)
            return StoreRecord::uuidColumn(value);
        else if constexpr (std::is_same_v<T, QUrl>)
            return StoreRecord::urlColumn(value);
        else if constexpr (std::is_same_v<T, double>)
            return StoreRecord::doubleColumn(value);
        else
            return StoreRecord::dateColumn(value);
    }

    QList<Column> m_columns;
};
