#pragma once

#include "tests/http/TestHttpServer.h"

#include <QJsonObject>
#include <QString>
#include <atomic>
#include <memory>

// A stand-in for the language-model providers on 127.0.0.1 (an ephemeral port), for tests and
// screenshot scripts: it plays an LM Studio server (models, load, unload, a download whose job
// moves from downloading to completed over its status polls, and a chat that streams reasoning,
// message deltas, a tool call and chat.end one byte at a time, or a model that really calls an
// MCP server's read_file) and the OpenAI, Anthropic and
// Gemini APIs, and fails on demand. Started by the constructor, stopped by the destructor;
// every request is recorded.
class ProviderPeer {
public:
    enum class Failure {
        none,
        serverError, // 500 with a JSON error body
        cutStream,   // a chat stream that stops in the middle of a frame
        undecodable, // 200 with a body that is no JSON
        slow,        // the normal reply, one byte every 20 ms
    };

    ProviderPeer();
    ~ProviderPeer();

    // "http://127.0.0.1:<port>"; the Gemini API answers under geminiBaseURL().
    QString baseURL() const;
    QString geminiBaseURL() const;
    void setFailure(Failure failure) { m_failure.store(failure); }
    QList<TestHttpServer::Request> requests() const { return m_server->requests(); }
    TestHttpServer::Request lastRequest() const { return requests().last(); }

    // The bytes of the streamed chat: reasoning, two message deltas, a tool call and chat.end.
    static QByteArray chatStream();
    // With an "ephemeral_mcp" integration in the request the peer calls that server's
    // read_file, as LM Studio would, and streams the call and an answer quoting the file.
    static QByteArray toolCallingStream(const QJsonObject &body);
    // An input that says "markdown" gets reasoning, a list_files call and a Markdown answer
    // with a list, a table and a code block (for the screenshots).
    static QByteArray markdownStream();
    static const char *serverErrorBody();

private:
    TestHttpServer::Response answer(const TestHttpServer::Request &request);

    std::atomic<Failure> m_failure{Failure::none};
    std::atomic<int> m_statusPolls{0};
    std::unique_ptr<TestHttpServer> m_server;
};
