#include "tools/plugins/CustomToolHandler.h"

#include <gtest/gtest.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <ostream>

// Readable failure messages for Qt strings.
inline void PrintTo(const QString &text, std::ostream *out)
{
    *out << '"' << text.toStdString() << '"';
}

namespace {

QString samplePath(const QString &name)
{
    return QStringLiteral(KELVARA_SAMPLE_PLUGIN_DIR "/") + name;
}

QJsonObject call(const CustomToolHandler &handler, const QString &json)
{
    const std::optional<QString> text = handler.callToolWithSID(QStringLiteral("sid"), QStringLiteral("TextStats"), json);
    EXPECT_TRUE(text.has_value());
    return text ? QJsonDocument::fromJson(text->toUtf8()).object() : QJsonObject();
}

}  // namespace

// The sample shipped with the ToolSDK, in both forms the build makes of it.
TEST(TextStatsPlugin, MeasuresTextInBothForms)
{
    for (const QString &name : {QStringLiteral("TextStats.so"), QStringLiteral("TextStats.bundle")}) {
        SCOPED_TRACE(name.toStdString());
        CustomToolHandler handler;
        AppError error;
        ASSERT_TRUE(handler.loadToolAtPath(samplePath(name), CustomToolHandler::pluginTypeForPath(name), &error))
            << error.description.toStdString();
        EXPECT_EQ(handler.getToolDescriptor()->name, QStringLiteral("TextStats"));
        EXPECT_FALSE(QJsonDocument::fromJson(handler.getToolDescriptor()->capabilitiesJSON.toUtf8()).isNull());

        // "123456789" is the standard check input of CRC-32.
        const QJsonObject check = call(handler, QStringLiteral("{\"sessionId\":\"s\",\"text\":\"123456789\"}"));
        const QJsonObject checkStats = check.value(QStringLiteral("structuredContent")).toObject();
        EXPECT_EQ(checkStats.value(QStringLiteral("crc32")).toString(), QStringLiteral("cbf43926"));
        EXPECT_EQ(checkStats.value(QStringLiteral("words")).toInt(), 1);
        EXPECT_EQ(checkStats.value(QStringLiteral("lines")).toInt(), 1);
        const QJsonArray content = check.value(QStringLiteral("content")).toArray();
        ASSERT_EQ(content.size(), 1);
        EXPECT_EQ(content.at(0).toObject().value(QStringLiteral("type")).toString(), QStringLiteral("text"));
        EXPECT_EQ(content.at(0).toObject().value(QStringLiteral("text")).toString(),
                  QStringLiteral("9 characters, 1 word, 1 line, 9 bytes, CRC-32 cbf43926"));

        // Escapes are decoded; a surrogate pair is one character of four bytes.
        const QJsonObject stats =
            call(handler, QStringLiteral("{\"arguments\":{\"text\":\"gr\\u00fc\\u00dfe  \\\"du\\\"\\n\\tzweite Zeile \\ud83d\\ude00\\n\"}}"))
                .value(QStringLiteral("structuredContent"))
                .toObject();
        const QString expected = QStringLiteral("gr\u00fc\u00dfe  \"du\"\n\tzweite Zeile \U0001F600\n");
        EXPECT_EQ(stats.value(QStringLiteral("bytes")).toInt(), expected.toUtf8().size());
        EXPECT_EQ(stats.value(QStringLiteral("characters")).toInt(), expected.toUcs4().size());
        EXPECT_EQ(stats.value(QStringLiteral("words")).toInt(), 5);
        EXPECT_EQ(stats.value(QStringLiteral("lines")).toInt(), 2);
    }
}

TEST(TextStatsPlugin, ReportsBadInputAsAnError)
{
    CustomToolHandler handler;
    ASSERT_TRUE(handler.loadToolAtPath(samplePath(QStringLiteral("TextStats.so")), 1));
    EXPECT_EQ(call(handler, QStringLiteral("{\"text\":42}")).value(QStringLiteral("error")).toString(),
              QStringLiteral("Parameter 'text' must be a string."));
    EXPECT_EQ(call(handler, QStringLiteral("{\"text\":\"unterminated")).value(QStringLiteral("error")).toString(),
              QStringLiteral("Invalid JSON parameters."));
    const QJsonObject empty = call(handler, QStringLiteral("{\"text\":\"\"}")).value(QStringLiteral("structuredContent")).toObject();
    EXPECT_EQ(empty.value(QStringLiteral("lines")).toInt(), 0);
    EXPECT_EQ(empty.value(QStringLiteral("crc32")).toString(), QStringLiteral("00000000"));
}
