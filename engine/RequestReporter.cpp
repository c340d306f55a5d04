#include "engine/RequestReporter.h"

#include "engine/MCPServerMessage.h"

namespace MCP {

RequestReporter::RequestReporter(IMCPTransport &transport, std::string connectionId, JSONValue progressToken,
                                 std::shared_ptr<MCPSession> session, std::shared_ptr<const CancellationToken> token)
    : m_transport(transport),
      m_connectionId(std::move(connectionId)),
      m_progressToken(std::move(progressToken)),
      m_session(std::move(session)),
      m_token(std::move(token))
{
}

bool RequestReporter::wantsProgress() const
{
    return !m_progressToken.isNull();
}

bool RequestReporter::hears(int level) const
{
    const int least = m_session ? m_session->logLevel() : MCPSession::kDefaultLogLevel;
    return level >= least;
}

bool RequestReporter::hearsServerLines(int level) const
{
    return m_session && m_session->levelChosen() && hears(level);
}

void RequestReporter::progress(double progress, std::optional<double> total, const std::string &message)
{
    if (!wantsProgress())
        return;
    JSONValue params;
    params["progressToken"] = m_progressToken;
    params["progress"] = JSONValue(progress);
    if (total)
        params["total"] = JSONValue(*total);
    if (!message.empty())
        params["message"] = JSONValue(message);
    send(MCPServerMessage::notificationLine("notifications/progress", params));
}

void RequestReporter::log(const std::string &level, const JSONValue &data, const std::string &logger)
{
    // A name outside the protocol's list is taken as "info" rather than lost.
    int index = MCPSession::levelIndex(level);
    if (index < 0)
        index = MCPSession::levelIndex("info");
    if (!hears(index))
        return;
    JSONValue params;
    params["level"] = JSONValue(std::string(MCPSession::kLevels[index]));
    if (!logger.empty())
        params["logger"] = JSONValue(logger);
    params["data"] = data;
    send(MCPServerMessage::notificationLine("notifications/message", params));
}

bool RequestReporter::clientSupports(const std::string &capability) const
{
    return m_session && m_session->clientSupports(capability);
}

ClientRequests::Reply RequestReporter::request(const std::string &method, const JSONValue &params,
                                               const ClientRequests::StopCheck &stop)
{
    ClientRequests::Reply failed;
    if (!m_session) {
        failed.error = "the client has no session to answer in";
        return failed;
    }
    ClientRequests &requests = m_session->clientRequests();
    const std::optional<uint64_t> id = requests.open();
    if (!id) {
        failed.error = "the client's session has ended";
        return failed;
    }
    {
        std::lock_guard lock(m_mutex);
        if (!m_open || (m_token && m_token->isCancelled())) {
            requests.abandon(*id);
            failed.error = "the call has ended";
            return failed;
        }
        m_transport.notify(m_connectionId, MCPServerMessage::requestLine(RequestId(*id), method, params));
    }
    ClientRequests::Reply reply = requests.wait(*id, [&]() -> std::optional<std::string> {
        if (m_token && m_token->isCancelled())
            return std::string("the call was cancelled");
        return stop ? stop() : std::nullopt;
    });
    if (!reply.answered && reply.code == 0) {
        // Given up on our side: the client may stop asking its user or its model.
        JSONValue cancel;
        cancel["requestId"] = JSONValue(double(*id));
        cancel["reason"] = JSONValue(reply.error);
        std::lock_guard lock(m_mutex);
        if (m_open)
            m_transport.notify(m_connectionId, MCPServerMessage::notificationLine("notifications/cancelled", cancel));
    }
    return reply;
}

void RequestReporter::send(const std::string &text)
{
    std::lock_guard lock(m_mutex);
    if (!m_open || (m_token && m_token->isCancelled()))
        return;
    m_transport.notify(m_connectionId, text);
}

bool RequestReporter::closeStream(std::chrono::milliseconds retry)
{
    std::lock_guard lock(m_mutex);
    if (!m_open || (m_token && m_token->isCancelled()))
        return false;
    return m_transport.closeStream(m_connectionId, retry);
}

void RequestReporter::close()
{
    std::lock_guard lock(m_mutex);
    m_open = false;
}

}  // namespace MCP
