#include "tools/router/JSONPromptConfig.h"

#include "tools/router/JSONFieldReader.h"

#include <QJsonArray>
#include <QVariantList>

namespace {
const QString kName = QStringLiteral("name");
const QString kDescription = QStringLiteral("description");
const QString kArguments = QStringLiteral("arguments");
const QString kTemplate = QStringLiteral("template");
}  // namespace

QJsonObject JSONPromptConfig::toJson() const
{
    QJsonArray list;
    for (const JSONPromptArgument &argument : arguments)
        list.append(argument.toJson());
    return QJsonObject{{kName, name}, {kDescription, promptDescription}, {kArguments, list}, {kTemplate, templateText}};
}

QVariantMap JSONPromptConfig::toVariant() const
{
    QVariantList list;
    for (const JSONPromptArgument &argument : arguments)
        list.append(argument.toVariant());
    return QVariantMap{{kName, name}, {kDescription, promptDescription}, {kArguments, list}, {kTemplate, templateText}};
}

QVariant JSONPromptConfig::value(const QString &key) const
{
    return toVariant().value(key);
}

Result<JSONPromptConfig> JSONPromptConfig::fromJson(const QJsonObject &object)
{
    JSONFieldReader reader(object);
    JSONPromptConfig config;
    config.name = reader.string(kName, true).value_or(QString());
    config.promptDescription = reader.string(kDescription, true).value_or(QString());
    config.templateText = reader.string(kTemplate, true).value_or(QString());
    if (const auto list = reader.array(kArguments, true)) {
        JSONFieldReader listReader(QJsonObject(), reader.pathOf(kArguments));
        for (qsizetype i = 0; i < list->size() && listReader.ok(); ++i) {
            const QString index = QString::number(i);
            if (!list->at(i).isObject()) {
                listReader.fail(QStringLiteral("The value of '%1' is not an object.").arg(listReader.pathOf(index)));
                break;
            }
            if (auto argument = JSONPromptArgument::fromJson(list->at(i).toObject(), listReader, index))
                config.arguments.append(*argument);
        }
        reader.adopt(listReader);
    }
    if (!reader.ok())
        return reader.failure();
    return config;
}

Result<JSONPromptConfig> JSONPromptConfig::fromJsonData(const QByteArray &data)
{
    const Result<QJsonObject> object = JSONFieldReader::parseObject(data);
    if (!object)
        return object.error();
    return fromJson(*object);
}
