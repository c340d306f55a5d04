#include "tools/results/JSONToolResult.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QSize>
#include <gtest/gtest.h>

TEST(JSONToolResult, ErrorResultCarriesTextAndFailure)
{
    const JSONToolResult result = JSONToolResult::errorResult(QStringLiteral("Boom"));
    ASSERT_EQ(result.content.size(), 1);
    EXPECT_EQ(result.content.first().type, QStringLiteral("text"));
    EXPECT_EQ(result.content.first().text, QStringLiteral("Boom"));
    EXPECT_EQ(result.structuredContent.value(QStringLiteral("error")).toJson().toString(), QStringLiteral("Boom"));
    EXPECT_EQ(result.structuredContent.value(QStringLiteral("success")).toJson(), QJsonValue(false));
}

TEST(JSONToolResult, JsonIsSortedAndRoundTrips)
{
    JSONToolResult result;
    result.content.append({QStringLiteral("text"), QStringLiteral("héllo\n")});
    result.structuredContent.insert(QStringLiteral("zeta"), AnyCodable(qint64(9007199254740993LL)));
    result.structuredContent.insert(QStringLiteral("alpha"), AnyCodable(QJsonArray{1, QStringLiteral("b"), QJsonValue()}));
    const QString text = result.json();
    EXPECT_LT(text.indexOf(QStringLiteral("\"content\"")), text.indexOf(QStringLiteral("\"structuredContent\"")));
    EXPECT_LT(text.indexOf(QStringLiteral("\"alpha\"")), text.indexOf(QStringLiteral("\"zeta\"")));

    const auto parsed = JSONToolResult::fromJson(QJsonDocument::fromJson(text.toUtf8()).object());
    ASSERT_TRUE(parsed.has_value());
    EXPECT_EQ(parsed->content, result.content);
    // 64-bit integers keep every digit through the text form.
    EXPECT_EQ(parsed->structuredContent.value(QStringLiteral("zeta")).toVariant().toLongLong(), 9007199254740993LL);
}

TEST(JSONToolResult, FromJsonRefusesWrongShapes)
{
    EXPECT_FALSE(JSONToolResult::fromJson(QJsonObject{{"content", QJsonArray{}}}).has_value());
    EXPECT_FALSE(JSONToolResult::fromJson(QJsonObject{{"content", QJsonArray{1}}, {"structuredContent", QJsonObject{}}}).has_value());
    EXPECT_FALSE(JSONToolResult::fromJson(QJsonObject{{"content", QJsonArray{QJsonObject{{"type", "text"}}}}, {"structuredContent", QJsonObject{}}}).has_value());
}

TEST(JSONToolResult, ItemsOfOtherKindsPassThroughAsWritten)
{
    const QJsonArray items{QJsonObject{{"type", "image"}, {"data", "iVBORw0="}, {"mimeType", "image/png"}},
                           QJsonObject{{"type", "resource"}, {"resource", QJsonObject{{"uri", "test://r"}, {"text", "t"}}}},
                           QJsonObject{{"type", "resource_link"}, {"uri", "file:///a"}, {"name", "a"}, {"text", "also"}},
                           QJsonObject{{"type", "text"}, {"text", "x"}, {"annotations", QJsonObject{{"priority", 1}}}}};
    const auto parsed = JSONToolResult::fromJson(QJsonObject{{"content", items}, {"structuredContent", QJsonObject{}}});
    ASSERT_TRUE(parsed.has_value());
    ASSERT_EQ(parsed->content.size(), 4);
    EXPECT_EQ(parsed->content[0].type, QStringLiteral("image"));
    EXPECT_EQ(parsed->content[0].members.value(QStringLiteral("mimeType")).toString(), QStringLiteral("image/png"));
    // An image carries no text member, a text item always does.
    EXPECT_EQ(parsed->toJsonObject().value(QStringLiteral("content")).toArray(), items);
    EXPECT_EQ((JSONToolContent{QStringLiteral("text"), QString(), {}}).toJson(),
              (QJsonObject{{"type", "text"}, {"text", ""}}));
    // A text that is there must be a string, whatever the kind.
    EXPECT_FALSE(JSONToolContent::fromJson(QJsonObject{{"type", "image"}, {"text", 3}}).has_value());
    EXPECT_FALSE(JSONToolContent::fromJson(QJsonObject{{"data", "x"}}).has_value());
}

TEST(AnyCodable, VariantConversionRefusesUnsupportedKinds)
{
    QString error;
    EXPECT_FALSE(AnyCodable::fromVariant(QVariant::fromValue(QSize(1, 2)), &error).has_value());
    EXPECT_TRUE(error.startsWith(QStringLiteral("Unsupported JSON value: ")));
    const auto nested = AnyCodable::fromVariant(QVariantMap{{"list", QVariantList{true, 2, 2.5, "x"}}});
    ASSERT_TRUE(nested.has_value());
    EXPECT_EQ(nested->toJson().toObject().value("list").toArray().at(0), QJsonValue(true));
}
