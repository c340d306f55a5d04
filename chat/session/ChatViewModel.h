#pragma once

#include "chat/appearance/HistoryModel.h"
#include "chat/clients/LMSDownloadStatus.h"
#include "chat/clients/LMSModel.h"
#include "chat/clients/LMSStreamEvent.h"
#include "chat/service/AIChatResponse.h"
#include "chat/service/AIModel.h"
#include "chat/service/AIProvider.h"
#include "chat/service/LLMBackgroundCall.h"
#include "chat/session/ChatAttachment.h"
#include "chat/session/TranscriptMessage.h"

#include <QObject>
#include <QPointer>
#include <functional>
#include <memory>
#include <optional>

class LMSChatStream;
class MCPIntegrationManager;

// The state of the chat window: the provider and its settings, the connection, the model list,
// the transcript, the prompt being written and the status line; the connection sequence with
// its system prompt, the model operations of LM Studio, the send with its stream and the
// attachments. Main thread only. Network calls run off the main thread and come back to it;
// isBusy is the one guard against overlap, and the last writer of statusText wins.
class ChatViewModel : public QObject {
    Q_OBJECT

public:
    enum class ConnectionState { unknown, connected, disconnected };
    static inline const QString selectedProviderKey = QStringLiteral("kelvara.selectedProvider");

    // mcp: the integrations whose tools a local model may call; may be null.
    explicit ChatViewModel(MCPIntegrationManager *mcp = nullptr, QObject *parent = nullptr);
    ~ChatViewModel() override;

    // Published state; `changed` follows every change, `messageChanged` a change inside one
    // message, `transcriptReset` a change of the list itself.
    AIProviderID selectedProvider = AIProviderID::lmStudio;
    QString baseURL;
    QString token;
    QString systemPrompt;
    QList<AIModel> models;
    QString selectedModel;
    double temperature = 0.5;
    qint64 maxOutputTokens = -1;
    QString prompt;
    QList<ChatAttachment> attachments;
    QList<TranscriptMessage> transcript;
    QString downloadModelName;
    QString downloadJobID;
    std::optional<LMSDownloadStatus> downloadStatus;
    QString statusText;
    bool isBusy = false;
    ConnectionState connectionState = ConnectionState::unknown;
    std::optional<double> modelLoadProgress;
    std::optional<double> promptProcessingProgress;
    HistoryModel *historyModel() const { return m_history; }

    std::optional<QString> lastResponseID;
    QList<LMSModel> lmStudioModels;
    std::optional<LMSModel> loadedModel;

    // The window's calls.
    void connect();
    void disconnect();
    void selectProvider(AIProviderID provider);
    void refreshModels();
    void loadSelectedModel();
    void unloadSelectedModel();
    void startDownload();
    void checkDownloadStatus();
    void sendSystemPrompt();
    void loadSettings();
    void saveSettings();
    void clearChat();
    std::optional<AIModel> currentModel() const;
    struct ProviderSettings {
        QString baseURL;
        QString token;
        QString systemPrompt;
    };
    // The live fields for the selected provider, the stored ones for any other.
    ProviderSettings settings(AIProviderID provider) const;
    // Stores the sheet's drafts under the provider's keys; the live fields follow when it is
    // the selected one.
    void applySettings(AIProviderID provider, const ProviderSettings &values);
    // The model settings window: text that does not parse leaves the value as it was; a
    // temperature is clamped to 0.0 to 1.0.
    void applyModelSettings(const QString &temperatureText, const QString &maxTokensText);

    // Send, stream and cancel. done runs once the answer has ended, failed or been aborted.
    void sendPrompt(bool clearAfter);
    void send(const QString &text, std::function<void()> done = {});
    void abort();
    QString attachmentsBlock() const;
    bool canSend() const;

    void addAttachment(const QString &path);
    void addTextAttachment(const QString &text);
    void removeAttachment(const QUuid &id);
    // The drop menu's "Insert Text": "$%" takes a path's file name (or the text), else "$$"
    // the whole text, else a path goes on a new line and other text after a blank.
    void insertDroppedText(const QString &text);
    // The drop menu's "Attach": the dropped file, or text that is an absolute path.
    void attachDropped(const QString &text, const std::optional<QString> &path);
    // What a picker inserts: the prompt itself when empty, else on a new line.
    void insertPickedText(const QString &text);
    // Subscribes to the editor bridge's "request" signal on the session bus; false (and the
    // chat goes on without the bridge) when there is no bus.
    bool listenForBridgeRequests();

    const TranscriptMessage *message(const QUuid &id) const;
    // The ids of the messages whose text holds the query, ignoring case, in order.
    QList<QUuid> searchTranscript(const QString &query) const;

    // The status line of a download ("Downloading 42% 1.5 MB/s", "Download completed.").
    static QString downloadStatusLine(const LMSDownloadStatus &status);
    // "Provider default" for -1, else "N tokens".
    static QString outputLimitText(qint64 limit);

    // The transcript file: the bytes of the whole chat (no token), and reading one back.
    // importChat leaves everything as it was when the file is refused.
    std::optional<QByteArray> exportChat() const;
    bool importChat(const QByteArray &bytes, QString *error = nullptr);

public slots:
    // An editor's request from the bridge: normalised, and attached unless blank.
    void receiveBridgeRequest();

signals:
    void changed();
    void messageChanged(const QUuid &id);
    void transcriptReset();
    void alertRequested(const QString &text);

private:
    template<typename T>
    void guarded(std::function<T()> work, std::function<void(T)> then);
    void setStatus(const QString &text);
    void appendUnique(const ChatAttachment &attachment);
    // Both model lists into models and lmStudioModels, then `then`; in the guarded run.
    void fetchModels(std::function<void()> then);
    // LM Studio and connected; else the status says which is missing.
    bool lmStudioConnected(const QString &operation);
    void publish();
    TranscriptMessage *find(const QUuid &id);
    QUuid appendPair(const QString &question);
    void finishMessage(const QUuid &id, const QString &text);
    void endSend();
    void handleStreamEvent(const QUuid &answer, const LMSStreamEvent &event);
    void applyChatEnd(const QUuid &answer, const LMSChatResponse &reply);
    void streamAnswer(const QUuid &answer, const QString &message);
    void blockingAnswer(const QUuid &answer, const QString &message);
    void sendSystemPromptStream(const QUuid &answer);
    QList<AIModel> modelsFromLMStudio() const;
    bool isQuotaFailure(const QString &description) const;
    void applyToLiveServer();
    QJsonArray integrationPayloads() const;

    MCPIntegrationManager *m_mcp;
    HistoryModel *m_history;
    QPointer<LMSChatStream> m_stream;
    std::unique_ptr<LLMBackgroundCall<AIChatResponse>> m_blockingCall;
    std::function<void()> m_sendDone;
};
