#include "engine/bridge/VariantJSON.h"

#include <QJsonObject>
#include <QStringList>
#include <gtest/gtest.h>

using MCP::JSONValue;

TEST(VariantJSONTest, BoolsStayApartFromNumbers)
{
    QVariantMap map{{"yes", true},      {"no", false},         {"int", 1},         {"zero", 0},
                    {"big", qint64(1) << 40}, {"float", 2.5f}, {"char", QVariant::fromValue<signed char>(1)}};
    const JSONValue json = VariantJSON::fromVariantMap(map);
    EXPECT_TRUE(json.at("yes").isBool());
    EXPECT_FALSE(json.at("no").asBool());
    EXPECT_TRUE(json.at("int").isNumber());
    EXPECT_TRUE(json.at("zero").isNumber());
    EXPECT_DOUBLE_EQ(json.at("big").asNumber(), 1099511627776.0);
    EXPECT_DOUBLE_EQ(json.at("float").asNumber(), 2.5);
    EXPECT_TRUE(json.at("char").isNumber());
}

TEST(VariantJSONTest, TreesAndOtherKinds)
{
    QVariantMap inner{{"k", QStringLiteral("v")}};
    QVariantMap map{{"list", QVariantList{1, QStringLiteral("two"), inner}},
                    {"strings", QStringList{"a", "b"}},
                    {"null", QVariant::fromValue(nullptr)},
                    {"invalid", QVariant()},
                    {"bytes", QByteArray("x")},
                    {"json", QJsonObject{{"a", 1}}},
                    {"nul", QStringLiteral("ab") + QChar(u'\0') + QStringLiteral("cd")}};
    const JSONValue json = VariantJSON::fromVariantMap(map);
    EXPECT_EQ(json.at("list").asArray().at(2).at("k").asString(), "v");
    EXPECT_EQ(json.at("strings").asArray().at(1).asString(), "b");
    EXPECT_TRUE(json.at("null").isNull());
    EXPECT_TRUE(json.at("invalid").isNull());
    EXPECT_TRUE(json.at("bytes").isNull());
    EXPECT_DOUBLE_EQ(json.at("json").at("a").asNumber(), 1);
    EXPECT_EQ(json.at("nul").asString(), "ab");
}

TEST(VariantJSONTest, BackToVariants)
{
    JSONValue value;
    value["b"] = JSONValue(true);
    value["n"] = JSONValue(3);
    value["s"] = JSONValue("\xc3\xa9");
    value["z"] = JSONValue();
    value["a"] = JSONValue(JSONValue::ArrayType{JSONValue(1)});
    const QVariantMap map = VariantJSON::toVariantMap(value);
    EXPECT_EQ(map.value("b").typeId(), QMetaType::Bool);
    EXPECT_EQ(map.value("n").typeId(), QMetaType::Double);
    EXPECT_EQ(map.value("s").toString(), QString::fromUtf8("\xc3\xa9"));
    EXPECT_TRUE(map.value("z").isNull());
    EXPECT_TRUE(map.contains("z"));
    EXPECT_EQ(map.value("a").toList().size(), 1);
    // And the round trip keeps the kinds.
    EXPECT_EQ(VariantJSON::fromVariantMap(map), value);

    try {
        VariantJSON::toVariantMap(JSONValue(JSONValue::ArrayType{}));
        FAIL() << "no error raised";
    } catch (const std::runtime_error &e) {
        EXPECT_STREQ(e.what(), "JSONValue is not an object, cannot convert to NSDictionary");
    }
}

TEST(VariantJSONTest, JSONTextAllowsFragmentsAndNamesTheFailure)
{
    EXPECT_DOUBLE_EQ(VariantJSON::parseJSONText(QStringLiteral("12")).asNumber(), 12);
    try {
        VariantJSON::parseJSONText(QStringLiteral("{oops"));
        FAIL() << "no error raised";
    } catch (const std::runtime_error &e) {
        EXPECT_EQ(std::string(e.what()).rfind("JSON parsing failed: ", 0), 0u) << e.what();
    }
}
