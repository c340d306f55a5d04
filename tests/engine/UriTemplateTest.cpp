#include "engine/UriTemplate.h"

#include <gtest/gtest.h>

using namespace MCP;

TEST(UriTemplateTest, MatchesLevelOneAndReservedExpansion)
{
    using Values = std::map<std::string, std::string>;
    struct Case {
        const char *templateText;
        const char *uri;
        std::optional<Values> expected;
    };
    for (const Case &c : std::vector<Case>{
             {"test://template/{id}/data", "test://template/123/data", Values{{"id", "123"}}},
             {"test://template/{id}/data", "test://template/%7Bx%7D/data", Values{{"id", "{x}"}}},
             {"test://template/{id}/data", "test://template/1/2/data", std::nullopt},
             {"test://template/{id}/data", "test://template/1?x/data", std::nullopt},
             {"test://template/{id}/data", "test://template//data", std::nullopt},
             {"file:///{+path}", "file:///a/b%20c.txt", Values{{"path", "a/b%20c.txt"}}},
             {"db://{table}/{+rest}", "db://users/1/2", Values{{"table", "users"}, {"rest", "1/2"}}},
             {"x://{a}-{b}", "x://one-two-three", Values{{"a", "one-two"}, {"b", "three"}}},
             {"x://{a}", "x://A", Values{{"a", "A"}}},
             {"x://{a}", "y://A", std::nullopt},
             // Operators beyond + and unclosed braces make no template that matches.
             {"x://{?q}", "x://?q=1", std::nullopt},
             {"x://{a", "x://{a", std::nullopt},
         }) {
        EXPECT_EQ(UriTemplate::match(c.templateText, c.uri), c.expected) << c.templateText << " / " << c.uri;
    }
    EXPECT_TRUE(UriTemplate::isTemplate("test://template/{id}/data"));
    EXPECT_FALSE(UriTemplate::isTemplate("test://static-text"));
    EXPECT_FALSE(UriTemplate::isTemplate("x://{a"));
    EXPECT_EQ(UriTemplate::variables("db://{table}/{+rest}"), (std::vector<std::string>{"table", "rest"}));
}
