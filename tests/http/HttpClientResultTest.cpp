#include "tests/support/TestSupport.h"
#include "tools/http/HttpClientResult.h"

#include <gtest/gtest.h>

TEST(HttpClientResult, RendersFiveKeysAsCompactJSON)
{
    HttpClientResult result;
    result.statusCode = 201;
    result.success = true;
    result.body = QStringLiteral("line\n\"quoted\"");
    result.headers.insert(QStringLiteral("Content-Type"), QStringLiteral("text/plain"));
    EXPECT_EQ(result.toJSONString(), QStringLiteral(R"({"body":"line\n\"quoted\"","error":"","headers":{"Content-Type":"text/plain"},)"
                                                    R"("statusCode":201,"success":true})"));

    // No headers is an empty object; an error without words is "Unknown error".
    EXPECT_EQ(HttpClientResult::withError(AppError{QStringLiteral("libcurl"), 7, QString()}).toJSONString(),
              QStringLiteral(R"({"body":"","error":"Unknown error","headers":{},"statusCode":0,"success":false})"));
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
