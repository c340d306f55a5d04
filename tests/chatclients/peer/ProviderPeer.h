#pragma once

#include "tests/http/TestHttpServer.h"

#include <QJsonObject>
#include <QString>
#include <atomic>
#include <memory>
#include <mutex>

// A stand-in for the language-model providers on 127.0.0.1 (an ephemeral port), for tests and
// screenshot scripts: it plays an LM Studio server (models, load, unload, a download whose job
// moves from downloading to completed over its status polls, and a chat that streams reasoning,
// message deltas, a tool call and chat.end one byte at a time, or a model that really calls an
// MCP server's read_file) and the OpenAI, Anthropic and
// Gemini APIs, and fails on demand. Started by the constructor, stopped by the destructor;
// every request is recorded.
//
// The chat stream speaks LM Studio's REST API v1 as its "Streaming events" page documents it
// (https://lmstudio.ai/docs/developer/rest/streaming-events, LM Studio 0.4.0 and later, page as
// of April 2026): tool_call.start names the tool and its provider_info, tool_call.arguments and
// tool_call.success repeat them, tool_call.failure names the tool under "metadata". On a switch
// it speaks the earlier form instead: a bare tool_call.start, then tool_call.name.
class ProviderPeer {
public:
    enum class Failure {
        none,
        serverError, // 500 with a JSON error body
        cutStream,   // a chat stream that stops in the middle of a frame
        undecodable, // 200 with a body that is no JSON
        slow,        // the normal reply, one byte every 20 ms
        stall,       // a chat stream that goes silent after its first message delta, still open
        errorFrame,  // a chat stream with an error frame before its chat.end
        toolFailure, // a chat stream whose read_file call fails, then a call of an unknown tool
    };
    enum class StreamForm { documented, earlier };

    ProviderPeer();
    ~ProviderPeer();

    // "http://127.0.0.1:<port>"; the Gemini API answers under geminiBaseURL().
    QString baseURL() const;
    QString geminiBaseURL() const;
    void setFailure(Failure failure) { m_failure.store(failure); }
    void setStreamForm(StreamForm form) { m_form.store(form); }
    // The bytes of every following streamed chat, instead of the built-in answers; empty for
    // those again.
    void setChatStream(const QByteArray &bytes);
    QList<TestHttpServer::Request> requests() const { return m_server->requests(); }
    TestHttpServer::Request lastRequest() const { return requests().last(); }

    // The bytes of the streamed chat: reasoning, two message deltas, a tool call and chat.end.
    static QByteArray chatStream(StreamForm form = StreamForm::documented);
    // With an "ephemeral_mcp" integration in the request the peer calls that server's
    // read_file, as LM Studio would, and streams the call and an answer quoting the file.
    static QByteArray toolCallingStream(const QJsonObject &body, StreamForm form = StreamForm::documented);
    // An input that says "markdown" gets reasoning, a list_files call and a Markdown answer
    // with a list, a table and a code block (for the screenshots).
    static QByteArray markdownStream(StreamForm form = StreamForm::documented);
    // The frames of one successful tool call in either form.
    static QByteArray toolCallFrames(StreamForm form, const QString &tool, const QString &serverLabel,
                                     const QJsonObject &arguments, const QString &output);
    // Failure::toolFailure's stream: read_file's arguments are refused, then a tool the server
    // does not know is asked for, then the answer and chat.end.
    static QByteArray toolFailureStream(StreamForm form);
    static const char *serverErrorBody();

private:
    TestHttpServer::Response answer(const TestHttpServer::Request &request);

    std::atomic<Failure> m_failure{Failure::none};
    std::atomic<StreamForm> m_form{StreamForm::documented};
    mutable std::mutex m_mutex;
    QByteArray m_chatStream;
    std::atomic<int> m_statusPolls{0};
    std::unique_ptr<TestHttpServer> m_server;
};
