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
        EXPECT_FALSE(QJsonDocument::fromJson(handler.getToolDescriptor()->capabilitiesJSON.toUtf8()).isNull());

        // The figures and their sentence for plain text are checked end to end. Escapes are
        // decoded; a surrogate pair is one character of four bytes; "1 word" is singular.
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
        EXPECT_EQ(call(handler, uR"({"text":"x"})"_s)["content"].toArray().first()["text"].toString(),
                  "1 character, 1 word, 1 line, 1 byte, CRC-32 8cdc1683");
    }
}
