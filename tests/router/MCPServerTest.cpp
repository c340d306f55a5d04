#include "engine/CallReporter.h"
#include "engine/CancellationToken.h"
#include "engine/JSONParser.h"
#include "engine/bridge/MCPServerBridge.h"
#include "tests/http/TestHttpServer.h"
#include "tests/support/LogLines.h"
#include "tools/plugins/PluginController.h"
#include "tools/router/MCPServer.h"
#include "tools/scripting/ScriptWatchdog.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QThread>

#include <set>

#include "tools/security/BookmarkController.h"
#include "tools/security/PrivacyAccess.h"

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

QJsonValue structured(const JSONToolResult &result, const char *key)
{
    return result.structuredContent.value(QString::fromLatin1(key)).toJson();
}

QString errorMessage(const JSONToolResult &result)
{
    return structured(result, "error_message").toString();
}

QString writeFile(const QString &path, const QByteArray &data)
{
    QFile file(path);
    EXPECT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(data);
    return path;
}

// Keeps what a call reports to its client, as the server's reporter would send it.
class RecordingReporter : public MCP::CallReporter {
public:
    struct Progress {
        double progress;
        std::optional<double> total;
        std::string message;
    };
    struct Message {
        std::string level;
        MCP::JSONValue data;
        std::string logger;
    };

    void progress(double progress, std::optional<double> total, const std::string &message) override
    {
        progressReports.push_back({progress, total, message});
    }
    void log(const std::string &level, const MCP::JSONValue &data, const std::string &logger) override
    {
        messages.push_back({level, data, logger});
    }
    bool wantsProgress() const override { return true; }
    bool closeStream(std::chrono::milliseconds retry) override
    {
        streamRetries.push_back(retry.count());
        return true;
    }
    bool clientSupports(const std::string &capability) const override { return capabilities.count(capability) > 0; }
    // Answers with `reply`; with none, waits as the server would until `stop` gives a reason.
    MCP::ClientRequests::Reply request(const std::string &method, const MCP::JSONValue &params,
                                       const MCP::ClientRequests::StopCheck &stop) override
    {
        requests.emplace_back(method, params);
        if (reply)
            return *reply;
        if (cancelOnRequest)
            cancelOnRequest->cancel();
        MCP::ClientRequests::Reply ended;
        while (!stopReason) {
            stopReason = stop();
            QThread::msleep(5);
        }
        ended.error = *stopReason;
        return ended;
    }

    std::vector<Progress> progressReports;
    std::vector<Message> messages;
    std::vector<int64_t> streamRetries;
    std::set<std::string> capabilities;
    std::vector<std::pair<std::string, MCP::JSONValue>> requests;
    std::optional<MCP::ClientRequests::Reply> reply;
    MCP::CancellationToken *cancelOnRequest = nullptr;
    std::optional<std::string> stopReason;
};

JSONToolSchemaProperty property(const char *type)
{
    JSONToolSchemaProperty p;
    p.type = QString::fromLatin1(type);
    return p;
}

}  // namespace

class MCPServerTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        folder = TestSupport::makeTempDir(u"router"_s);
        // The file tools and file resources act only inside granted folders.
        BookmarkController::shared()->addBookmark(QUrl::fromLocalFile(folder));
        router = std::make_unique<MCPServer>(LogController::shared(), &bridge, PluginController::shared());
    }

    // A tool's configuration as the store registers it.
    static JSONToolConfig tool(const QString &toolType, const QString &execMethod)
    {
        JSONToolConfig config;
        config.name = u"my_tool"_s;
        config.toolType = toolType;
        config.execHandler = u"handler"_s;
        config.execMethod = execMethod;
        return config;
    }

    // A call as the engine hands it over: the client's arguments and the call's context.
    JSONToolResult call(const JSONToolConfig &config, const QJsonObject &arguments = {},
                        const QString &sessionId = u"session-1"_s)
    {
        return router->handleToolCall(arguments, config, ToolInvocation{sessionId, u"7"_s, nullptr});
    }
    JSONToolResult builtin(const QString &method, const QJsonObject &arguments = {})
    {
        return call(tool(u"BuiltinTool"_s, method), arguments);
    }
    JSONToolResult script(const QString &scriptName, const QJsonObject &arguments = {})
    {
        JSONToolConfig config = tool(u"ScriptTool"_s, u"toolEntry"_s);
        config.scriptName = scriptName;
        return call(config, arguments);
    }

    bool logged(MCPLogMessageType level, const QString &message) { return log.contains(level, -1, message); }

    QString folder;
    MCPServerBridge bridge;
    std::unique_ptr<MCPServer> router;
    LogLines log;
};

TEST_F(MCPServerTest, TheFourChecksComeFirstAndFailInOrder)
{
    const char *keys[] = {"sessionId", "name", "toolType", "execMethod"};
    const char *messages[] = {"Custom tool sessionId must not be empty", "Custom tool name must not be empty",
                              "Custom tool type must not be empty", "Custom tool execMethod must not be empty"};
    for (int i = 0; i < 4; ++i) {
        // The field under test and every later one are empty: the first check that fails speaks.
        JSONToolConfig config = tool(u"BuiltinTool"_s, u"readFile"_s);
        QString sessionId = u"session-1"_s;
        QString *fields[] = {&sessionId, &config.name, &config.toolType, &config.execMethod};
        for (int j = i; j < 4; ++j)
            fields[j]->clear();
        const JSONToolResult result = call(config, {}, sessionId);
        EXPECT_EQ(errorMessage(result), messages[i]) << keys[i];
        EXPECT_EQ(structured(result, "success"), QJsonValue(false));
        EXPECT_TRUE(logged(MCPLogMessageType::Error, QString::fromLatin1(messages[i])));
    }

    // The client's arguments never stand in for the call's context or the configuration.
    JSONToolConfig blank = tool(QString(), u"readFile"_s);
    EXPECT_EQ(errorMessage(call(blank, {{"sessionId", "s"}, {"toolType", "BuiltinTool"}}, QString())),
              "Custom tool sessionId must not be empty");
    EXPECT_EQ(errorMessage(call(blank, {{"toolType", "BuiltinTool"}})), "Custom tool type must not be empty");
    // A method stored with blanks and quotes is cleaned as the engine's definition has it.
    JSONToolConfig loose = tool(u"BuiltinTool"_s, u" \"readFiles\" "_s);
    EXPECT_TRUE(errorMessage(call(loose)).contains(u"my_tool:readFiles'"_s));
}

TEST_F(MCPServerTest, RoutesByToolTypeAndRefusesEmptyHandlers)
{
    JSONToolConfig scriptTool = tool(u"ScriptTool"_s, u"toolEntry"_s);
    scriptTool.execHandler.clear();
    EXPECT_EQ(errorMessage(call(scriptTool)), "Script tool handler name must not be empty");
    JSONToolConfig pluginTool = tool(u"CustomTool"_s, u"run"_s);
    pluginTool.execHandler = u" [ ] "_s;  // nothing once cleaned
    EXPECT_EQ(errorMessage(call(pluginTool)), "Custom tool handler name must not be empty");
    // The type is compared exactly.
    EXPECT_EQ(errorMessage(call(tool(u"builtintool"_s, u"readFile"_s))),
              "No handler for 'my_tool::readFile' of type 'builtintool' available.");
}

TEST_F(MCPServerTest, EffectiveParametersAreTheArgumentsMapOrEverything)
{
    const QJsonObject inner{{"file_path", "/tmp/x"}};
    EXPECT_EQ(MCPServer::effectiveParameters({{"arguments", inner}, {"other", 1}}), inner);
    const QJsonObject flat{{"file_path", "/tmp/y"}, {"name", "n"}};
    EXPECT_EQ(MCPServer::effectiveParameters(flat), flat);
    EXPECT_FALSE(MCPServer::effectiveParameters({{"arguments", "text"}}));
    EXPECT_FALSE(MCPServer::effectiveParameters({{"arguments", QJsonValue::Null}}));
}

TEST_F(MCPServerTest, BuiltinFileMethodsReadTheNestedArgumentsAndCheckTheirParameters)
{
    const QString path = writeFile(folder + u"/note.txt"_s, "one\ntwo");

    // The path sits only inside `arguments`: the executor sees that map.
    const JSONToolResult read = builtin(u"readFile"_s, {{"arguments", QJsonObject{{"file_path", "  " + path + "\n"}}}});
    EXPECT_EQ(structured(read, "success"), QJsonValue(true));
    EXPECT_EQ(structured(read, "content").toString(), "one\ntwo");
    EXPECT_EQ(structured(read, "file_path").toString(), path);  // trimmed by the router

    EXPECT_EQ(errorMessage(builtin(u"readFile"_s)), "Tool parameter 'file_path' must not be empty.");
    EXPECT_TRUE(logged(MCPLogMessageType::Info, u"Tool parameter 'file_path' must not be empty."_s));
    EXPECT_EQ(errorMessage(builtin(u"writeFile"_s, {{"file_path", path}, {"content", QString()}})),
              "Tool parameter 'content' must not be empty.");
    EXPECT_EQ(QFile(path).size(), 7) << "nothing was written";

    EXPECT_EQ(errorMessage(builtin(u"readFile"_s, {{"arguments", QJsonArray{1, 2}}})),
              "Tool arguments missing or invalid data type.");
    EXPECT_TRUE(logged(MCPLogMessageType::Error, u"Tool arguments missing or invalid data type."_s));
    EXPECT_TRUE(errorMessage(builtin(u"readFiles"_s)).contains(u"my_tool:readFiles"_s));
}

TEST_F(MCPServerTest, AHandlersFailureGetsTheOutputSchemasNeutralValues)
{
    JSONToolConfig config;
    for (const auto &[name, type] : {std::pair{"count", "integer"}, {"ratio", "number"}, {"done", "boolean"},
                                     {"calendars", "array"}, {"meta", "object"}, {"note", "date"},
                                     // Members the result has keep their values, whatever the schema says.
                                     {"success", "string"}})
        config.outputSchema.properties.insert(QString::fromLatin1(name), property(type));

    // "listCalendars" runs on the main thread: call from a worker, as the engine does.
    PrivacyAccess::setStatus(PrivacyAccess::Kind::Calendars, PrivacyAccess::Denied);
    JSONToolResult result;
    config.name = u"my_tool"_s;
    config.toolType = u"BuiltinTool"_s;
    config.execHandler = u"handler"_s;
    config.execMethod = u"listCalendars"_s;
    QThread *worker = QThread::create([&] { result = call(config); });
    worker->start();
    ASSERT_TRUE(TestSupport::waitUntil([&] { return worker->isFinished(); }));
    delete worker;

    EXPECT_EQ(QJsonDocument::fromJson(result.json().toUtf8())["structuredContent"].toObject(),
              (QJsonObject{{"success", false}, {"error", "Calendar access denied."}, {"count", 0}, {"ratio", 0},
                           {"done", false}, {"calendars", QJsonArray()}, {"meta", QJsonObject()}, {"note", ""}}));
    ASSERT_EQ(result.content.size(), 1);
    EXPECT_TRUE(result.content.first().text.startsWith(u"Current date/time context: "_s));
    EXPECT_TRUE(result.content.first().text.contains(u"\nCalendar access denied.\n\n```json\n"_s));
}

TEST_F(MCPServerTest, PluginToolsNeedAPluginNameAndARegisteredPlugin)
{
    // A client's `pluginName` argument does not name the plug-in.
    EXPECT_EQ(errorMessage(call(tool(u"CustomTool"_s, u"run"_s), {{"pluginName", "TextStats"}})),
              "Pluing name missing in custom tool configuration");

    JSONToolConfig config = tool(u"CustomTool"_s, u"run"_s);
    config.pluginName = u"TextStats"_s;
    config.outputSchema.properties.insert(u"words"_s, property("integer"));
    const JSONToolResult result = call(config);
    EXPECT_EQ(errorMessage(result), "Could not find custom tool plugin: TextStats");
    EXPECT_EQ(structured(result, "words"), QJsonValue(0));
}

TEST_F(MCPServerTest, ScriptsGetTheNestedMapOrAllArguments)
{
    const QString echo = writeFile(folder + u"/echo.js"_s, "function toolEntry(sid, handlerName, jsonParams) {\n"
                                                           "  return JSON.stringify({text: jsonParams});\n}\n");
    auto params = [](const JSONToolResult &result) { return QJsonDocument::fromJson(result.content.value(0).text.toUtf8()); };

    EXPECT_EQ(params(script(echo, {{"arguments", QJsonObject{{"text", "hi"}}}, {"text", "outer"}})).object(),
              (QJsonObject{{"text", "hi"}}));
    // Without the member the script gets the client's arguments as they came, nothing added.
    const QJsonObject flat{{"text", "hi"}, {"count", 3}, {"list", QJsonArray{true, QJsonValue::Null}}};
    EXPECT_EQ(params(script(echo, flat)).object(), flat);
    EXPECT_EQ(params(script(echo)).object(), QJsonObject());
    // An `arguments` member that is no object does not stop a script.
    EXPECT_EQ(params(script(echo, {{"arguments", "loose"}}))["arguments"].toString(), "loose");
    EXPECT_EQ(errorMessage(script(QString(), flat)), "Script file name missing in custom tool configuration");
    // A `scriptName` argument names no script.
    EXPECT_EQ(errorMessage(script(QString(), {{"scriptName", echo}})), "Script file name missing in custom tool configuration");
}

TEST_F(MCPServerTest, ParametersCalledNameTitleAndSessionIdReachTheScriptAsTheClientSentThem)
{
    // The session id and the handler's name come as toolEntry's own arguments.
    const QString echo = writeFile(folder + u"/names.js"_s,
                                   "function toolEntry(sid, handlerName, jsonParams) {\n"
                                   "  var p = JSON.parse(jsonParams);\n"
                                   "  return JSON.stringify({text: 'ok', metadata: {sid: sid, handler: handlerName,\n"
                                   "    name: p.name, title: p.title, sessionId: p.sessionId, keys: Object.keys(p).length}});\n}\n");
    JSONToolConfig config = tool(u"ScriptTool"_s, u"toolEntry"_s);
    config.scriptName = echo;
    config.title = u"The tool's title"_s;
    for (const char *parameter : {"name", "title", "sessionId"})
        config.inputSchema.properties.insert(QString::fromLatin1(parameter), property("string"));

    const JSONToolResult result =
        call(config, {{"name", "Ada"}, {"title", "Countess"}, {"sessionId", "client-chosen"}}, u"connection-9"_s);
    EXPECT_EQ(structured(result, "success"), QJsonValue(true)) << result.json().toStdString();
    EXPECT_EQ(structured(result, "name"), QJsonValue("Ada"));
    EXPECT_EQ(structured(result, "title"), QJsonValue("Countess"));
    EXPECT_EQ(structured(result, "sessionId"), QJsonValue("client-chosen"));
    EXPECT_EQ(structured(result, "keys"), QJsonValue(3));
    EXPECT_EQ(structured(result, "sid"), QJsonValue("connection-9"));
    EXPECT_EQ(structured(result, "handler"), QJsonValue("handler"));
}

TEST_F(MCPServerTest, AScriptsProgressAndLogMessagesReachTheCallersReporter)
{
    JSONToolConfig config = tool(u"ScriptTool"_s, u"toolEntry"_s);
    config.name = u"reporting_tool"_s;
    config.scriptName = writeFile(folder + u"/reporting.js"_s,
                                  "function toolEntry(sid, handlerName, jsonParams) {\n"
                                  "  Kelvara.progress(1, 3, 'first of three');\n"
                                  "  Kelvara.progress(2.5);\n"
                                  "  Kelvara.progress(3, null, 'done');\n"
                                  "  Kelvara.log('warning', 'disk nearly full', {free: 12, unit: 'MB'});\n"
                                  "  Kelvara.log('Info', 'plain words');\n"
                                  "  Kelvara.log('debug', 'rows', [1, 2]);\n"
                                  "  Kelvara.log('emergency', '', {only: 'data'});\n"
                                  "  Kelvara.log('notice', 'the text leads', {message: 'overruled'});\n"
                                  "  console.log('to Kelvara only');\n"
                                  "  var ended = Kelvara.closeStream(250) && Kelvara.closeStream();\n"
                                  "  return JSON.stringify({text: ended ? 'reported' : 'stream kept'});\n}\n");
    auto reporter = std::make_shared<RecordingReporter>();
    const JSONToolResult result =
        router->handleToolCall({}, config, ToolInvocation{u"session-1"_s, u"7"_s, nullptr, reporter});
    EXPECT_EQ(result.content.value(0).text, u"reported"_s);

    ASSERT_EQ(reporter->progressReports.size(), 3u);
    EXPECT_EQ(reporter->progressReports[0].progress, 1);
    EXPECT_EQ(reporter->progressReports[0].total, std::optional<double>(3));
    EXPECT_EQ(reporter->progressReports[0].message, "first of three");
    EXPECT_EQ(reporter->progressReports[1].progress, 2.5);
    EXPECT_EQ(reporter->progressReports[1].total, std::nullopt);
    EXPECT_EQ(reporter->progressReports[1].message, "");
    EXPECT_EQ(reporter->progressReports[2].total, std::nullopt);
    EXPECT_EQ(reporter->progressReports[2].message, "done");

    // The logger is the tool; console stays in Kelvara's own log.
    ASSERT_EQ(reporter->messages.size(), 5u);
    const std::vector<std::pair<std::string, std::string>> expected = {
        {"warning", R"({"free":12,"message":"disk nearly full","unit":"MB"})"},
        {"info", R"("plain words")"},
        {"debug", R"({"data":[1,2],"message":"rows"})"},
        {"emergency", R"({"only":"data"})"},
        {"notice", R"({"message":"the text leads"})"},
    };
    for (size_t i = 0; i < expected.size(); ++i) {
        EXPECT_EQ(reporter->messages[i].level, expected[i].first) << i;
        EXPECT_EQ(reporter->messages[i].data, MCP::JSONParser::parseDocument(expected[i].second).value()) << i;
        EXPECT_EQ(reporter->messages[i].logger, "reporting_tool") << i;
    }
    EXPECT_TRUE(log.contains(MCPLogMessageType::Info, -1, u"to Kelvara only"_s));
    // The retry as given, a second when left out.
    EXPECT_EQ(reporter->streamRetries, (std::vector<int64_t>{250, 1000}));
}

TEST_F(MCPServerTest, BadReportsAreTheScriptsErrorsAndACancelledCallReportsNothing)
{
    JSONToolConfig config = tool(u"ScriptTool"_s, u"toolEntry"_s);
    auto run = [&](const char *body, const MCP::CancellationToken *token = nullptr) {
        config.scriptName = writeFile(folder + u"/bad.js"_s,
                                      QByteArray("function toolEntry(sid, handlerName, jsonParams) {\n") + body +
                                          "\n  return JSON.stringify({text: 'went on'});\n}\n");
        auto reporter = std::make_shared<RecordingReporter>();
        const MCP::CancellationToken::Scope current(token);
        const JSONToolResult result = router->handleToolCall({}, config, ToolInvocation{u"s"_s, u"1"_s, token, reporter});
        return std::make_pair(result, reporter);
    };
    auto thrownLine = [&](const QString &start) {
        for (const LogLines::Line &line : log.withCode(500))
            if (line.message.startsWith(start))
                return true;
        return false;
    };

    // An unknown level throws where it was used; nothing reaches the client.
    auto [loud, loudReporter] = run("Kelvara.log('loud', 'hello');");
    EXPECT_EQ(errorMessage(loud), u"[Script] Invalid JSON result"_s);
    EXPECT_TRUE(loudReporter->messages.empty());
    EXPECT_TRUE(thrownLine(u"[Script] Error: Kelvara.log: unknown level 'loud'; the levels are debug, info, notice, "
                           "warning, error, critical, alert, emergency"_s));

    // A script may catch it and go on.
    auto [caught, caughtReporter] = run("try { Kelvara.log('verbose', 'x'); } catch (e) { Kelvara.log('error', e.message); }");
    EXPECT_EQ(caught.content.value(0).text, u"went on"_s);
    ASSERT_EQ(caughtReporter->messages.size(), 1u);
    EXPECT_EQ(caughtReporter->messages[0].level, "error");

    auto [noNumber, noNumberReporter] = run("Kelvara.progress('half');");
    EXPECT_EQ(errorMessage(noNumber), u"[Script] Invalid JSON result"_s);
    EXPECT_TRUE(thrownLine(u"[Script] Error: Kelvara.progress: progress must be a finite number"_s));
    auto [badTotal, badTotalReporter] = run("Kelvara.progress(1, 'ten');");
    EXPECT_TRUE(thrownLine(u"[Script] Error: Kelvara.progress: total must be a finite number when given"_s));
    EXPECT_TRUE(noNumberReporter->progressReports.empty());
    EXPECT_TRUE(badTotalReporter->progressReports.empty());
    for (const char *retry : {"'soon'", "-1", "Infinity"}) {
        auto [badRetry, badRetryReporter] = run((std::string("Kelvara.closeStream(") + retry + ");").c_str());
        EXPECT_EQ(errorMessage(badRetry), u"[Script] Invalid JSON result"_s) << retry;
        EXPECT_TRUE(badRetryReporter->streamRetries.empty()) << retry;
    }
    EXPECT_TRUE(thrownLine(u"[Script] Error: Kelvara.closeStream: retry must be a number of milliseconds from 0 to 86400000"_s));

    // Data that has no JSON form (a cycle) is an error too, not a half-sent message.
    auto [cycle, cycleReporter] = run("var a = {}; a.self = a; Kelvara.log('info', 'loop', a);");
    EXPECT_EQ(errorMessage(cycle), u"[Script] Invalid JSON result"_s);
    EXPECT_TRUE(cycleReporter->messages.empty());

    // Once the call is cancelled the script's reports go nowhere.
    MCP::CancellationToken cancelled;
    cancelled.cancel();
    auto [late, lateReporter] = run("Kelvara.progress(1, 2, 'late'); Kelvara.log('error', 'late'); Kelvara.closeStream(1);",
                                    &cancelled);
    EXPECT_TRUE(lateReporter->progressReports.empty());
    EXPECT_TRUE(lateReporter->messages.empty());
    EXPECT_TRUE(lateReporter->streamRetries.empty());
}

TEST_F(MCPServerTest, FileResourcesGiveTheTextTheBytesOrTheReadersError)
{
    const QString path = writeFile(folder + u"/resource.txt"_s, "Grüße\n");
    auto resource = [](const QString &uri, const QString &type, const QString &mimeType = u"text/plain"_s) {
        return QVariantMap{{"uri", uri}, {"name", "Notes"}, {"type", type}, {"mimeType", mimeType}};
    };
    EXPECT_EQ(router->handleResource(resource(QUrl::fromLocalFile(path).toString(), u"file"_s)).text, u"Grüße\n"_s);
    EXPECT_EQ(router->handleResource(resource(path, u"file"_s)).text, u"Grüße\n"_s);
    const QByteArray dump = QJsonDocument(QJsonObject::fromVariantMap(resource(path, u"file"_s))).toJson();
    EXPECT_TRUE(logged(MCPLogMessageType::Info, "[MCPServer] Resource handler:\n" + QString::fromUtf8(dump).trimmed()));
    // A file that cannot be read is a failure with the reader's text, not content.
    const ResourceReading gone = router->handleResource(resource(folder + u"/gone.txt"_s, u"file"_s));
    EXPECT_EQ(gone.error, "File '" + folder + "/gone.txt' does not exist.");
    EXPECT_TRUE(gone.text.isEmpty());

    // Binary content travels as bytes, whatever it holds.
    const QByteArray png("\x89PNG\r\n\x1a\n\0\xff", 10);
    const QString image = writeFile(folder + u"/pixel.png"_s, png);
    const ResourceReading bytes = router->handleResource(resource(image, u"file"_s, u"image/png"_s));
    EXPECT_TRUE(bytes.binary);
    EXPECT_EQ(bytes.bytes, png);
    EXPECT_EQ(router->handleResource(resource(folder, u"file"_s, u"application/octet-stream"_s)).error,
              "'" + folder + "' is not a regular file.");

    // Outside every granted folder neither form is read, and the reason says how to grant it.
    const QString elsewhere = QFileInfo(TestSupport::makeTempDir(u"ungranted"_s)).canonicalFilePath();
    const QString secretText = writeFile(elsewhere + u"/secret.txt"_s, "secret");
    const QString secretImage = writeFile(elsewhere + u"/secret.png"_s, png);
    const QString refusal = u"Failed to read file: Access to '%1' is not granted. Grant its folder in Settings ▸ Security "
                            u"Scopes, or run: kelvara access grant folder "_s + elsewhere;
    const ResourceReading text = router->handleResource(resource(secretText, u"file"_s));
    EXPECT_EQ(text.error, refusal.arg(secretText));
    EXPECT_TRUE(text.text.isEmpty());
    const ResourceReading hidden = router->handleResource(resource(secretImage, u"file"_s, u"image/png"_s));
    EXPECT_EQ(hidden.error, refusal.arg(secretImage));
    EXPECT_TRUE(hidden.bytes.isEmpty());
    for (const char *textual : {"text/markdown", "application/json; charset=utf-8", "application/ld+json", ""})
        EXPECT_TRUE(MCPServer::isTextual(QString::fromLatin1(textual))) << textual;
    EXPECT_FALSE(MCPServer::isTextual(u"application/pdf"_s));

    // The checks in order.
    auto errorOf = [this](const QVariantMap &r) { return router->handleResource(r).error; };
    QVariantMap empty = resource(QString(), QString());
    EXPECT_EQ(errorOf(empty), "Resource URI cannot be empty");
    empty.insert(u"uri"_s, u"x:y"_s);
    empty.insert(u"name"_s, QString());
    EXPECT_EQ(errorOf(empty), "Resource name must not be empty");
    EXPECT_EQ(errorOf(resource(u"x:y"_s, QString())), "Resource type must not be empty");
    QVariantMap noMime = resource(u"x:y"_s, u"file"_s);
    noMime.remove(u"mimeType"_s);
    EXPECT_EQ(errorOf(noMime), "Resource mimeType must not be empty");
    EXPECT_EQ(errorOf(resource(u"x:y"_s, u"data"_s)), "Error: Failed to handle: 'data' 'x:y'");
}

TEST_F(MCPServerTest, LinkResourcesReadTheBodyOverHttp)
{
    TestHttpServer server([](const TestHttpServer::Request &request) {
        TestHttpServer::Response response;
        response.status = request.target == "/missing" ? 404 : 200;
        response.body = request.target == "/missing" ? "not here" : "{\"hello\": \"world\"}";
        return response;
    });
    ASSERT_TRUE(server.isListening());
    auto read = [&](const QString &url, const char *type) {
        return router->handleResource({{"uri", url}, {"name", "Remote"}, {"type", type}, {"mimeType", "application/json"}});
    };
    for (const char *type : {"link", "resourceLink", "resource"})
        EXPECT_EQ(read(server.url(u"/data"_s), type).text, "{\"hello\": \"world\"}") << type;
    // An HTTP error status still has a body, and that is the text.
    EXPECT_EQ(read(server.url(u"/missing"_s), "link").text, "not here");
    EXPECT_EQ(server.requests().size(), 4);

    // No answer at all is a failure that says why, and is logged.
    const QString closed = u"http://127.0.0.1:%1/data"_s.arg(TestSupport::freePort());
    const ResourceReading unreachable = read(closed, "link");
    EXPECT_TRUE(unreachable.error.startsWith("Failed to fetch " + closed + ": ")) << unreachable.error.toStdString();
    EXPECT_TRUE(logged(MCPLogMessageType::Info, unreachable.error));
}

TEST_F(MCPServerTest, PromptsAreNotRenderedAndEngineLogLinesReachTheLog)
{
    const QVariantMap params{{"name", "greeting"}, {"arguments", QVariantMap{{"who", "Ada"}}}};
    EXPECT_EQ(router->handlePrompt(params), "Error: Prompt handler not implemented yet");
    const QList<LogLines::Line> lines = log.all();
    ASSERT_FALSE(lines.isEmpty());
    EXPECT_TRUE(lines.last().message.startsWith(u"[MCPServer] Prompt handler called: "_s));
    EXPECT_TRUE(lines.last().message.contains(u"Ada"_s));

    const int port = TestSupport::freePort();
    BridgeError error;
    ASSERT_TRUE(bridge.startOnPort(port, false, &error)) << error.description;
    bridge.stop();
    ASSERT_TRUE(TestSupport::waitUntil([&] {
        for (const LogLines::Line &line : log.all())
            if (line.message.contains(u"started on port %1"_s.arg(port)))
                return true;
        return false;
    }));
}

TEST_F(MCPServerTest, AScriptAsksItsClientAndGetsTheAnswerOrAClearError)
{
    JSONToolConfig config = tool(u"ScriptTool"_s, u"toolEntry"_s);
    auto run = [&](const char *body, std::shared_ptr<RecordingReporter> reporter, const MCP::CancellationToken *token = nullptr) {
        config.scriptName = writeFile(folder + u"/ask.js"_s,
                                      QByteArray("function toolEntry(sid, handlerName, jsonParams) {\n") + body + "\n}\n");
        const MCP::CancellationToken::Scope current(token);
        return router->handleToolCall({}, config, ToolInvocation{u"s"_s, u"1"_s, token, reporter});
    };
    const char *askName = "try { var a = Kelvara.elicit('Name?', {properties: {name: {type: 'string', default: 'Ada'}}});"
                          " return JSON.stringify({text: a.action + ' ' + JSON.stringify(a.content)}); }"
                          " catch (e) { return JSON.stringify({text: e.message}); }";

    // The answer comes back as an object; the schema goes out with its type filled in.
    auto answering = std::make_shared<RecordingReporter>();
    answering->capabilities = {"elicitation", "sampling"};
    answering->reply = MCP::ClientRequests::Reply{true, MCP::JSONParser::parseDocument(R"({"action":"accept","content":{"name":"Bo"}})").value(), {}, 0};
    EXPECT_EQ(run(askName, answering).content.value(0).text, uR"(accept {"name":"Bo"})"_s);
    ASSERT_EQ(answering->requests.size(), 1u);
    EXPECT_EQ(answering->requests[0].first, "elicitation/create");
    EXPECT_EQ(answering->requests[0].second, MCP::JSONParser::parseDocument(
        R"({"message":"Name?","requestedSchema":{"properties":{"name":{"type":"string","default":"Ada"}},"type":"object"}})").value());

    // sample: a text is one user message, maxTokens has a default, the options go beside.
    answering->reply->result = MCP::JSONParser::parseDocument(
        R"({"role":"assistant","content":{"type":"text","text":"Hi"},"model":"m","stopReason":"endTurn"})").value();
    EXPECT_EQ(run("var r = Kelvara.sample('Say hi', {temperature: 0.5}); return JSON.stringify({text: r.content.text + ' ' + r.model});",
                  answering).content.value(0).text, u"Hi m"_s);
    EXPECT_EQ(answering->requests[1].first, "sampling/createMessage");
    EXPECT_EQ(answering->requests[1].second, MCP::JSONParser::parseDocument(
        R"({"maxTokens":1000,"messages":[{"content":{"text":"Say hi","type":"text"},"role":"user"}],"temperature":0.5})").value());

    // What cannot be sent, or gets no answer, is the script's error; nothing unsendable goes out.
    const std::vector<std::pair<const char *, QString>> faults = {
        {"Kelvara.elicit('x', {properties: {address: {type: 'object'}}})",
         u"Kelvara.elicit: requestedSchema property 'address' has type 'object'; a client can be asked only for "
         "string, number, integer, boolean or an array of choices"_s},
        {"Kelvara.elicit('x', {properties: {tags: {type: 'array', items: {type: 'string'}}}})",
         u"Kelvara.elicit: requestedSchema property 'tags' is an array without \"items\" naming its choices (enum or anyOf)"_s},
        {"Kelvara.elicit('x')", u"Kelvara.elicit: requestedSchema must be an object"_s},
        {"Kelvara.elicit(7, {properties: {}})", u"Kelvara.elicit: message must be a text"_s},
        {"Kelvara.sample([])", u"Kelvara.sample: messages must be a text or a non-empty array of {role, content}"_s},
        {"Kelvara.sample([{role: 'user'}])", u"Kelvara.sample: each message needs a role and a content"_s},
        {"Kelvara.sample('x', {maxTokens: 0})", u"Kelvara.sample: options.maxTokens must be a positive number"_s},
    };
    for (const auto &[call, message] : faults) {
        const QByteArray body = QByteArray("try { ") + call + "; return JSON.stringify({text: 'sent'}); } "
                                "catch (e) { return JSON.stringify({text: e.message}); }";
        EXPECT_EQ(run(body.constData(), answering).content.value(0).text, message) << call;
    }
    EXPECT_EQ(answering->requests.size(), 2u);

    answering->reply = MCP::ClientRequests::Reply{false, {}, "User rejected sampling request", -1};
    EXPECT_EQ(run("try { Kelvara.sample('x'); } catch (e) { return JSON.stringify({text: e.message}); }", answering)
                  .content.value(0).text, u"Kelvara.sample: the client refused (-1): User rejected sampling request"_s);
    answering->reply = MCP::ClientRequests::Reply{true, MCP::JSONParser::parseDocument(R"({"content":{}})").value(), {}, 0};
    EXPECT_EQ(run(askName, answering).content.value(0).text,
              u"Kelvara.elicit: the client's answer has no action (accept, decline or cancel)"_s);

    // A client that declared nothing is not asked; a call without a client has none to ask.
    auto bare = std::make_shared<RecordingReporter>();
    EXPECT_EQ(run(askName, bare).content.value(0).text, u"Kelvara.elicit: the client does not support elicitation"_s);
    EXPECT_TRUE(bare->requests.empty());
    EXPECT_EQ(run(askName, nullptr).content.value(0).text,
              u"Kelvara.elicit: no MCP client made this call, so there is none to ask"_s);

    // A cancel while the script waits ends the wait: the call's limits reach it.
    auto waiting = std::make_shared<RecordingReporter>();
    waiting->capabilities = {"elicitation"};
    MCP::CancellationToken token;
    waiting->cancelOnRequest = &token;
    run(askName, waiting, &token);
    ASSERT_TRUE(waiting->stopReason);
    EXPECT_EQ(*waiting->stopReason, ScriptWatchdog::cancelledText().toStdString());
}
