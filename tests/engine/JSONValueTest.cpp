#include "engine/JSONValue.h"

#include <gtest/gtest.h>

#include <cmath>
#include <stdexcept>
#include <variant>

using MCP::JSONValue;

namespace {

std::string number(double value)
{
    std::string out;
    JSONValue::appendNumber(out, value);
    return out;
}

}  // namespace

TEST(JSONValueTest, NumbersPrintAsIntegersOnlyWhenTheyFitThirtyTwoBits)
{
    EXPECT_EQ(number(3), "3");
    EXPECT_EQ(number(1.5), "1.5");
    EXPECT_EQ(number(3.14159265), "3.14159");
    EXPECT_EQ(number(3000000000.0), "3e+09");
    EXPECT_EQ(number(2147483647.0), "2147483647");
    EXPECT_EQ(number(2147483648.0), "2.14748e+09");
    EXPECT_EQ(number(-2147483648.0), "-2147483648");
    EXPECT_EQ(number(-2147483649.0), "-2.14748e+09");
    EXPECT_EQ(number(-0.0), "0");
    EXPECT_EQ(number(0.1), "0.1");
    EXPECT_EQ(number(-7), "-7");
    EXPECT_EQ(number(1e-7), "1e-07");
    EXPECT_EQ(number(123456.7), "123457");
}

TEST(JSONValueTest, StringEscapesAreBytewise)
{
    std::string out;
    JSONValue::appendEscaped(out, std::string("a\b\t\n\f\r\"\\/\x01\x1f\x7f", 12) + "\xc3\xa9");
    EXPECT_EQ(out, "a\\b\\t\\n\\f\\r\\\"\\\\/\\u0001\\u001f\x7f\xc3\xa9");
}

TEST(JSONValueTest, EmptyContainersPrintWithoutNewlineAtEveryLevel)
{
    EXPECT_EQ(JSONValue(JSONValue::ObjectType{}).toString(2), "{}");
    EXPECT_EQ(JSONValue(JSONValue::ArrayType{}).toString(0), "[]");
    JSONValue nested;
    nested["a"] = JSONValue(JSONValue::ArrayType{});
    nested["b"] = JSONValue(JSONValue::ObjectType{});
    EXPECT_EQ(nested.toString(0), "{\n  \"a\": [],\n  \"b\": {}\n}");
}

TEST(JSONValueTest, SerialFormIndentsByLevelAndSortsKeys)
{
    JSONValue value;
    value["b"] = JSONValue(true);
    value["a"] = JSONValue(JSONValue::ArrayType{JSONValue(1), JSONValue("x"), JSONValue()});
    value["c"]["d"] = JSONValue(false);
    EXPECT_EQ(value.toString(2),
              "{\n"
              "      \"a\": [\n"
              "        1,\n"
              "        \"x\",\n"
              "        null\n"
              "      ],\n"
              "      \"b\": true,\n"
              "      \"c\": {\n"
              "        \"d\": false\n"
              "      }\n"
              "    }");
}

TEST(JSONValueTest, MemberAccess)
{
    JSONValue value("text");
    // operator[] turns a non-Object into an Object and inserts Null.
    JSONValue &member = value["k"];
    EXPECT_TRUE(member.isNull());
    EXPECT_TRUE(value.isObject());
    EXPECT_TRUE(value.contains("k"));
    EXPECT_FALSE(value.contains("z"));
    EXPECT_FALSE(JSONValue(3).contains("k"));

    try {
        (void)value.at("missing");
        FAIL() << "at() did not throw";
    } catch (const std::out_of_range &e) {
        EXPECT_STREQ(e.what(), "map::at:  key not found");
    }
    EXPECT_THROW((void)JSONValue(1).asString(), std::bad_variant_access);
    EXPECT_THROW((void)JSONValue("1").asNumber(), std::bad_variant_access);
}

TEST(JSONValueTest, EmptinessAndTags)
{
    EXPECT_TRUE(JSONValue().isEmpty());
    EXPECT_TRUE(JSONValue(true).isEmpty());
    EXPECT_TRUE(JSONValue(false).isEmpty());
    EXPECT_FALSE(JSONValue(0).isEmpty());
    EXPECT_TRUE(JSONValue("").isEmpty());
    EXPECT_FALSE(JSONValue("x").isEmpty());
    EXPECT_TRUE(JSONValue(JSONValue::ArrayType{}).isEmpty());
    EXPECT_FALSE(JSONValue(JSONValue::ArrayType{JSONValue()}).isEmpty());

    EXPECT_EQ(static_cast<int>(JSONValue().type()), 0);
    EXPECT_EQ(static_cast<int>(JSONValue(false).type()), 1);
    EXPECT_EQ(static_cast<int>(JSONValue(2).type()), 2);
    EXPECT_EQ(static_cast<int>(JSONValue("s").type()), 3);
    EXPECT_EQ(static_cast<int>(JSONValue(JSONValue::ArrayType{}).type()), 4);
    EXPECT_EQ(static_cast<int>(JSONValue(JSONValue::ObjectType{}).type()), 5);
}

TEST(JSONValueTest, CopyIsDeepAndMoveEmptiesTheSource)
{
    JSONValue original;
    original["list"] = JSONValue(JSONValue::ArrayType{JSONValue("a")});
    JSONValue copy = original;
    copy["list"].asArray().push_back(JSONValue("b"));
    EXPECT_EQ(original.at("list").asArray().size(), 1u);

    JSONValue moved = std::move(original);
    EXPECT_TRUE(original.isNull());  // NOLINT(bugprone-use-after-move): the rule under test
    EXPECT_EQ(moved.at("list").asArray().size(), 1u);
}
