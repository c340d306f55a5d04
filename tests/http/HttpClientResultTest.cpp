#include "tools/http/HttpClientResult.h"

#include <gtest/gtest.h>

#include <QJsonDocument>
#include <QJsonObject>
#include <ostream>

// Readable failure messages for Qt strings.
inline void PrintTo(const QString &text, std::ostream *out)
{
    *out << '"' << text.toStdString() << '"';
}

TEST(HttpClientResult, RendersFiveKeysAsCompactJSON)
{
    HttpClientResult result;
    result.statusCode = 201;
    result.success = true;
    result.body = QStringLiteral("line\n\"quoted\"");
    result.headers.insert(QStringLiteral("Content-Type"), QStringLiteral("text/plain"));
    const QString text = result.toJSONString();
    EXPECT_FALSE(text.contains(QLatin1Char('\n')));  // not pretty-printed

    const QJsonObject json = QJsonDocument::fromJson(text.toUtf8()).object();
    EXPECT_EQ(json.keys(), (QStringList{QStringLiteral("body"), QStringLiteral("error"), QStringLiteral("headers"),
                                        QStringLiteral("statusCode"), QStringLiteral("success")}));
    EXPECT_TRUE(json.value(QStringLiteral("success")).toBool());
    EXPECT_EQ(json.value(QStringLiteral("statusCode")).toInt(), 201);
    EXPECT_EQ(json.value(QStringLiteral("body")).toString(), result.body);
    EXPECT_EQ(json.value(QStringLiteral("error")).toString(QStringLiteral("<absent>")), QString());
    EXPECT_EQ(json.value(QStringLiteral("headers")).toObject().value(QStringLiteral("Content-Type")).toString(),
              QStringLiteral("text/plain"));

    // No headers is an empty object; an error without words is "Unknown error".
    const HttpClientResult failed = HttpClientResult::withError(AppError{QStringLiteral("libcurl"), 7, QString()});
    const QJsonObject failedJson = QJsonDocument::fromJson(failed.toJSONString().toUtf8()).object();
    EXPECT_TRUE(failedJson.value(QStringLiteral("headers")).isObject());
    EXPECT_TRUE(failedJson.value(QStringLiteral("headers")).toObject().isEmpty());
    EXPECT_EQ(failedJson.value(QStringLiteral("error")).toString(), QStringLiteral("Unknown error"));
    EXPECT_EQ(failedJson.value(QStringLiteral("statusCode")).toInt(-1), 0);
}

TEST(HttpClientResult, FallsBackToTheFixedFormatWhenTheTextCannotBeWritten)
{
    // A lone surrogate has no UTF-8 form, so the object can't be serialized faithfully.
    HttpClientResult result;
    result.statusCode = 502;
    result.headers.insert(QStringLiteral("X"), QStringLiteral("y"));
    result.body = QStringLiteral("a\\b \"q\"\r\n") + QChar(0xDC00);
    EXPECT_EQ(result.toJSONString(),
              QStringLiteral("{\"success\":false,\"statusCode\":502,\"data\":\"a\\\\b \\\"q\\\"\\r\\n") + QChar(0xDC00)
                  + QStringLiteral("\",\"headers\":{},\"body\":\"\",\"error\":\"JSON serialization failed\"}"));

    result.success = true;
    result.body = QStringLiteral("ok");
    result.headers.insert(QStringLiteral("Bad"), QString(QChar(0xD800)));
    EXPECT_EQ(result.toJSONString(),
              QStringLiteral("{\"success\":true,\"statusCode\":502,\"data\":\"ok\",\"headers\":{},\"body\":\"\",\"error\":\"JSON serialization failed\"}"));
}
