#include "tools/router/PromptMessages.h"

#include <QByteArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>
#include <QStringList>

namespace {

QString missing(const QString &path) { return QStringLiteral("The key '%1' is missing.").arg(path); }

// The member's text when it is a string that is not empty; the reason in `error` otherwise.
std::optional<QString> text(const QJsonObject &object, const QString &key, const QString &path, QString &error)
{
    const QString at = path + QLatin1Char('.') + key;
    if (!object.contains(key)) {
        error = missing(at);
        return std::nullopt;
    }
    if (!object.value(key).isString()) {
        error = QStringLiteral("The value of '%1' is not a string.").arg(at);
        return std::nullopt;
    }
    const QString value = object.value(key).toString();
    if (value.isEmpty()) {
        error = QStringLiteral("The value of '%1' is empty.").arg(at);
        return std::nullopt;
    }
    return value;
}

std::optional<QString> base64(const QJsonObject &object, const QString &key, const QString &path)
{
    QString error;
    const std::optional<QString> value = text(object, key, path, error);
    if (!value)
        return error;
    if (!QByteArray::fromBase64Encoding(value->toLatin1(), QByteArray::AbortOnBase64DecodingErrors))
        return QStringLiteral("The value of '%1.%2' is no base64 text.").arg(path, key);
    return std::nullopt;
}

std::optional<QString> contentProblem(const QJsonObject &content, const QString &path)
{
    QString error;
    const std::optional<QString> type = text(content, QStringLiteral("type"), path, error);
    if (!type)
        return error;
    if (*type == QLatin1String("text")) {
        if (!content.contains(QStringLiteral("text")))
            return missing(path + QStringLiteral(".text"));
        if (!content.value(QStringLiteral("text")).isString())
            return QStringLiteral("The value of '%1.text' is not a string.").arg(path);
        return std::nullopt;
    }
    if (*type == QLatin1String("image") || *type == QLatin1String("audio")) {
        if (auto bad = base64(content, QStringLiteral("data"), path))
            return bad;
        if (!text(content, QStringLiteral("mimeType"), path, error))
            return error;
        return std::nullopt;
    }
    if (*type == QLatin1String("resource")) {
        const QString at = path + QStringLiteral(".resource");
        if (!content.contains(QStringLiteral("resource")))
            return missing(at);
        if (!content.value(QStringLiteral("resource")).isObject())
            return QStringLiteral("The value of '%1' is not an object.").arg(at);
        const QJsonObject resource = content.value(QStringLiteral("resource")).toObject();
        if (!text(resource, QStringLiteral("uri"), at, error))
            return error;
        const bool hasText = resource.contains(QStringLiteral("text"));
        const bool hasBlob = resource.contains(QStringLiteral("blob"));
        if (hasText == hasBlob)
            return QStringLiteral("'%1' holds either 'text' or 'blob'.").arg(at);
        if (hasText && !resource.value(QStringLiteral("text")).isString())
            return QStringLiteral("The value of '%1.text' is not a string.").arg(at);
        if (hasBlob)
            if (auto bad = base64(resource, QStringLiteral("blob"), at))
                return bad;
        if (resource.contains(QStringLiteral("mimeType")) && !resource.value(QStringLiteral("mimeType")).isString())
            return QStringLiteral("The value of '%1.mimeType' is not a string.").arg(at);
        return std::nullopt;
    }
    return QStringLiteral("The value of '%1.type' is not one of text, image, audio, resource.").arg(path);
}

}  // namespace

std::optional<QString> PromptMessages::problem(const QJsonArray &messages, const QString &path)
{
    for (qsizetype i = 0; i < messages.size(); ++i) {
        const QString at = path + QLatin1Char('.') + QString::number(i);
        if (!messages.at(i).isObject())
            return QStringLiteral("The value of '%1' is not an object.").arg(at);
        const QJsonObject message = messages.at(i).toObject();
        const QJsonValue role = message.value(QStringLiteral("role"));
        if (role.isUndefined())
            return missing(at + QStringLiteral(".role"));
        if (role != QJsonValue(QStringLiteral("user")) && role != QJsonValue(QStringLiteral("assistant")))
            return QStringLiteral("The value of '%1.role' is not \"user\" or \"assistant\".").arg(at);
        const QJsonValue content = message.value(QStringLiteral("content"));
        if (content.isUndefined())
            return missing(at + QStringLiteral(".content"));
        if (!content.isObject())
            return QStringLiteral("The value of '%1.content' is not an object.").arg(at);
        if (auto bad = contentProblem(content.toObject(), at + QStringLiteral(".content")))
            return bad;
    }
    return std::nullopt;
}

std::optional<QString> PromptMessages::textProblem(const QString &text)
{
    if (text.trimmed().isEmpty())
        return std::nullopt;
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(text.toUtf8(), &error);
    if (error.error != QJsonParseError::NoError)
        return QStringLiteral("The messages are no valid JSON: %1 at offset %2.").arg(error.errorString()).arg(error.offset);
    if (!document.isArray())
        return QStringLiteral("The messages are no JSON list.");
    return problem(document.array());
}

std::optional<QJsonArray> PromptMessages::fromText(const QString &text)
{
    if (text.trimmed().isEmpty() || textProblem(text))
        return std::nullopt;
    return QJsonDocument::fromJson(text.toUtf8()).array();
}
