#pragma once

#include "engine/CallReporter.h"
#include "engine/CancellationToken.h"
#include "engine/IMCPTransport.h"
#include "engine/MCPSession.h"

#include <memory>
#include <mutex>
#include <string>

namespace MCP {

// The server's CallReporter for one request: progress and log messages go to the
// transport as notifications about that request, log messages filtered by the level of
// the request's session. Requests to the client go the same way and are matched to their
// answers by the session's ClientRequests. close() is called before the request is answered;
// from then on, and once the request is cancelled, nothing more is sent.
class RequestReporter : public CallReporter {
public:
    // progressToken: the request's params._meta.progressToken as sent, Null when none.
    RequestReporter(IMCPTransport &transport, std::string connectionId, JSONValue progressToken,
                    std::shared_ptr<MCPSession> session, std::shared_ptr<const CancellationToken> token);

    void progress(double progress, std::optional<double> total, const std::string &message) override;
    void log(const std::string &level, const JSONValue &data, const std::string &logger) override;
    bool wantsProgress() const override;
    bool closeStream(std::chrono::milliseconds retry) override;
    bool clientSupports(const std::string &capability) const override;
    ClientRequests::Reply request(const std::string &method, const JSONValue &params,
                                  const ClientRequests::StopCheck &stop) override;

    // Whether a log message at this level (an index into MCPSession::kLevels) would be sent;
    // lets the server skip building a line nobody hears.
    bool hears(int level) const;
    // The same for the server's own lines about the call: only for a client that chose a
    // level, so a client that never asked gets its answers as plain as before.
    bool hearsServerLines(int level) const;
    void close();

private:
    void send(const std::string &text);

    IMCPTransport &m_transport;
    const std::string m_connectionId;
    const JSONValue m_progressToken;
    const std::shared_ptr<MCPSession> m_session;
    const std::shared_ptr<const CancellationToken> m_token;
    mutable std::mutex m_mutex;  // one message at a time; close waits for the one under way
    bool m_open = true;
};

}  // namespace MCP
