// The chat's OpenAI path against a third-party OpenAI-compatible mock server (@dwmkerr/mock-llm,
// pinned in tests/interop/package-lock.json): connect, list the models, ask, and render the
// answer. The test starts the mock on 127.0.0.1 with rules of its own and stops it.

#include "chat/markdown/MarkdownRenderer.h"
#include "chat/markdown/MarkdownStyle.h"
#include "chat/session/ChatViewModel.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QProcess>
#include <QTextDocument>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

using TestSupport::waitUntil;

namespace {

// Last match wins: the echo first, then the cases that answer otherwise.
const char *const kRules = R"yaml(rules:
  - path: "/v1/chat/completions"
    method: "POST"
    match: "@"
    response:
      status: 200
      content: |
        {
          "id": "chatcmpl-mock",
          "object": "chat.completion",
          "model": "{{jmes request body.model}}",
          "choices": [{"message": {"role": "assistant", "content": "{{jmes request body.messages[-1].content}}"},
                       "finish_reason": "stop"}]
        }
  - path: "/v1/chat/completions"
    method: "POST"
    match: "contains(body.messages[-1].content, 'error-401')"
    response:
      status: 401
      content: |
        {"error": {"message": "Incorrect API key provided.", "type": "invalid_request_error", "param": null,
                   "code": "invalid_api_key"}}
  - path: "/v1/chat/completions"
    method: "POST"
    match: "body.model == 'o3-mini' && body.max_tokens"
    response:
      status: 400
      content: |
        {"error": {"message": "Unsupported parameter: 'max_tokens' is not supported with this model.",
                   "type": "invalid_request_error", "param": "max_tokens", "code": "unsupported_parameter"}}
  - path: "/v1/models"
    method: "GET"
    response:
      status: 200
      content: |
        {"object": "list", "data": [{"id": "mock-gpt-a", "object": "model"}, {"id": "o3-mini", "object": "model"}]}
)yaml";

sockaddr_in loopback(int port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(quint16(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

// A port nobody listens on right now.
int freePort()
{
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address = loopback(0);
    socklen_t length = sizeof address;
    int port = 0;
    if (::bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0 &&
        ::getsockname(fd, reinterpret_cast<sockaddr *>(&address), &length) == 0)
        port = ntohs(address.sin_port);
    ::close(fd);
    return port;
}

bool accepts(int port)
{
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    const sockaddr_in address = loopback(port);
    const bool connected = ::connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
    ::close(fd);
    return connected;
}

class OpenAIMockServerTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        const QString main = QStringLiteral(KELVARA_INTEROP_DIR "/node_modules/@dwmkerr/mock-llm/dist/main.js");
        ASSERT_TRUE(QFile::exists(main)) << "The mock is not installed: run \"npm ci\" in " KELVARA_INTEROP_DIR
                                            " (scripts/test does this).";
        const QString config = TestSupport::makeTempDir() + QStringLiteral("/mock-llm.yaml");
        QFile file(config);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(kRules);
        file.close();
        m_port = freePort();
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("HOST"), QStringLiteral("127.0.0.1"));
        env.insert(QStringLiteral("PORT"), QString::number(m_port));
        m_mock.setProcessEnvironment(env);
        m_mock.setProcessChannelMode(QProcess::MergedChannels);
        m_mock.start(QStringLiteral(KELVARA_NODE), {main, QStringLiteral("--config"), config});
        ASSERT_TRUE(m_mock.waitForStarted(10000));
        ASSERT_TRUE(waitUntil([&] { return accepts(m_port) || m_mock.state() == QProcess::NotRunning; }, 30000));
        ASSERT_EQ(m_mock.state(), QProcess::Running) << m_mock.readAll().toStdString();
    }
    void TearDown() override
    {
        m_mock.terminate();
        if (!m_mock.waitForFinished(5000)) {
            m_mock.kill();
            m_mock.waitForFinished(5000);
        }
    }
    QString baseURL() const { return QStringLiteral("http://127.0.0.1:%1").arg(m_port); }

    QProcess m_mock;
    int m_port = 0;
};

bool settle(ChatViewModel &model)
{
    return waitUntil([&] { return !model.status().isBusy(); }, 20000);
}

} // namespace

TEST_F(OpenAIMockServerTest, ConnectListAskAndRenderTheAnswer)
{
    ChatViewModel model;
    model.connection().selectProvider(AIProviderID::openAI);
    model.connection().setBaseURL(baseURL());
    model.connection().setToken(QStringLiteral("sk-mock"));
    model.connection().setSystemPrompt(QString());
    model.connection().setTemperature(0);
    model.connection().setMaxOutputTokens(-1);
    model.session().clearChat();

    model.connection().connect();
    ASSERT_TRUE(settle(model));
    ASSERT_EQ(model.connection().models().size(), 2) << model.status().text().toStdString();
    EXPECT_EQ(model.connection().models().at(0).id, "mock-gpt-a");
    EXPECT_EQ(model.connection().selectedModel(), "mock-gpt-a");

    model.session().send(QStringLiteral("Hello **mock** world"));
    ASSERT_TRUE(settle(model));
    const TranscriptMessage &answer = model.session().transcript().last();
    EXPECT_TRUE(answer.isComplete);
    EXPECT_EQ(answer.content, "Hello **mock** world");
    EXPECT_EQ(model.session().lastResponseID(), "chatcmpl-mock");
    // The mock reports no usage: no figures.
    EXPECT_EQ(model.status().text(), "Ready.");

    // Rendered as Markdown: the markers go, the bold run stays bold.
    QTextDocument document;
    MarkdownRenderer(MarkdownStyle::fromPalette()).render(answer.content, &document);
    EXPECT_EQ(document.toPlainText().trimmed(), "Hello mock world");
    QTextCursor bold = document.find(QStringLiteral("mock"));
    ASSERT_FALSE(bold.isNull());
    EXPECT_GE(bold.charFormat().fontWeight(), QFont::Bold);

    // The server's refusal reaches the transcript in its own words.
    model.session().send(QStringLiteral("error-401 please"));
    ASSERT_TRUE(settle(model));
    EXPECT_TRUE(model.session().transcript().last().content.startsWith("Request failed:\n"));
    EXPECT_TRUE(model.session().transcript().last().content.contains("Incorrect API key provided."));
    EXPECT_TRUE(model.status().text().startsWith("Error: "));

    // A reasoning model with an output limit: the limit goes out under the name it accepts.
    model.connection().setSelectedModel(QStringLiteral("o3-mini"));
    model.connection().setMaxOutputTokens(256);
    model.session().send(QStringLiteral("Limited"));
    ASSERT_TRUE(settle(model));
    EXPECT_EQ(model.session().transcript().last().content, "Limited") << model.status().text().toStdString();
}
