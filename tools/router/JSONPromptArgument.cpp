#include "tools/router/JSONPromptArgument.h"

#include "tools/router/JSONFieldReader.h"

#include <QJsonArray>

namespace {
const QString kName = QStringLiteral("name");
const QString kDescription = QStringLiteral("description");
const QString kRequired = QStringLiteral("required");
const QString kValues = QStringLiteral("values");
const QString kValuesScript = QStringLiteral("valuesScript");
}  // namespace

QJsonObject JSONPromptArgument::toJson() const
{
    QJsonObject object{{kName, name}, {kDescription, argumentDescription}, {kRequired, required}};
    if (values)
        object.insert(kValues, QJsonArray::fromStringList(*values));
    if (valuesScript)
        object.insert(kValuesScript, *valuesScript);
    return object;
}

QVariantMap JSONPromptArgument::toVariant() const
{
    QVariantMap map{{kName, name}, {kDescription, argumentDescription}, {kRequired, required}};
    if (values)
        map.insert(kValues, *values);
    if (valuesScript)
        map.insert(kValuesScript, *valuesScript);
    return map;
}

std::optional<JSONPromptArgument> JSONPromptArgument::fromJson(const QJsonObject &object, JSONFieldReader &parent,
                                                               const QString &key)
{
    JSONFieldReader reader(object, parent.pathOf(key));
    JSONPromptArgument argument;
    argument.name = reader.string(kName, true).value_or(QString());
    argument.argumentDescription = reader.string(kDescription, true).value_or(QString());
    argument.required = reader.boolean(kRequired, true).value_or(false);
    argument.values = reader.stringArray(kValues, false);
    argument.valuesScript = reader.string(kValuesScript, false);
    parent.adopt(reader);
    if (!reader.ok())
        return std::nullopt;
    return argument;
}
