#include "chat/clients/ChatHttpSession.h"
#include "chat/integrations/MCPIntegrationHost.h"
#include "chat/integrations/MCPIntegrationManager.h"
#include "chat/session/ChatViewModel.h"
#include "tests/chatclients/peer/ProviderPeer.h"
#include "tests/support/TestSupport.h"
#include "tools/security/BookmarkController.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QProcess>
#include <QRegularExpression>
#include <QSettings>

namespace {

// The integrations' view of a `kelvara serve` in another process: its port and its read_file.
class ServeHost : public MCPIntegrationHost {
public:
    ServeHost(int port, QString token) : m_port(port), m_token(std::move(token)) {}
    std::optional<QList<QJsonObject>> toolConfigs() override { return QList<QJsonObject>{{{"name", "read_file"}}}; }
    QString serverLabel() override { return QStringLiteral("Kelvara Server"); }
    int serverPort() override { return m_port; }
    QString serverToken() override { return m_token; }
    void resetToolRegistry() override {}
    void registerTool(const QJsonObject &) override {}

private:
    int m_port;
    QString m_token;
};

}  // namespace

class ChatEndToEndTest : public ::testing::TestWithParam<ProviderPeer::StreamForm> {};

INSTANTIATE_TEST_SUITE_P(BothForms, ChatEndToEndTest,
                         ::testing::Values(ProviderPeer::StreamForm::documented, ProviderPeer::StreamForm::earlier),
                         [](const auto &info) {
                             return info.param == ProviderPeer::StreamForm::documented ? "documented" : "earlier";
                         });

// `kelvara serve --require-token` with the built-in tools, the peer as an LM Studio model that
// calls read_file through the chat's integration: the transcript ends with the tool call and
// the answer, in either form of the stream.
TEST_P(ChatEndToEndTest, ALocalModelReadsAFileThroughTheRunningServer)
{
    // The notes' folder is granted before the server starts: its file tools act only there.
    const QString folder = TestSupport::makeTempDir();
    ASSERT_TRUE(BookmarkController().addBookmark(QUrl::fromLocalFile(folder)));
    const int port = TestSupport::freeLowPort();
    QProcess serve;
    serve.setProcessChannelMode(QProcess::MergedChannels);
    serve.start(QStringLiteral(KELVARA_BINARY),
                {QStringLiteral("serve"), QStringLiteral("--import-builtin"), QStringLiteral("--require-token"),
                 QStringLiteral("--port"), QString::number(port)});
    ASSERT_TRUE(serve.waitForStarted(10000));
    QByteArray banner;
    ASSERT_TRUE(TestSupport::waitUntil([&] {
        serve.waitForReadyRead(50);
        banner += serve.readAll();
        return banner.contains("MCP Server running") && banner.contains("Authorization: Bearer ");
    }, 30000)) << banner.toStdString();

    const QString notes = folder + QStringLiteral("/notes.txt");
    QFile file(notes);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("Kelvara notes for the chat\n");
    file.close();

    // The server asks for its token on loopback too; the integration carries it to LM Studio.
    const QRegularExpressionMatch header =
        QRegularExpression(QStringLiteral("Authorization: Bearer (\\S+)")).match(QString::fromUtf8(banner));
    ASSERT_TRUE(header.hasMatch()) << banner.toStdString();
    ChatHttpSession::Request bare;
    bare.url = QStringLiteral("http://127.0.0.1:%1/").arg(port);
    bare.method = "POST";
    bare.headers = {{"Content-Type", "application/json"}, {"Accept", "application/json, text/event-stream"}};
    bare.body = R"({"jsonrpc":"2.0","id":1,"method":"tools/list"})";
    EXPECT_EQ(ChatHttpSession::perform(bare).status, 401);  // without it, nothing
    ServeHost host(port, header.captured(1));
    QSettings defaults(TestSupport::makeTempDir() + QStringLiteral("/chat.conf"), QSettings::IniFormat);
    MCPIntegrationManager integrations(defaults, host);
    MCPIntegration local;
    local.kind = MCPIntegration::Kind::plugin;
    local.label = QStringLiteral("Internal Tools");
    local.isEnabled = true;
    integrations.syncTools(local);
    local.setToolEnabled(QStringLiteral("read_file"), true);
    integrations.add(local);

    ProviderPeer peer;
    peer.setStreamForm(GetParam());
    ChatViewModel chat(&integrations);
    chat.connection().selectProvider(AIProviderID::lmStudio);
    chat.connection().setBaseURL(peer.baseURL());
    chat.connection().setSystemPrompt(QString());
    chat.connection().connect();
    ASSERT_TRUE(TestSupport::waitUntil([&] {
        return chat.connection().state() == ChatViewModel::ConnectionState::connected && !chat.status().isBusy();
    }));
    chat.session().send(QStringLiteral("What is in ") + notes + QStringLiteral(" ?"));
    ASSERT_TRUE(TestSupport::waitUntil([&] { return !chat.status().isBusy(); }, 30000));

    const QJsonArray sent = QJsonDocument::fromJson(peer.lastRequest().body).object().value("integrations").toArray();
    EXPECT_EQ(sent.at(0).toObject().value("server_url").toString(), QStringLiteral("http://127.0.0.1:%1").arg(port));
    EXPECT_EQ(sent.at(0).toObject().value("headers").toObject().value("Authorization").toString(),
              QStringLiteral("Bearer ") + header.captured(1));
    ASSERT_EQ(chat.session().transcript().size(), 2);
    const TranscriptMessage &answer = chat.session().transcript().last();
    ASSERT_EQ(answer.toolCalls.size(), 1);
    const MCPToolCall &call = answer.toolCalls.first();
    EXPECT_EQ(call.tool, "read_file");
    EXPECT_EQ(call.serverLabel, "Kelvara Server");
    EXPECT_EQ(call.arguments.value("file_path").toString(), notes);
    ASSERT_TRUE(call.output);
    EXPECT_TRUE(call.output->contains("Kelvara notes for the chat")) << call.output->toStdString();
    EXPECT_EQ(answer.content, "The file says: Kelvara notes for the chat");
    EXPECT_TRUE(answer.isComplete);

    serve.terminate();
    EXPECT_TRUE(serve.waitForFinished(20000));
    EXPECT_EQ(serve.exitCode(), 0);
}
