#pragma once

#include "app/config/ObjectProperty.h"

#include <QList>
#include <QString>
#include <QStringList>

// The schema editor's form of one parameter, separate from the record until written.
struct PropertyData {
    QString parameterName;
    QString parameterType = QStringLiteral("string");
    QString parameterDescription;
    QString defaultValue;
    QString itemType = QStringLiteral("null");
    QString items;
    QList<ObjectProperty> objectProperties;
    // The allowed values of a string parameter, comma-separated; kept in the tool's written
    // schema (the parameter records have no place for them).
    QString enumValues;

    // A parameter's type.
    static const QStringList jsonTypes;
    // Array items and members of an object.
    static const QStringList propTypes;

    // The members of an object parameter from its `items`: every member that is an object
    // gives one, its type "string" and description "" when missing; text that is no JSON
    // object gives none.
    static QList<ObjectProperty> parseObjectProperties(const QString &items);
    // {"name": {"type": ..., "description": ...}, ...}, pretty-printed.
    static QString objectItemsText(const QList<ObjectProperty> &members);
};
