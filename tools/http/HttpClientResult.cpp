#include "tools/http/HttpClientResult.h"

#include "tools/http/Utf8Text.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QStringDecoder>

namespace {

// Strings that have no UTF-8 form would be written with replacement characters; the text
// would no longer say what came back, so such a result counts as not serializable.
bool serializable(const HttpClientResult &result, const QString &errorText)
{
    if (!Utf8Text::isEncodable(result.body) || !Utf8Text::isEncodable(errorText))
        return false;
    for (auto it = result.headers.cbegin(); it != result.headers.cend(); ++it)
        if (!Utf8Text::isEncodable(it.key()) || !Utf8Text::isEncodable(it.value()))
            return false;
    return true;
}

QString fallbackJSONString(bool success, int statusCode, QString body)
{
    body.replace(QLatin1String("\\"), QLatin1String("\\\\"));
    body.replace(QLatin1String("\""), QLatin1String("\\\""));
    body.replace(QLatin1String("\n"), QLatin1String("\\n"));
    body.replace(QLatin1String("\r"), QLatin1String("\\r"));
    return QStringLiteral("{\"success\":") + (success ? QStringLiteral("true") : QStringLiteral("false"))
           + QStringLiteral(",\"statusCode\":") + QString::number(statusCode) + QStringLiteral(",\"data\":\"") + body
           + QStringLiteral("\",\"headers\":{},\"body\":\"\",\"error\":\"JSON serialization failed\"}");
}

}  // namespace

HttpClientResult HttpClientResult::withError(const AppError &error)
{
    HttpClientResult result;
    result.error = error;
    return result;
}

QString HttpClientResult::toJSONString() const
{
    QString errorText = QStringLiteral("");
    if (error)
        errorText = error->description.isEmpty() ? QStringLiteral("Unknown error") : error->description;
    if (!serializable(*this, errorText))
        return fallbackJSONString(success, statusCode, body);

    QJsonObject headerObject;
    for (auto it = headers.cbegin(); it != headers.cend(); ++it)
        headerObject.insert(it.key(), it.value());
    QJsonObject object;
    object.insert(QStringLiteral("success"), success);
    object.insert(QStringLiteral("statusCode"), statusCode);
    object.insert(QStringLiteral("headers"), headerObject);
    object.insert(QStringLiteral("body"), body);
    object.insert(QStringLiteral("error"), errorText);

    const QByteArray bytes = QJsonDocument(object).toJson(QJsonDocument::Compact);
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    const QString text = decoder.decode(bytes);
    return decoder.hasError() ? QStringLiteral("{}") : text;
}
