#include "diagnostics/LogController.h"
#include "engine/bridge/MCPServerBridge.h"
#include "tests/http/TestHttpServer.h"
#include "tests/support/TestSupport.h"
#include "tools/plugins/PluginController.h"
#include "tools/router/MCPServer.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMutex>
#include <QThread>

#include <gtest/gtest.h>

namespace {

QString structuredString(const JSONToolResult &result, const char *key)
{
    return result.structuredContent.value(QString::fromLatin1(key)).toJson().toString();
}

QJsonValue structured(const JSONToolResult &result, const char *key)
{
    return result.structuredContent.value(QString::fromLatin1(key)).toJson();
}

QString writeFile(const QString &path, const QByteArray &data)
{
    QFile file(path);
    EXPECT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(data);
    return path;
}

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
        folder = TestSupport::makeTempDir(QStringLiteral("router"));
        auto *log = LogController::shared();
        previousHandler = log->logHandler();
        log->setLogHandler([this](MCPLogMessageType level, int code, const QString &message) {
            QMutexLocker lock(&linesMutex);
            lines.append({level, code, message});
        });
        router = std::make_unique<MCPServer>(LogController::shared(), &bridge, PluginController::shared());
    }

    void TearDown() override
    {
        TestSupport::spin(30);
        LogController::shared()->setLogHandler(previousHandler);
    }

    // The enriched arguments the engine hands over for a tool.
    static QVariantMap toolArguments(const QString &toolType, const QString &execMethod,
                                     const QVariantMap &extra = {})
    {
        QVariantMap arguments{{QStringLiteral("sessionId"), QStringLiteral("session-1")},
                              {QStringLiteral("name"), QStringLiteral("my_tool")},
                              {QStringLiteral("toolType"), toolType},
                              {QStringLiteral("execHandler"), QStringLiteral("handler")},
                              {QStringLiteral("execMethod"), execMethod}};
        for (auto it = extra.cbegin(); it != extra.cend(); ++it)
            arguments.insert(it.key(), it.value());
        return arguments;
    }

    JSONToolResult call(const QVariantMap &arguments, const JSONToolConfig &config = {})
    {
        return router->handleToolCall(arguments, config);
    }

    QString echoScript()
    {
        return writeFile(folder + QStringLiteral("/echo.js"),
                         "function toolEntry(sid, handlerName, jsonParams) {\n"
                         "  return JSON.stringify({text: jsonParams});\n"
                         "}\n");
    }

    bool logged(MCPLogMessageType level, const QString &message)
    {
        TestSupport::spin(10);
        QMutexLocker lock(&linesMutex);
        for (const Line &line : lines)
            if (line.level == level && line.code == -1 && line.message == message)
                return true;
        return false;
    }

    struct Line {
        MCPLogMessageType level;
        int code;
        QString message;
    };
    QString folder;
    MCPServerBridge bridge;
    std::unique_ptr<MCPServer> router;
    LogController::LogHandler previousHandler;
    QMutex linesMutex;
    QList<Line> lines;
};

TEST_F(MCPServerTest, TheFourChecksComeFirstAndFailInOrder)
{
    struct Case {
        const char *message;
    };
    const Case cases[] = {{"Custom tool sessionId must not be empty"},
                          {"Custom tool name must not be empty"},
                          {"Custom tool type must not be empty"},
                          {"Custom tool execMethod must not be empty"}};
    const char *keys[] = {"sessionId", "name", "toolType", "execMethod"};
    for (int i = 0; i < 4; ++i) {
        // The key under test and every later one are empty: the first check that fails speaks.
        QVariantMap arguments = toolArguments(QStringLiteral("BuiltinTool"), QStringLiteral("readFile"));
        for (int j = i; j < 4; ++j)
            arguments.insert(QString::fromLatin1(keys[j]), QString());
        const JSONToolResult result = call(arguments);
        EXPECT_EQ(structuredString(result, "error_message"), QString::fromLatin1(cases[i].message)) << keys[i];
        EXPECT_EQ(structured(result, "success"), QJsonValue(false));
        EXPECT_TRUE(logged(MCPLogMessageType::Error, QString::fromLatin1(cases[i].message)));
    }

    // A value of another kind counts as missing.
    QVariantMap arguments = toolArguments(QStringLiteral("BuiltinTool"), QStringLiteral("readFile"));
    arguments.insert(QStringLiteral("sessionId"), 42);
    EXPECT_EQ(structuredString(call(arguments), "error_message"), QStringLiteral("Custom tool sessionId must not be empty"));
}

TEST_F(MCPServerTest, RoutesByToolTypeAndRefusesEmptyHandlers)
{
    QVariantMap script = toolArguments(QStringLiteral("ScriptTool"), QStringLiteral("toolEntry"),
                                       {{QStringLiteral("execHandler"), QString()}});
    EXPECT_EQ(structuredString(call(script), "error_message"),
              QStringLiteral("Script tool handler name must not be empty"));

    QVariantMap custom = toolArguments(QStringLiteral("CustomTool"), QStringLiteral("run"),
                                       {{QStringLiteral("execHandler"), QString()}});
    EXPECT_EQ(structuredString(call(custom), "error_message"),
              QStringLiteral("Custom tool handler name must not be empty"));

    // The type is compared exactly.
    QVariantMap other = toolArguments(QStringLiteral("builtintool"), QStringLiteral("readFile"));
    EXPECT_EQ(structuredString(call(other), "error_message"),
              QStringLiteral("No handler for 'my_tool::readFile' of type 'builtintool' available."));
}

TEST_F(MCPServerTest, EffectiveParametersAreTheArgumentsMapOrEverything)
{
    const QVariantMap inner{{QStringLiteral("file_path"), QStringLiteral("/tmp/x")}};
    QVariantMap withMap = toolArguments(QStringLiteral("BuiltinTool"), QStringLiteral("readFile"),
                                        {{QStringLiteral("arguments"), inner}});
    const auto effective = MCPServer::effectiveParameters(withMap);
    ASSERT_TRUE(effective.has_value());
    EXPECT_EQ(*effective, inner);
    EXPECT_FALSE(effective->contains(QStringLiteral("sessionId")));

    const QVariantMap flat = toolArguments(QStringLiteral("BuiltinTool"), QStringLiteral("readFile"));
    EXPECT_EQ(MCPServer::effectiveParameters(flat), flat);

    QVariantMap notAMap = flat;
    notAMap.insert(QStringLiteral("arguments"), QStringLiteral("text"));
    EXPECT_FALSE(MCPServer::effectiveParameters(notAMap).has_value());
}

TEST_F(MCPServerTest, BuiltinFileMethodsReadTheNestedArgumentsAndCheckTheirParameters)
{
    const QString path = writeFile(folder + QStringLiteral("/note.txt"), "one\ntwo");

    // The path sits only inside `arguments`: the executor sees that map.
    const JSONToolResult read = call(toolArguments(
        QStringLiteral("BuiltinTool"), QStringLiteral("readFile"),
        {{QStringLiteral("arguments"), QVariantMap{{QStringLiteral("file_path"), QStringLiteral("  ") + path + "\n"}}}}));
    EXPECT_EQ(structured(read, "success"), QJsonValue(true));
    EXPECT_EQ(structuredString(read, "content"), QStringLiteral("one\ntwo"));
    EXPECT_EQ(structuredString(read, "file_path"), path);  // trimmed by the router

    const JSONToolResult missing = call(toolArguments(QStringLiteral("BuiltinTool"), QStringLiteral("readFile")));
    EXPECT_EQ(structuredString(missing, "error_message"), QStringLiteral("Tool parameter 'file_path' must not be empty."));
    EXPECT_TRUE(logged(MCPLogMessageType::Info, QStringLiteral("Tool parameter 'file_path' must not be empty.")));

    const JSONToolResult noContent = call(toolArguments(QStringLiteral("BuiltinTool"), QStringLiteral("writeFile"),
                                                        {{QStringLiteral("file_path"), path},
                                                         {QStringLiteral("content"), QString()}}));
    EXPECT_EQ(structuredString(noContent, "error_message"), QStringLiteral("Tool parameter 'content' must not be empty."));
    EXPECT_EQ(QFile(path).size(), 7) << "nothing was written";

    const JSONToolResult invalid = call(toolArguments(QStringLiteral("BuiltinTool"), QStringLiteral("readFile"),
                                                      {{QStringLiteral("arguments"), QVariantList{1, 2}}}));
    EXPECT_EQ(structuredString(invalid, "error_message"), QStringLiteral("Tool arguments missing or invalid data type."));
    EXPECT_TRUE(logged(MCPLogMessageType::Error, QStringLiteral("Tool arguments missing or invalid data type.")));

    const JSONToolResult unknown = call(toolArguments(QStringLiteral("BuiltinTool"), QStringLiteral("readFiles")));
    EXPECT_TRUE(structuredString(unknown, "error_message").contains(QStringLiteral("my_tool:readFiles")));
}

TEST_F(MCPServerTest, MissingExecutorsGiveAnHonestErrorWithTheOutputSchemasNeutralValues)
{
    JSONToolConfig config;
    config.outputSchema.properties.insert(QStringLiteral("count"), property("integer"));
    config.outputSchema.properties.insert(QStringLiteral("ratio"), property("number"));
    config.outputSchema.properties.insert(QStringLiteral("done"), property("boolean"));
    config.outputSchema.properties.insert(QStringLiteral("calendars"), property("array"));
    config.outputSchema.properties.insert(QStringLiteral("meta"), property("object"));
    config.outputSchema.properties.insert(QStringLiteral("note"), property("date"));
    // Members the result has keep their values, whatever the schema says.
    config.outputSchema.properties.insert(QStringLiteral("success"), property("string"));

    // "listCalendars" runs on the main thread: call from a worker, as the engine does.
    JSONToolResult result;
    QThread *worker = QThread::create([&] {
        result = call(toolArguments(QStringLiteral("BuiltinTool"), QStringLiteral("listCalendars")), config);
    });
    worker->start();
    ASSERT_TRUE(TestSupport::waitUntil([&] { return worker->isFinished(); }));
    delete worker;

    const QString message = structuredString(result, "error_message");
    EXPECT_TRUE(message.contains(QStringLiteral("my_tool:listCalendars"))) << message.toStdString();
    EXPECT_TRUE(message.contains(QStringLiteral("CalendarToolHandler"))) << message.toStdString();
    EXPECT_EQ(structured(result, "success"), QJsonValue(false));
    EXPECT_EQ(structured(result, "count"), QJsonValue(0));
    EXPECT_EQ(structured(result, "ratio"), QJsonValue(0));
    EXPECT_EQ(structured(result, "done"), QJsonValue(false));
    EXPECT_EQ(structured(result, "calendars"), QJsonValue(QJsonArray()));
    EXPECT_EQ(structured(result, "meta"), QJsonValue(QJsonObject()));
    EXPECT_EQ(structured(result, "note"), QJsonValue(QString()));
    ASSERT_EQ(result.content.size(), 1);
    EXPECT_EQ(result.content.first().text, QStringLiteral("Error -1 ") + message);

    // On the wire the neutral value is a plain 0.
    const QJsonObject wire = QJsonDocument::fromJson(result.json().toUtf8()).object();
    EXPECT_EQ(wire.value(QStringLiteral("structuredContent")).toObject().value(QStringLiteral("count")), QJsonValue(0));
}

TEST_F(MCPServerTest, PluginToolsNeedAPluginNameAndARegisteredPlugin)
{
    const JSONToolResult noPlugin = call(toolArguments(QStringLiteral("CustomTool"), QStringLiteral("run")));
    EXPECT_EQ(structuredString(noPlugin, "error_message"),
              QStringLiteral("Pluing name missing in custom tool configuration"));

    JSONToolConfig config;
    config.outputSchema.properties.insert(QStringLiteral("words"), property("integer"));
    const JSONToolResult result = call(
        toolArguments(QStringLiteral("CustomTool"), QStringLiteral("run"), {{QStringLiteral("pluginName"), QStringLiteral("TextStats")}}),
        config);
    EXPECT_EQ(structuredString(result, "error_message"), QStringLiteral("Could not find custom tool plugin: TextStats"));
    EXPECT_EQ(structured(result, "words"), QJsonValue(0));
}

TEST_F(MCPServerTest, ScriptsGetTheNestedMapOrAllArguments)
{
    const QString script = echoScript();
    auto params = [](const JSONToolResult &result) {
        return QJsonDocument::fromJson(result.content.value(0).text.toUtf8()).object();
    };

    const JSONToolResult nested = call(toolArguments(
        QStringLiteral("ScriptTool"), QStringLiteral("toolEntry"),
        {{QStringLiteral("scriptName"), script}, {QStringLiteral("arguments"), QVariantMap{{QStringLiteral("text"), QStringLiteral("hi")}}}}));
    EXPECT_EQ(params(nested), (QJsonObject{{QStringLiteral("text"), QStringLiteral("hi")}}));

    const JSONToolResult flat = call(toolArguments(QStringLiteral("ScriptTool"), QStringLiteral("toolEntry"),
                                                   {{QStringLiteral("scriptName"), script}}));
    EXPECT_EQ(params(flat).value(QStringLiteral("sessionId")).toString(), QStringLiteral("session-1"));
    EXPECT_EQ(params(flat).value(QStringLiteral("execHandler")).toString(), QStringLiteral("handler"));

    // An `arguments` member that is no map does not stop a script.
    const JSONToolResult notAMap = call(toolArguments(
        QStringLiteral("ScriptTool"), QStringLiteral("toolEntry"),
        {{QStringLiteral("scriptName"), script}, {QStringLiteral("arguments"), QStringLiteral("loose")}}));
    EXPECT_EQ(params(notAMap).value(QStringLiteral("arguments")).toString(), QStringLiteral("loose"));

    const JSONToolResult noScript = call(toolArguments(QStringLiteral("ScriptTool"), QStringLiteral("toolEntry")));
    EXPECT_EQ(structuredString(noScript, "error_message"),
              QStringLiteral("Script file name missing in custom tool configuration"));
}

TEST_F(MCPServerTest, FileResourcesGiveTheTextOrTheReadersError)
{
    const QString path = writeFile(folder + QStringLiteral("/resource.txt"), "Grüße\n");
    auto resource = [](const QString &uri, const QString &type) {
        return QVariantMap{{QStringLiteral("uri"), uri},
                           {QStringLiteral("name"), QStringLiteral("Notes")},
                           {QStringLiteral("type"), type},
                           {QStringLiteral("mimeType"), QStringLiteral("text/plain")}};
    };
    EXPECT_EQ(router->handleResource(resource(QUrl::fromLocalFile(path).toString(), QStringLiteral("file"))),
              QStringLiteral("Grüße\n"));
    EXPECT_EQ(router->handleResource(resource(path, QStringLiteral("file"))), QStringLiteral("Grüße\n"));
    EXPECT_TRUE(logged(MCPLogMessageType::Info, QStringLiteral("[MCPServer] Resource handler:\n") +
                                                    QString::fromUtf8(QJsonDocument(QJsonObject::fromVariantMap(resource(path, QStringLiteral("file")))).toJson()).trimmed()));

    const QString missing = router->handleResource(resource(folder + QStringLiteral("/gone.txt"), QStringLiteral("file")));
    EXPECT_EQ(missing, QStringLiteral("File '%1/gone.txt' does not exist.").arg(folder));

    // The checks in order; an error answers with the JSON text of the error result.
    QVariantMap empty = resource(QString(), QString());
    auto errorOf = [this](const QVariantMap &r) {
        const QJsonObject doc = QJsonDocument::fromJson(router->handleResource(r).toUtf8()).object();
        return doc.value(QStringLiteral("structuredContent")).toObject().value(QStringLiteral("error_message")).toString();
    };
    EXPECT_EQ(errorOf(empty), QStringLiteral("Resource URI cannot be empty"));
    empty.insert(QStringLiteral("uri"), QStringLiteral("x:y"));
    empty.insert(QStringLiteral("name"), QString());
    EXPECT_EQ(errorOf(empty), QStringLiteral("Resource name must not be empty"));
    EXPECT_EQ(errorOf(resource(QStringLiteral("x:y"), QString())), QStringLiteral("Resource type must not be empty"));
    QVariantMap noMime = resource(QStringLiteral("x:y"), QStringLiteral("file"));
    noMime.remove(QStringLiteral("mimeType"));
    EXPECT_EQ(errorOf(noMime), QStringLiteral("Resource mimeType must not be empty"));
    EXPECT_EQ(errorOf(resource(QStringLiteral("x:y"), QStringLiteral("data"))),
              QStringLiteral("Error: Failed to handle: 'data' 'x:y'"));
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
    auto resource = [](const QString &uri, const QString &type) {
        return QVariantMap{{QStringLiteral("uri"), uri},
                           {QStringLiteral("name"), QStringLiteral("Remote")},
                           {QStringLiteral("type"), type},
                           {QStringLiteral("mimeType"), QStringLiteral("application/json")}};
    };
    for (const char *type : {"link", "resourceLink", "resource"})
        EXPECT_EQ(router->handleResource(resource(server.url(QStringLiteral("/data")), QString::fromLatin1(type))),
                  QStringLiteral("{\"hello\": \"world\"}"));
    // An HTTP error status still has a body, and that is the text.
    EXPECT_EQ(router->handleResource(resource(server.url(QStringLiteral("/missing")), QStringLiteral("link"))),
              QStringLiteral("not here"));
    EXPECT_EQ(server.requests().size(), 4);
}

TEST_F(MCPServerTest, PromptsAreNotRendered)
{
    const QVariantMap params{{QStringLiteral("name"), QStringLiteral("greeting")},
                             {QStringLiteral("arguments"), QVariantMap{{QStringLiteral("who"), QStringLiteral("Ada")}}}};
    EXPECT_EQ(router->handlePrompt(params), QStringLiteral("Error: Prompt handler not implemented yet"));
    TestSupport::spin(10);
    QMutexLocker lock(&linesMutex);
    ASSERT_FALSE(lines.isEmpty());
    EXPECT_TRUE(lines.last().message.startsWith(QStringLiteral("[MCPServer] Prompt handler called: ")));
    EXPECT_TRUE(lines.last().message.contains(QStringLiteral("Ada")));
}

TEST_F(MCPServerTest, EngineLogLinesReachTheLog)
{
    const int port = TestSupport::freePort();
    AppError error;
    ASSERT_TRUE(bridge.startOnPort(port, false, &error)) << error.description.toStdString();
    bridge.stop();
    ASSERT_TRUE(TestSupport::waitUntil([&] {
        QMutexLocker lock(&linesMutex);
        for (const Line &line : lines)
            if (line.message.contains(QStringLiteral("started on port %1").arg(port)))
                return true;
        return false;
    }));
}
