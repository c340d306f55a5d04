#include "tools/router/JSONPromptArgument.h"

#include "tools/router/JSONFieldReader.h"

namespace {
const QString kName = QStringLiteral("name");
const QString kDescription = QStringLiteral("description");
const QString kRequired = QStringLiteral("required");
}  // namespace

QJsonObject JSONPromptArgument::toJson() const
{
    return QJsonObject{{kName, name}, {kDescription, argumentDescription}, {kRequired, required}};
}

QVariantMap JSONPromptArgument::toVariant() const
{
    return QVariantMap{{kName, name}, {kDescription, argumentDescription}, {kRequired, required}};
}

std::optional<JSONPromptArgument> JSONPromptArgument::fromJson(const QJsonObject &object, JSONFieldReader &parent,
                                                               const QString &key)
{
    JSONFieldReader reader(object, parent.pathOf(key));
    JSONPromptArgument argument;
    argument.name = reader.string(kName, true).value_or(QString());
    argument.argumentDescription = reader.string(kDescription, true).value_or(QString());
    argument.required = reader.boolean(kRequired, true).value_or(false);
    parent.adopt(reader);
    if (!reader.ok())
        return std::nullopt;
    return argument;
}
