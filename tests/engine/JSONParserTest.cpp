#include "engine/JSONParser.h"

#include <gtest/gtest.h>

using MCP::JSONParser;
using MCP::JSONValue;

namespace {

bool accepts(std::string_view text)
{
    return JSONParser::parseDocument(text).has_value();
}

}  // namespace

TEST(JSONParserTest, ParsesAllKindsAndKeepsBooleansApartFromNumbers)
{
    auto value = JSONParser::parseDocument(R"( {"t": true, "f": false, "one": 1, "zero": 0, "n": null,
        "s": "x", "a": [1, "2", [], {}], "neg": -1.5e2 } )");
    ASSERT_TRUE(value);
    EXPECT_EQ(value->toString(0), "{\n  \"a\": [\n    1,\n    \"2\",\n    [],\n    {}\n  ],\n  \"f\": false,\n  \"n\": null,\n"
                                  "  \"neg\": -150,\n  \"one\": 1,\n  \"s\": \"x\",\n  \"t\": true,\n  \"zero\": 0\n}");
}

TEST(JSONParserTest, ScalarsAreDocumentsTinyNumbersBecomeZeroAndUTF8Passes)
{
    for (const auto &[text, printed] : std::vector<std::pair<std::string, std::string>>{
             {"42", "42"}, {" null ", "null"}, {"\"s\"", "\"s\""}, {"1e-400", "0"}, {"1E+2", "100"},
             {"\"caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80\"", "\"caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80\""}})
        EXPECT_EQ(JSONParser::parseDocument(text).value_or(JSONValue("refused")).toString(0), printed) << text;
}

TEST(JSONParserTest, RefusesWhatStrictJSONRefuses)
{
    for (const char *text : {"", "   ", "{", "[1,]", "{\"a\":1,}", "01", "1.", ".5", "+1", "-", "1e", "NaN",
                             "Infinity", "tru", "nul", "'a'", "{a:1}", "[1 2]", "{\"a\" 1}", "\"\\x\"",
                             "\"tab\there\"", "{} {}", "[1] x", "/* c */ 1", "1e999", "\"\\ud800\"",
                             "\"\\udc00\"", "\"\\u12\"",
                             // UTF-8: truncated, overlong, an encoded surrogate, a byte that never occurs
                             "\"\xc3\"", "\"\xc0\xaf\"", "\"\xed\xa0\x80\"", "\"\xff\""})
        EXPECT_FALSE(accepts(text)) << text;
}

TEST(JSONParserTest, DecodesEscapesAndCutsStringsAtNul)
{
    EXPECT_EQ(JSONParser::parseDocument(R"("a\n\t\"\\\/\u00e9\ud83d\ude00")")->asString(),
              "a\n\t\"\\/\xc3\xa9\xf0\x9f\x98\x80");
    EXPECT_EQ(JSONParser::parseDocument(R"("abc\u0000def")")->asString(), "abc");
    auto object = JSONParser::parseDocument(R"({"k\u0000ey": 1})");
    ASSERT_TRUE(object);
    EXPECT_TRUE(object->contains("k"));
}

TEST(JSONParserTest, DeepNestingIsRefusedNotACrash)
{
    const int limit = JSONParser::kMaxDepth;
    std::string ok = std::string(limit, '[') + std::string(limit, ']');
    EXPECT_TRUE(accepts(ok));
    std::string tooDeep = std::string(limit + 1, '[') + std::string(limit + 1, ']');
    std::string error;
    EXPECT_FALSE(JSONParser::parseDocument(tooDeep, &error));
    EXPECT_NE(error.find("Nesting too deep"), std::string::npos);
    // Far beyond any stack: still a plain refusal.
    std::string huge;
    for (int i = 0; i < 1000000; ++i)
        huge += "{\"a\":";
    EXPECT_FALSE(accepts(huge));
}

TEST(JSONParserTest, CapturesTheLiteralOfATopLevelMember)
{
    JSONParser parser(R"({"params": {"id": 5}, "id": 18446744073709551615})");
    parser.captureTopLevelNumber("id");
    JSONValue value;
    ASSERT_TRUE(parser.parse(value));
    ASSERT_TRUE(parser.capturedNumber());
    EXPECT_EQ(*parser.capturedNumber(), "18446744073709551615");

    JSONParser nested(R"({"params": {"id": 5}})");
    nested.captureTopLevelNumber("id");
    ASSERT_TRUE(nested.parse(value));
    EXPECT_FALSE(nested.capturedNumber());
}
