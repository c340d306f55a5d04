#include "tests/scripting/ScriptTestFixture.h"

#include <QJsonArray>

namespace {

using BootstrapTest = ScriptTestFixture;

TEST_F(BootstrapTest, RequireLoadsSiblingsRelativeToTheirOwnFolder)
{
    writeScript("exports.twice = function (n) { return 2 * n; };\nexports.where = __moduleDir;", "math.js", folder + "/lib");
    writeScript("var math = require('./math');\nmodule.exports = { quad: function (n) { return math.twice(math.twice(n)); } };",
                "index.js", folder + "/lib");
    writeScript("{\"greeting\": \"hi\"}", "config.json", folder + "/data");
    const JSONToolResult result = run(R"JS(
        var lib = require('./lib');
        var again = require('lib/index.js');
        var config = require('./data/config.json');
        function toolEntry() {
            return Tool.result(config.greeting + ' ' + lib.quad(3), {
                same: lib === again,
                where: require('./lib/math').where,
                resolved: require.resolve('./lib/math')
            });
        })JS");
    EXPECT_EQ(text(result), "hi 12");
    EXPECT_TRUE(field(result, "same").toBool());
    EXPECT_EQ(field(result, "where").toString(), folder + "/lib");
    EXPECT_EQ(field(result, "resolved").toString(), folder + "/lib/math.js");
}

TEST_F(BootstrapTest, MissingModuleThrowsAnErrorTheScriptCanCatch)
{
    const JSONToolResult result = run(R"JS(
        function toolEntry() {
            try { require('./nowhere'); return Tool.result('loaded'); }
            catch (e) { return Tool.error(e); }
        })JS");
    EXPECT_FALSE(field(result, "success").toBool(true));
    EXPECT_EQ(text(result), "Cannot find module './nowhere' from '" + folder + "'");
    EXPECT_EQ(field(result, "error").toString(), text(result));
}

TEST_F(BootstrapTest, DispatchRoutesByHandlerNameAndTurnsAnswersIntoResults)
{
    const QString path = writeScript(R"JS(
        var handlers = {
            greet: function (params) { return 'Hello ' + params.name; },
            count: function (params) { return { text: 'counted', metadata: { count: params.items.length } }; },
            raw: function () { return [1, 2]; },
            fail: function () { throw new Error('no luck'); }
        };
        function toolEntry(sid, handlerName, jsonParams) {
            return Tool.dispatch(handlers, sid, handlerName, jsonParams);
        })JS");
    auto callHandler = [&](const QString &handler, const QString &json) {
        return PluginScripting::callScript("dispatch", path, handler, json);
    };
    EXPECT_EQ(text(callHandler("greet", R"({"name": "Ada"})")), "Hello Ada");
    const JSONToolResult counted = callHandler("count", R"({"items": [1, 2, 3]})");
    EXPECT_EQ(text(counted), "counted");
    EXPECT_EQ(field(counted, "count").toInt(), 3);
    EXPECT_EQ(text(callHandler("raw", "{}")), "[\n  1,\n  2\n]");
    const JSONToolResult failed = callHandler("fail", "{}");
    EXPECT_EQ(text(failed), "no luck");
    EXPECT_FALSE(field(failed, "success").toBool(true));
    EXPECT_EQ(text(callHandler("other", "not json")), "Unknown handler 'other'");
}

TEST_F(BootstrapTest, ContentItemsBecomeTheResultsContent)
{
    const QString path = writeScript(R"JS(
        var handlers = {
            one: function () { return Tool.image('AAAA', 'image/png'); },
            mixed: function () {
                return [Tool.text('Look:'), Tool.audio('UklG', 'audio/wav'), Tool.resource('test://r', 'body', 'text/plain'),
                        Tool.resource('test://b', { blob: 'AQID' }), Tool.resourceLink('file:///a.txt', 'a', 'The file')];
            },
            list: function () { return [{ type: 'picture' }]; }
        };
        function toolEntry(sid, handlerName, jsonParams) {
            if (handlerName === 'bad') {
                return Tool.content([{ type: 'text' }]);
            }
            return Tool.dispatch(handlers, sid, handlerName, jsonParams);
        })JS");
    auto items = [&](const QString &handler) {
        QJsonArray array;
        for (const JSONToolContent &item : PluginScripting::callScript("dispatch", path, handler, "{}").content)
            array.append(item.toJson());
        return array;
    };
    EXPECT_EQ(items("one"), (QJsonArray{QJsonObject{{"type", "image"}, {"data", "AAAA"}, {"mimeType", "image/png"}}}));
    EXPECT_EQ(items("mixed"),
              (QJsonArray{QJsonObject{{"type", "text"}, {"text", "Look:"}},
                          QJsonObject{{"type", "audio"}, {"data", "UklG"}, {"mimeType", "audio/wav"}},
                          QJsonObject{{"type", "resource"},
                                      {"resource", QJsonObject{{"uri", "test://r"}, {"text", "body"}, {"mimeType", "text/plain"}}}},
                          QJsonObject{{"type", "resource"}, {"resource", QJsonObject{{"uri", "test://b"}, {"blob", "AQID"}}}},
                          QJsonObject{{"type", "resource_link"}, {"uri", "file:///a.txt"}, {"name", "a"}, {"description", "The file"}}}));
    // A text item without text is the script's fault, said as such.
    const JSONToolResult bad = PluginScripting::callScript("dispatch", path, "bad", "{}");
    EXPECT_EQ(text(bad), "Error 1402 [Script] A content item of the result has no type (or a text item no text)");
    // Objects of unknown kinds are no content items: shown as JSON, as before.
    EXPECT_EQ(items("list").at(0).toObject().value("type").toString(), "text");
}

TEST_F(BootstrapTest, PathHelpersResolveAgainstTheModuleFolder)
{
    const JSONToolResult result = run(R"JS(
        function toolEntry() {
            return Tool.result([
                Path.resolve('data', '../x.txt'),
                Path.resolve('/etc', 'hosts'),
                Path.join('a', './b', '../c'),
                Path.dirname('/a/b/c.txt'),
                Path.basename('/a/b/c.txt', '.txt'),
                Path.extname('archive.tar.gz'),
                Tool.parse('{bad', 'fallback')
            ].join('|'));
        })JS");
    EXPECT_EQ(text(result), folder + "/x.txt|/etc/hosts|a/c|/a/b|c|.gz|fallback");
}

}  // namespace
