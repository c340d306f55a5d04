#include "engine/bridge/MCPServerBridge.h"
#include "tests/plugins/PluginTestSupport.h"
#include "tools/router/MCPServer.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMutex>
#include <QMutexLocker>
#include <thread>

using namespace PluginTestSupport;

namespace {

QString errorMessage(const JSONToolResult &result)
{
    return result.structuredContent.value(QStringLiteral("error_message")).toVariant().toString();
}

// Registers and enables each named library fixture in one registry.
class PluginCalls : public ::testing::Test {
protected:
    void SetUp() override
    {
        clearDefaults();
        w = world();
        w.logger->setLogHandler([this](MCPLogMessageType level, int code, const QString &message) {
            QMutexLocker locker(&mutex);
            lines.append(QStringLiteral("%1|%2|").arg(int(level)).arg(code) + message);
        });
    }

    Plugin enable(const QString &name, const QString &path = QString())
    {
        const std::optional<Plugin> plugin = registerFile(w.controller.get(), path.isEmpty() ? fixture(name + QStringLiteral(".so")) : path);
        EXPECT_TRUE(plugin.has_value()) << alertOf(w.controller.get());
        if (!plugin)
            return {};
        w->enablePlugin(*plugin, QUrl::fromLocalFile(plugin->path));
        EXPECT_TRUE(w->plugin(plugin->id)->isEnabled) << alertOf(w.controller.get());
        return *w->plugin(plugin->id);
    }

    JSONToolResult call(const QString &pluginName, const QString &json = QStringLiteral("{\"text\":\"hi\"}"))
    {
        return w->callPlugin(QStringLiteral("session-7"), pluginName, json);
    }

    bool logged(const QString &line)
    {
        QMutexLocker locker(&mutex);
        return lines.contains(line);
    }

    World w;
    QMutex mutex;
    QStringList lines;
};

}  // namespace

TEST_F(PluginCalls, ASuccessfulCallCarriesTheContentInOrderAndTheStructuredContent)
{
    enable(QStringLiteral("reply_echo"));
    const QString json = QStringLiteral("{\"sessionId\":\"session-7\",\"text\":\"hi\"}");
    const JSONToolResult result = call(QStringLiteral("reply_echo"), json);

    ASSERT_EQ(result.content.size(), 2) << result.json().toStdString();
    EXPECT_EQ(result.content.at(0), (JSONToolContent{QStringLiteral("text"), QStringLiteral("echo")}));
    EXPECT_EQ(result.content.at(1), (JSONToolContent{QStringLiteral("note"), QStringLiteral("second")}));
    EXPECT_EQ(result.structuredContent.value(QStringLiteral("sid")).toVariant().toString(), QStringLiteral("session-7"));
    EXPECT_EQ(result.structuredContent.value(QStringLiteral("tool")).toVariant().toString(), QStringLiteral("reply_echo"));
    EXPECT_EQ(result.structuredContent.value(QStringLiteral("input")).toJson().toObject(),
              QJsonDocument::fromJson(json.toUtf8()).object());
    EXPECT_TRUE(logged(QStringLiteral("3|-1|[PlugIn] Calling: reply_echo, sid:session-7 json: ") + json));
}

TEST_F(PluginCalls, EachShapeOfAnswerGivesItsResult)
{
    struct Case {
        const char *plugin;
        const char *error;  // nullptr: success
    };
    const Case cases[] = {
        {"reply_error_text", "The file is empty."},
        {"reply_error_object", "Broken input"},
        {"reply_error_code_only", "Invalid error object in custom tool return."},
        {"reply_no_structured", "Missing object 'structuredContent' in custom tool return."},
        {"reply_no_content", "Missing object 'content' in custom tool return."},
        {"reply_bad_item", "Invalid content object in custom tool return."},
        {"reply_no_text", "Missing 'text' in custom tool result object."},
        {"reply_no_type", "Missing 'type' in custom tool result object."},
        {"reply_array", "Failed to convert JSON object."},
        {"reply_nothing", "Failed to resolve JSON result object."},
        {"reply_error_number", nullptr},
        {"reply_empty_content", nullptr},
    };
    for (const Case &c : cases)
        enable(QString::fromLatin1(c.plugin));

    for (const Case &c : cases) {
        SCOPED_TRACE(c.plugin);
        const JSONToolResult result = call(QString::fromLatin1(c.plugin));
        if (c.error) {
            EXPECT_EQ(errorMessage(result), QString::fromUtf8(c.error));
            EXPECT_EQ(result.structuredContent.value(QStringLiteral("success")).toVariant(), QVariant(false));
            EXPECT_EQ(result.structuredContent.value(QStringLiteral("error_code")).toVariant().toInt(), -1);
            EXPECT_TRUE(logged(QStringLiteral("3|-1|") + QString::fromUtf8(c.error)));
        } else {
            EXPECT_FALSE(result.structuredContent.contains(QStringLiteral("error_message"))) << result.json().toStdString();
        }
    }

    // "error" as a number is passed over; an empty content list is a result without items.
    const JSONToolResult number = call(QStringLiteral("reply_error_number"));
    ASSERT_EQ(number.content.size(), 1);
    EXPECT_EQ(number.content.first().text, QStringLiteral("fine"));
    EXPECT_EQ(number.structuredContent.value(QStringLiteral("n")).toVariant().toInt(), 1);
    const JSONToolResult empty = call(QStringLiteral("reply_empty_content"));
    EXPECT_TRUE(empty.content.isEmpty());
    EXPECT_EQ(empty.structuredContent.value(QStringLiteral("n")).toVariant().toInt(), 2);

    enable(QStringLiteral("reply_not_json"));
    EXPECT_TRUE(errorMessage(call(QStringLiteral("reply_not_json"))).startsWith(QStringLiteral("Failed to resolve JSON object:\n")));
}

TEST_F(PluginCalls, APluginThatCannotBeLoadedOrTypedIsPassedOver)
{
    EXPECT_EQ(errorMessage(call(QStringLiteral("nobody"))), QStringLiteral("Could not find custom tool plugin: nobody"));

    // Enabled, but its file has gone since: logged and passed over.
    const QString path = copyOf(QStringLiteral("reply_echo.so"), QStringLiteral("Echo.so"));
    enable(QStringLiteral("reply_echo"), path);
    QFile::remove(path);
    EXPECT_EQ(errorMessage(call(QStringLiteral("reply_echo"))), QStringLiteral("Could not find custom tool plugin: reply_echo"));
    EXPECT_TRUE(logged(QStringLiteral("3|-1|Custom tool 'reply_echo' is not discovered yet, skiped.")));
}

TEST_F(PluginCalls, AStoredPathWithAnotherEndingIsSkippedAtCallTime)
{
    // A record stored by hand (or by an older build) whose path ends in ".dll".
    Plugin stored;
    stored.id = QUuid::createUuid();
    stored.path = fixture(QStringLiteral("reply_echo.dll"));
    stored.bookmarkData = stored.path.toUtf8();
    PluginDescriptor descriptor;
    descriptor.name = QStringLiteral("reply_echo");
    stored.toolDescriptor = descriptor;
    UserDefaults::standard()->setValue(PluginController::registeredPluginsKey, Plugin::encodeList({stored}));
    World restarted = world();
    ASSERT_EQ(restarted->plugins().size(), 1);

    // Enabling with a real file of that name works; the call still cannot tell the form.
    restarted->enablePlugin(stored, fixtureUrl(QStringLiteral("reply_echo.so")));
    ASSERT_TRUE(restarted->plugins().first().isEnabled) << alertOf(restarted.controller.get());
    EXPECT_EQ(errorMessage(restarted->callPlugin(QStringLiteral("s"), QStringLiteral("reply_echo"), QStringLiteral("{}"))),
              QStringLiteral("Could not find custom tool plugin: reply_echo"));
}

TEST_F(PluginCalls, TwoCallsOfOnePluginRunAtTheSameTime)
{
    enable(QStringLiteral("reply_together"));
    JSONToolResult first;
    JSONToolResult second;
    std::thread a([&] { first = call(QStringLiteral("reply_together")); });
    std::thread b([&] { second = call(QStringLiteral("reply_together")); });
    a.join();
    b.join();
    for (const JSONToolResult *result : {&first, &second}) {
        ASSERT_EQ(result->content.size(), 1) << result->json().toStdString();
        EXPECT_EQ(result->structuredContent.value(QStringLiteral("together")).toVariant(), QVariant(true));
    }
}

TEST_F(PluginCalls, TheRouterHandsCustomToolsToTheRegistryWithTheWholeArguments)
{
    enable(QStringLiteral("reply_echo"));
    MCPServerBridge bridge;
    MCPServer router(w.logger.get(), &bridge, w.controller.get());
    const QVariantMap arguments{{QStringLiteral("sessionId"), QStringLiteral("s-9")},
                                {QStringLiteral("name"), QStringLiteral("echo_tool")},
                                {QStringLiteral("toolType"), QStringLiteral("CustomTool")},
                                {QStringLiteral("execHandler"), QStringLiteral("replyEntry")},
                                {QStringLiteral("execMethod"), QStringLiteral("run")},
                                {QStringLiteral("pluginName"), QStringLiteral("reply_echo")},
                                {QStringLiteral("arguments"), QVariantMap{{QStringLiteral("text"), QStringLiteral("hi")}}}};
    JSONToolConfig config;
    JSONToolSchemaProperty count;
    count.type = QStringLiteral("integer");
    config.outputSchema.properties.insert(QStringLiteral("count"), count);

    const JSONToolResult result = router.handleToolCall(arguments, config);
    const QJsonObject input = result.structuredContent.value(QStringLiteral("input")).toJson().toObject();
    EXPECT_EQ(input.value(QStringLiteral("execMethod")).toString(), QStringLiteral("run"));
    EXPECT_EQ(input.value(QStringLiteral("arguments")).toObject().value(QStringLiteral("text")).toString(), QStringLiteral("hi"));
    EXPECT_EQ(result.structuredContent.value(QStringLiteral("sid")).toVariant().toString(), QStringLiteral("s-9"));
    EXPECT_EQ(result.structuredContent.value(QStringLiteral("count")).toVariant().toInt(), 0);

    // A disabled plug-in's error result gets the neutral values too.
    w->disablePlugin(*w->pluginNamed(QStringLiteral("reply_echo")));
    const JSONToolResult disabled = router.handleToolCall(arguments, config);
    EXPECT_EQ(errorMessage(disabled), QStringLiteral("Requested tool plugin 'reply_echo' is not enabled."));
    EXPECT_EQ(disabled.structuredContent.value(QStringLiteral("count")).toVariant().toInt(), 0);
}
