#include "tools/router/JSONFieldReader.h"

#include <QJsonDocument>
#include <QJsonParseError>

JSONFieldReader::JSONFieldReader(const QJsonObject &object, QString path) : m_object(object), m_path(std::move(path)) {}

Result<QJsonObject> JSONFieldReader::parseObject(const QByteArray &data)
{
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(data, &parseError);
    if (parseError.error != QJsonParseError::NoError)
        return AppError{errorDomain(), decodingFailed,
                        QStringLiteral("The file is no valid JSON: %1 at offset %2.")
                            .arg(parseError.errorString())
                            .arg(parseError.offset)};
    if (!document.isObject())
        return AppError{errorDomain(), decodingFailed, QStringLiteral("The file does not hold a JSON object.")};
    return document.object();
}

QString JSONFieldReader::pathOf(const QString &key) const
{
    return m_path.isEmpty() ? key : m_path + QLatin1Char('.') + key;
}

void JSONFieldReader::fail(const QString &message)
{
    if (!m_error)
        m_error = message;
}

void JSONFieldReader::adopt(const JSONFieldReader &nested)
{
    if (!nested.ok())
        fail(nested.error());
}

std::optional<QJsonValue> JSONFieldReader::member(const QString &key, bool required)
{
    const auto it = m_object.constFind(key);
    if (it == m_object.constEnd()) {
        if (required)
            fail(QStringLiteral("The key '%1' is missing.").arg(pathOf(key)));
        return std::nullopt;
    }
    return it.value();
}

void JSONFieldReader::wrongType(const QString &key, const char *expected)
{
    fail(QStringLiteral("The value of '%1' is not %2.").arg(pathOf(key), QLatin1String(expected)));
}

std::optional<QString> JSONFieldReader::string(const QString &key, bool required)
{
    const auto value = member(key, required);
    if (!value)
        return std::nullopt;
    if (!value->isString()) {
        wrongType(key, "a string");
        return std::nullopt;
    }
    return value->toString();
}

std::optional<bool> JSONFieldReader::boolean(const QString &key, bool required)
{
    const auto value = member(key, required);
    if (!value)
        return std::nullopt;
    if (!value->isBool()) {
        wrongType(key, "a boolean");
        return std::nullopt;
    }
    return value->toBool();
}

std::optional<double> JSONFieldReader::number(const QString &key, bool required)
{
    const auto value = member(key, required);
    if (!value)
        return std::nullopt;
    if (!value->isDouble()) {
        wrongType(key, "a number");
        return std::nullopt;
    }
    return value->toDouble();
}

std::optional<QJsonObject> JSONFieldReader::object(const QString &key, bool required)
{
    const auto value = member(key, required);
    if (!value)
        return std::nullopt;
    if (!value->isObject()) {
        wrongType(key, "an object");
        return std::nullopt;
    }
    return value->toObject();
}

std::optional<QJsonArray> JSONFieldReader::array(const QString &key, bool required)
{
    const auto value = member(key, required);
    if (!value)
        return std::nullopt;
    if (!value->isArray()) {
        wrongType(key, "an array");
        return std::nullopt;
    }
    return value->toArray();
}

std::optional<QStringList> JSONFieldReader::stringArray(const QString &key, bool required)
{
    const auto items = array(key, required);
    if (!items)
        return std::nullopt;
    QStringList strings;
    for (const QJsonValue &item : *items) {
        if (!item.isString()) {
            wrongType(key, "an array of strings");
            return std::nullopt;
        }
        strings.append(item.toString());
    }
    return strings;
}
