#pragma once

#include "base/AppError.h"
#include "chat/appearance/HistoryModel.h"
#include "chat/clients/LMSStreamEvent.h"
#include "chat/service/AIChatResponse.h"
#include "chat/service/LLMBackgroundCall.h"
#include "chat/service/LLMChatService.h"
#include "chat/session/TranscriptMessage.h"

#include <QJsonArray>
#include <QList>
#include <QObject>
#include <QPointer>
#include <functional>
#include <memory>
#include <optional>

class ChatAttachmentList;
class ChatStatus;
class LMSChatStream;
class MCPIntegrationManager;
class ProviderConnection;

// The conversation: the transcript, the provider's thread (the id of the last answer), the
// send with LM Studio's stream or a cloud provider's one blocking answer, the abort, the
// system prompt that opens a thread on every connect and load, the transcript search and the
// chat file. It asks the connection for provider, address and model, and puts the attachments
// ahead of each question. Main thread.
class ChatSession : public QObject {
    Q_OBJECT

public:
    // mcp: the integrations whose tools a local model may call; may be null.
    ChatSession(ProviderConnection &connection, ChatStatus &status, ChatAttachmentList &attachments,
                MCPIntegrationManager *mcp = nullptr, QObject *parent = nullptr);
    ~ChatSession() override;

    const QList<TranscriptMessage> &transcript() const { return m_transcript; }
    const TranscriptMessage *message(const QUuid &id) const;
    // The thread on an LM Studio server; none until an answer names one.
    const std::optional<QString> &lastResponseID() const { return m_lastResponseID; }
    // 0 to 1 while LM Studio loads the model or reads the prompt; none otherwise.
    const std::optional<double> &modelLoadProgress() const { return m_modelLoadProgress; }
    const std::optional<double> &promptProcessingProgress() const { return m_promptProcessingProgress; }
    HistoryModel *historyModel() const { return m_history; }

    // Asks text (with the attachments ahead of it); done runs once the answer has ended,
    // failed or been aborted, or at once when nothing was sent.
    void send(const QString &text, std::function<void()> done = {});
    void abort();
    void sendSystemPrompt();
    // Empties the transcript and leaves the provider's thread behind.
    void clearChat();
    // The ids of the messages whose text holds the query, ignoring case, in order.
    QList<QUuid> searchTranscript(const QString &query) const;

    // The user defaults' key of the stall limit of a streamed answer, in seconds, and the
    // limit when the key is missing or not a positive number.
    static QString stallTimeoutKey() { return QStringLiteral("chat.stream.stallTimeout"); }
    static constexpr int DefaultStallTimeout = 120;
    static int stallTimeout();

    // A whole new transcript (transcriptReset), or a change inside one message
    // (messageChanged); false when no message has that id.
    void setTranscript(const QList<TranscriptMessage> &transcript);
    bool updateMessage(const QUuid &id, const std::function<void(TranscriptMessage &)> &change);

    // The transcript file: the bytes of the whole chat (no token), and reading one back.
    // importChat leaves everything as it was when the file is refused.
    std::optional<QByteArray> exportChat() const;
    bool importChat(const QByteArray &bytes, QString *error = nullptr);

signals:
    void changed();
    void messageChanged(const QUuid &id);
    void transcriptReset();

private:
    TranscriptMessage *find(const QUuid &id);
    QUuid appendPair(const QString &question);
    void finishMessage(const QUuid &id, const QString &text);
    void endSend();
    void streamAnswer(const QUuid &answer, const QString &message);
    void handleStreamEvent(const QUuid &answer, const LMSStreamEvent &event);
    void applyChatEnd(const QUuid &answer, const LMSChatResponse &reply);
    void handleToolCallEvent(const QUuid &answer, const LMSStreamEvent &event);
    LMSChatStream *makeStream();
    void blockingAnswer(const QUuid &answer, const QString &message);
    void sendSystemPromptStream(const QUuid &answer);
    void sendSystemPromptBlocking(const QUuid &answer);
    // One non-streamed request on a worker. Back on this thread a reply completes the answer's
    // bubble and is kept as the last response; `then` learns how it went (one of the two set).
    void chatInBackground(const LLMChatService::ChatRequest &request, const QUuid &answer,
                          std::function<void(const AIChatResponse *, const AppError *)> then);
    bool isQuotaFailure(const QString &description) const;
    void applyToLiveServer();
    QJsonArray integrationPayloads() const;

    ProviderConnection &m_connection;
    ChatStatus &m_status;
    ChatAttachmentList &m_attachments;
    MCPIntegrationManager *m_mcp;
    HistoryModel *m_history;
    QList<TranscriptMessage> m_transcript;
    std::optional<QString> m_lastResponseID;
    std::optional<double> m_modelLoadProgress;
    std::optional<double> m_promptProcessingProgress;
    QPointer<LMSChatStream> m_stream;
    std::unique_ptr<LLMBackgroundCall<AIChatResponse>> m_blockingCall;
    std::function<void()> m_sendDone;
    // The text of the stream's error frame, kept for the status line past chat.end.
    std::optional<QString> m_streamError;
};
