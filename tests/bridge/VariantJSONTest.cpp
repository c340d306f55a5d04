#include "engine/JSONParser.h"
#include "engine/bridge/VariantJSON.h"

#include <QJsonObject>
#include <QStringList>
#include <gtest/gtest.h>

using MCP::JSONValue;

TEST(VariantJSONTest, KindsAndTrees)
{
    const QVariantMap map{{"yes", true}, {"no", false}, {"int", 1}, {"zero", 0}, {"big", qint64(1) << 40}, {"float", 2.5f},
                          {"char", QVariant::fromValue<signed char>(1)}, {"strings", QStringList{"a", "b"}},
                          {"list", QVariantList{1, QStringLiteral("two"), QVariantMap{{"k", QStringLiteral("v")}}}},
                          {"null", QVariant::fromValue(nullptr)}, {"invalid", QVariant()}, {"bytes", QByteArray("x")},
                          {"json", QJsonObject{{"a", 1}}}, {"nul", QStringLiteral("ab") + QChar(u'\0') + QStringLiteral("cd")}};
    const JSONValue json = VariantJSON::fromVariantMap(map);
    // Booleans stay apart from numbers; a string ends at its first NUL.
    EXPECT_EQ(json, *MCP::JSONParser::parseDocument(R"({"yes": true, "no": false, "int": 1, "zero": 0, "big": 1099511627776,
        "float": 2.5, "char": 1, "list": [1, "two", {"k": "v"}], "strings": ["a", "b"], "null": null,
        "invalid": null, "bytes": null, "json": {"a": 1}, "nul": "ab"})"))
        << json.toString(0);
}

TEST(VariantJSONTest, BackToVariants)
{
    const JSONValue value = *MCP::JSONParser::parseDocument("{\"b\": true, \"n\": 3, \"s\": \"\xc3\xa9\", \"z\": null, \"a\": [1]}");
    const QVariantMap map = VariantJSON::toVariantMap(value);
    EXPECT_EQ(map.value("b").typeId(), QMetaType::Bool);
    EXPECT_EQ(map.value("n").typeId(), QMetaType::Double);
    EXPECT_EQ(map.value("s").toString(), QString::fromUtf8("\xc3\xa9"));
    // The round trip keeps every member and kind (a null, the array).
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
