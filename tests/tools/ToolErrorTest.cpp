#include "tools/results/ToolError.h"

#include "diagnostics/LogController.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <QJsonDocument>

using TestSupport::waitUntil;

TEST(ToolErrorTest, LogsAndOverridesExtras)
{
    LogController log;
    const QVariantMap extra{{"success", true}, {"error_code", 1}, {"file_path", "/tmp/x"}};
    const JSONToolResult result =
        ToolError::report(&log, QStringLiteral("No such file"), 2001, MCPLogMessageType::Error, extra);
    EXPECT_EQ(QJsonDocument(result.toJsonObject()).toJson(QJsonDocument::Compact),
              R"({"content":[{"text":"Error 2001 No such file","type":"text"}],"structuredContent":{"error":"Error 2001 No such file",)"
              R"("error_code":2001,"error_message":"No such file","file_path":"/tmp/x","success":false}})");
    ASSERT_TRUE(waitUntil([&] { return log.logEntries().size() == 1; }));
    EXPECT_EQ(log.logEntries().first().code, 2001);
    EXPECT_EQ(log.logEntries().first().type, MCPLogMessageType::Error);
}
