#include "tools/router/JSONPromptConfig.h"

#include "tools/router/JSONFieldReader.h"
#include "tools/router/PromptMessages.h"

#include <QJsonArray>
#include <QVariantList>

namespace {
const QString kName = QStringLiteral("name");
const QString kDescription = QStringLiteral("description");
const QString kArguments = QStringLiteral("arguments");
const QString kTemplate = QStringLiteral("template");
const QString kMessages = QStringLiteral("messages");
}  // namespace

QJsonObject JSONPromptConfig::toJson() const
{
    QJsonArray list;
    for (const JSONPromptArgument &argument : arguments)
        list.append(argument.toJson());
    QJsonObject object{{kName, name}, {kDescription, promptDescription}, {kArguments, list}, {kTemplate, templateText}};
    if (messages)
        object.insert(kMessages, *messages);
    return object;
}

QVariantMap JSONPromptConfig::toVariant() const
{
    QVariantList list;
    for (const JSONPromptArgument &argument : arguments)
        list.append(argument.toVariant());
    QVariantMap map{{kName, name}, {kDescription, promptDescription}, {kArguments, list}, {kTemplate, templateText}};
    if (messages)
        map.insert(kMessages, messages->toVariantList());
    return map;
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
    config.messages = reader.array(kMessages, false);
    if (config.messages) {
        if (const auto problem = PromptMessages::problem(*config.messages, reader.pathOf(kMessages)))
            reader.fail(*problem);
    }
    config.templateText = reader.string(kTemplate, !config.messages).value_or(QString());
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
