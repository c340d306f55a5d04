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
    for (const auto &[value, text] : std::vector<std::pair<double, std::string>>{
             {3, "3"}, {1.5, "1.5"}, {3.14159265, "3.14159"}, {3000000000.0, "3e+09"}, {2147483647.0, "2147483647"},
             {2147483648.0, "2.14748e+09"}, {-2147483648.0, "-2147483648"}, {-2147483649.0, "-2.14748e+09"},
             {-0.0, "0"}, {0.1, "0.1"}, {-7, "-7"}, {1e-7, "1e-07"}, {123456.7, "123457"}})
        EXPECT_EQ(number(value), text) << value;
}

TEST(JSONValueTest, StringEscapesAreBytewise)
{
    std::string out;
    JSONValue::appendEscaped(out, std::string("a\b\t\n\f\r\"\\/\x01\x1f\x7f", 12) + "\xc3\xa9");
    EXPECT_EQ(out, "a\\b\\t\\n\\f\\r\\\"\\\\/\\u0001\\u001f\x7f\xc3\xa9");
}

TEST(JSONValueTest, SerialFormIndentsByLevelAndSortsKeys)
{
    JSONValue value;
    value["b"] = JSONValue(true);
    value["e"] = JSONValue(JSONValue::ArrayType{});  // empty containers stay on one line
    value["a"] = JSONValue(JSONValue::ArrayType{JSONValue(1), JSONValue("x"), JSONValue()});
    value["c"]["d"] = JSONValue(false);
    value["c"]["f"] = JSONValue(JSONValue::ObjectType{});
    EXPECT_EQ(value.toString(2),
              "{\n"
              "      \"a\": [\n"
              "        1,\n"
              "        \"x\",\n"
              "        null\n"
              "      ],\n"
              "      \"b\": true,\n"
              "      \"c\": {\n"
              "        \"d\": false,\n"
              "        \"f\": {}\n"
              "      },\n"
              "      \"e\": []\n"
              "    }");
    EXPECT_EQ(JSONValue(JSONValue::ObjectType{}).toString(2), "{}");
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
    const auto typeError = [](auto access) {
        try {
            access();
        } catch (const MCP::JSONTypeError &e) {
            return std::string(e.what());
        }
        return std::string("no error");
    };
    EXPECT_EQ(typeError([] { (void)JSONValue(1).asString(); }), "JSON value is a Number, not a String");
    EXPECT_EQ(typeError([] { (void)JSONValue("1").asNumber(); }), "JSON value is a String, not a Number");
    EXPECT_EQ(typeError([] { (void)JSONValue().asObject(); }), "JSON value is a Null, not an Object");
    EXPECT_EQ(typeError([] { (void)JSONValue(true).at("k"); }), "JSON value is a Bool, not an Object");
}

TEST(JSONValueTest, Emptiness)
{
    // Booleans count as empty, numbers never do.
    for (const JSONValue &value : {JSONValue(), JSONValue(true), JSONValue(false), JSONValue(""), JSONValue(JSONValue::ArrayType{})})
        EXPECT_TRUE(value.isEmpty()) << value.toString(0);
    for (const JSONValue &value : {JSONValue(0), JSONValue("x"), JSONValue(JSONValue::ArrayType{JSONValue()})})
        EXPECT_FALSE(value.isEmpty()) << value.toString(0);
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
