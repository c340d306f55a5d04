#pragma once

#include <QString>
#include <QUuid>

// One member of a schema parameter of type "object", as the schema editor lists them.
struct ObjectProperty {
    QUuid id = QUuid::createUuid();
    QString name;
    QString type = QStringLiteral("string");
    QString description;

    bool operator==(const ObjectProperty &) const = default;
};
