#include "tests/support/TestSupport.h"
#include "tools/plugins/CustomToolHandler.h"

#include <gtest/gtest.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;

namespace {

QJsonObject call(const CustomToolHandler &handler, const QString &json)
{
    const std::optional<QString> text = handler.callToolWithSID(u"sid"_s, u"TextStats"_s, json);
    EXPECT_TRUE(text.has_value());
    return text ? QJsonDocument::fromJson(text->toUtf8()).object() : QJsonObject();
}

}  // namespace

// The sample shipped with the ToolSDK, in both forms the build makes of it.
TEST(TextStatsPlugin, MeasuresTextInBothFormsAndReportsBadInput)
{
    for (const QString &name : {u"TextStats.so"_s, u"TextStats.bundle"_s}) {
        SCOPED_TRACE(name.toStdString());
        CustomToolHandler handler;
        AppError error;
        ASSERT_TRUE(handler.loadToolAtPath(KELVARA_SAMPLE_PLUGIN_DIR "/" + name, CustomToolHandler::pluginTypeForPath(name),
                                           &error)) << error.description;
        EXPECT_EQ(handler.getToolDescriptor()->name, "TextStats");
        EXPECT_FALSE(QJsonDocument::fromJson(handler.getToolDescriptor()->capabilitiesJSON.toUtf8()).isNull());

        // "123456789" is the standard check input of CRC-32.
        const QJsonObject check = call(handler, uR"({"sessionId":"s","text":"123456789"})"_s);
        const QJsonObject checkStats = check["structuredContent"].toObject();
        EXPECT_EQ(checkStats["crc32"].toString(), "cbf43926");
        EXPECT_EQ(checkStats["words"].toInt(), 1);
        EXPECT_EQ(checkStats["lines"].toInt(), 1);
        EXPECT_EQ(check["content"].toArray(),
                  QJsonArray({QJsonObject{{"type", "text"}, {"text", "9 characters, 1 word, 1 line, 9 bytes, CRC-32 cbf43926"}}}));

        // Escapes are decoded; a surrogate pair is one character of four bytes.
        const QJsonObject stats =
            call(handler, uR"({"arguments":{"text":"gr\u00fc\u00dfe  \"du\"\n\tzweite Zeile \ud83d\ude00\n"}})"_s)["structuredContent"]
                .toObject();
        const QString expected = u"gr\u00fc\u00dfe  \"du\"\n\tzweite Zeile \U0001F600\n"_s;
        EXPECT_EQ(stats["bytes"].toInt(), expected.toUtf8().size());
        EXPECT_EQ(stats["characters"].toInt(), expected.toUcs4().size());
        EXPECT_EQ(stats["words"].toInt(), 5);
        EXPECT_EQ(stats["lines"].toInt(), 2);

        EXPECT_EQ(call(handler, uR"({"text":42})"_s)["error"].toString(), "Parameter 'text' must be a string.");
        EXPECT_EQ(call(handler, uR"({"text":"unterminated)"_s)["error"].toString(), "Invalid JSON parameters.");
        const QJsonObject empty = call(handler, uR"({"text":""})"_s)["structuredContent"].toObject();
        EXPECT_EQ(empty["lines"].toInt(), 0);
        EXPECT_EQ(empty["crc32"].toString(), "00000000");
    }
}
