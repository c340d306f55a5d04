#include "chat/session/ChatSession.h"

#include "base/AppPaths.h"
#include "base/UserDefaults.h"
#include "chat/clients/LMSChatStream.h"
#include "chat/integrations/MCPIntegrationManager.h"
#include "chat/service/LLMChatMapping.h"
#include "chat/service/LLMChatService.h"
#include "chat/session/ChatAttachmentList.h"
#include "chat/session/ChatStatus.h"
#include "chat/session/ChatTranscriptFile.h"
#include "chat/session/ProviderConnection.h"
#include "chat/session/StreamTextFilter.h"
#include "chat/session/XcodeBridgeService.h"
#include "diagnostics/LogController.h"

#include <QJsonDocument>
#include <cstdio>

namespace {

const QString kNotConnected = QStringLiteral("Not connected. Click Connect first.");
const QString kQuotaWords = QStringLiteral("You must PAY for this service. You cannot test this API without Dollares $$ O.o $$");
const QString kCutWords = QStringLiteral("The connection closed before the answer's end: it may be incomplete.");

void logLine(const QString &text)
{
    LogController::shared()->log(text, -1, MCPLogMessageType::Info);
}

QString percentText(double progress)
{
    return QString::number(int(progress * 100)) + u'%';
}

}  // namespace

ChatSession::ChatSession(ProviderConnection &connection, ChatStatus &status, ChatAttachmentList &attachments,
                         MCPIntegrationManager *mcp, QObject *parent)
    : QObject(parent),
      m_connection(connection),
      m_status(status),
      m_attachments(attachments),
      m_mcp(mcp),
      m_history(new HistoryModel(this))
{
    // A connect and a load open a new thread with the system prompt; a dropped link ends it.
    QObject::connect(&m_connection, &ProviderConnection::connected, this, &ChatSession::sendSystemPrompt);
    QObject::connect(&m_connection, &ProviderConnection::modelLoaded, this, &ChatSession::sendSystemPrompt);
    QObject::connect(&m_connection, &ProviderConnection::disconnected, this, [this] { m_lastResponseID.reset(); });
}

ChatSession::~ChatSession()
{
    if (m_stream)
        m_stream->cancel();
    if (m_blockingCall)
        m_blockingCall->cancel();
}

// ---- transcript -----------------------------------------------------------------------------

TranscriptMessage *ChatSession::find(const QUuid &id)
{
    for (TranscriptMessage &message : m_transcript) {
        if (message.id == id)
            return &message;
    }
    return nullptr;
}

const TranscriptMessage *ChatSession::message(const QUuid &id) const
{
    return const_cast<ChatSession *>(this)->find(id);
}

void ChatSession::setTranscript(const QList<TranscriptMessage> &transcript)
{
    m_transcript = transcript;
    emit transcriptReset();
}

bool ChatSession::updateMessage(const QUuid &id, const std::function<void(TranscriptMessage &)> &change)
{
    TranscriptMessage *message = find(id);
    if (!message)
        return false;
    change(*message);
    emit messageChanged(id);
    return true;
}

QUuid ChatSession::appendPair(const QString &question)
{
    TranscriptMessage user;
    user.role = TranscriptMessage::Role::user;
    user.content = question;
    TranscriptMessage answer;
    answer.role = TranscriptMessage::Role::assistant;
    m_transcript.append(user);
    m_transcript.append(answer);
    emit transcriptReset();
    return answer.id;
}

void ChatSession::finishMessage(const QUuid &id, const QString &text)
{
    const bool found = updateMessage(id, [&](TranscriptMessage &message) {
        message.content = text;
        message.isComplete = true;
    });
    if (found)
        return;
    // The answer was cleared away meanwhile: the outcome still shows, at the end.
    TranscriptMessage late;
    late.role = TranscriptMessage::Role::assistant;
    late.content = text;
    late.isComplete = true;
    m_transcript.append(late);
    emit transcriptReset();
}

void ChatSession::clearChat()
{
    m_transcript.clear();
    m_lastResponseID.reset();
    emit transcriptReset();
    emit changed();
}

QList<QUuid> ChatSession::searchTranscript(const QString &query) const
{
    QList<QUuid> found;
    if (query.isEmpty())
        return found;
    for (const TranscriptMessage &message : m_transcript) {
        if (message.searchText().contains(query, Qt::CaseInsensitive))
            found.append(message.id);
    }
    return found;
}

// ---- integrations ---------------------------------------------------------------------------

void ChatSession::applyToLiveServer()
{
    if (m_mcp)
        m_mcp->applyToLiveServer();
}

QJsonArray ChatSession::integrationPayloads() const
{
    return m_mcp ? m_mcp->integrationPayloads() : QJsonArray();
}

bool ChatSession::isQuotaFailure(const QString &description) const
{
    return m_connection.selectedProvider() == AIProviderID::openAI &&
           description.toLower().contains(QStringLiteral("insufficient_quota"));
}

// ---- streams -------------------------------------------------------------------------------

int ChatSession::stallTimeout()
{
    bool ok = false;
    const int seconds = UserDefaults::standard()->value(stallTimeoutKey()).toInt(&ok);
    return ok && seconds > 0 ? seconds : DefaultStallTimeout;
}

LMSChatStream *ChatSession::makeStream()
{
    auto *stream = new LMSChatStream(m_connection.baseURL(), m_connection.token(), this);
    stream->setStallTimeout(stallTimeout());
    m_stream = stream;
    return stream;
}

// ---- system prompt --------------------------------------------------------------------------

void ChatSession::sendSystemPrompt()
{
    const bool lmStudio = m_connection.selectedProvider() == AIProviderID::lmStudio;
    if (lmStudio && !m_connection.hasLoadedLMStudioModel()) {
        m_status.setText(QStringLiteral("Please load model first."));
        return;
    }
    const QString systemPrompt = m_connection.systemPrompt();
    if (systemPrompt.trimmed().isEmpty() || m_connection.selectedModel().isEmpty())
        return;
    m_lastResponseID.reset();
    m_status.setText(QStringLiteral("Sending system prompt..."));
    const QUuid answer = appendPair(systemPrompt);
    applyToLiveServer();
    m_status.setBusy(true);
    if (lmStudio)
        sendSystemPromptStream(answer);
    else
        sendSystemPromptBlocking(answer);
}

void ChatSession::sendSystemPromptBlocking(const QUuid &answer)
{
    LLMChatService::ChatRequest request;
    request.message = m_connection.systemPrompt();
    request.model = m_connection.selectedModel();
    request.store = true;
    chatInBackground(request, answer, [this, answer](const AIChatResponse *reply, const AppError *error) {
        m_status.setBusy(false);
        if (reply) {
            m_status.setText(QStringLiteral("Ready."));
            return;
        }
        if (isQuotaFailure(error->description))
            m_status.setText(kQuotaWords);
        else
            m_status.setText(QStringLiteral("System prompt failed: ") + error->description);
        finishMessage(answer, QStringLiteral("System prompt failed:\n") + error->description);
    });
}

void ChatSession::chatInBackground(const LLMChatService::ChatRequest &request, const QUuid &answer,
                                   std::function<void(const AIChatResponse *, const AppError *)> then)
{
    const AIProviderID provider = m_connection.selectedProvider();
    const QString url = m_connection.baseURL();
    const QString key = m_connection.token();
    m_blockingCall = std::make_unique<LLMBackgroundCall<AIChatResponse>>(
        this, [provider, url, key, request] { return LLMChatService::chat(provider, url, key, request); },
        [this, answer, then = std::move(then)](Result<AIChatResponse> reply) {
            m_blockingCall.reset();
            if (reply) {
                m_lastResponseID = reply->id;
                updateMessage(answer, [&](TranscriptMessage &message) {
                    message.content = reply->messageText;
                    message.stats = reply->stats;
                    message.isComplete = true;
                });
            }
            then(reply ? &*reply : nullptr, reply ? nullptr : &reply.error());
        });
}

void ChatSession::sendSystemPromptStream(const QUuid &answer)
{
    LMSChatRequest request;
    request.model = m_connection.selectedModel();
    request.input = m_attachments.block() + m_connection.systemPrompt();
    request.store = true;
    request.integrations = integrationPayloads();
    m_streamError.reset();
    LMSChatStream *stream = makeStream();
    // Only the answer's text and its end count here: reasoning and tool calls are passed over.
    QObject::connect(stream, &LMSChatStream::event, this, [this, answer](const LMSStreamEvent &event) {
        switch (event.kind) {
        case LMSStreamEvent::Kind::messageDelta:
            updateMessage(answer, [&](TranscriptMessage &message) { message.content += event.content; });
            break;
        case LMSStreamEvent::Kind::chatEnd:
            if (event.result) {
                const AIChatResponse reply = LLMChatMapping::fromLMStudio(*event.result);
                m_lastResponseID = reply.id;
                updateMessage(answer, [&](TranscriptMessage &message) {
                    message.stats = reply.stats;
                    message.isComplete = true;
                    if (message.content.isEmpty())
                        message.content = reply.messageText;
                });
            }
            // After an error frame its words stay in the status line.
            if (!m_streamError)
                m_status.setText(QStringLiteral("Ready."));
            break;
        case LMSStreamEvent::Kind::streamError:
            m_streamError = event.errorMessage;
            m_status.setText(QStringLiteral("System prompt error: ") + event.errorMessage);
            finishMessage(answer, QStringLiteral("System prompt failed:\n") + event.errorMessage);
            break;
        default:
            break;
        }
    });
    QObject::connect(stream, &LMSChatStream::finished, this, [this, answer, stream](const std::optional<QString> &error) {
        if (error) {
            m_status.setText(QStringLiteral("System prompt failed: ") + *error);
            finishMessage(answer, QStringLiteral("System prompt failed:\n") + *error);
        }
        stream->deleteLater();
        m_status.setBusy(false);
    });
    stream->start(request);
}

// ---- send -----------------------------------------------------------------------------------

void ChatSession::send(const QString &text, std::function<void()> done)
{
    const QString trimmed = text.trimmed();
    auto finish = [&] {
        if (done)
            done();
    };
    if (trimmed.isEmpty())
        return finish();
    if (m_connection.state() != ProviderConnection::State::connected) {
        m_status.setText(kNotConnected);
        return finish();
    }
    m_history->add(trimmed);
    if (!m_connection.hasValidBaseURL()) {
        m_status.setText(QStringLiteral("Invalid base URL"));
        return finish();
    }
    m_sendDone = std::move(done);
    const QString message = m_attachments.block() + trimmed;
    const QUuid answer = appendPair(trimmed);
    m_status.setBusy(true);
    if (m_connection.selectedProvider() == AIProviderID::lmStudio)
        streamAnswer(answer, message);
    else
        blockingAnswer(answer, message);
}

void ChatSession::endSend()
{
    m_status.setBusy(false);
    if (std::function<void()> done = std::exchange(m_sendDone, {}))
        done();
}

void ChatSession::streamAnswer(const QUuid &answer, const QString &message)
{
    m_modelLoadProgress.reset();
    m_promptProcessingProgress.reset();
    LMSChatRequest request;
    request.model = m_connection.selectedModel();
    request.input = message;
    request.store = true;
    request.previousResponseId = m_lastResponseID;
    if (m_connection.temperature() > 0)
        request.temperature = m_connection.temperature();
    if (m_connection.maxOutputTokens() >= 1)
        request.maxOutputTokens = m_connection.maxOutputTokens();
    applyToLiveServer();
    request.integrations = integrationPayloads();
    logLine(QStringLiteral("[CVM] LMS integrations=") +
            QString::fromUtf8(QJsonDocument(request.integrations).toJson(QJsonDocument::Compact)));
    m_streamError.reset();
    LMSChatStream *stream = makeStream();
    QObject::connect(stream, &LMSChatStream::event, this,
                     [this, answer](const LMSStreamEvent &event) { handleStreamEvent(answer, event); });
    QObject::connect(stream, &LMSChatStream::finished, this, [this, answer, stream](const std::optional<QString> &error) {
        stream->deleteLater();
        if (stream->stalled() && error) {
            // What came before the silence stays; a last line says why the answer ends there.
            m_status.setText(*error);
            const bool found = updateMessage(answer, [&](TranscriptMessage &message) {
                message.content = message.content.isEmpty() ? *error : message.content + QStringLiteral("\n\n") + *error;
                message.isComplete = true;
            });
            if (!found)
                finishMessage(answer, *error);
            logLine(QStringLiteral("[CVM] status=") + *error);
        } else if (error) {
            m_status.setText(QStringLiteral("Error: ") + *error);
            finishMessage(answer, QStringLiteral("Request failed:\n") + *error);
        } else if (const TranscriptMessage *message = find(answer); message && !message->isComplete) {
            // The connection closed before chat.end: what came is the answer, and is shown as one.
            updateMessage(answer, [](TranscriptMessage &cut) { cut.isComplete = true; });
            m_status.setText(kCutWords);
            logLine(QStringLiteral("[CVM] status=") + kCutWords);
        }
        endSend();
    });
    stream->start(request);
}

void ChatSession::handleStreamEvent(const QUuid &answer, const LMSStreamEvent &event)
{
    using Kind = LMSStreamEvent::Kind;
    TranscriptMessage *message = find(answer);
    auto progress = [this](std::optional<double> &field, std::optional<double> value, const QString &status) {
        field = value;
        emit changed();
        m_status.setText(status);
    };
    switch (event.kind) {
    case Kind::modelLoadStart:
        return progress(m_modelLoadProgress, 0, QStringLiteral("Loading model..."));
    case Kind::modelLoadProgress:
        return progress(m_modelLoadProgress, event.progress, QStringLiteral("Loading model ") + percentText(event.progress));
    case Kind::modelLoadEnd:
        return progress(m_modelLoadProgress, std::nullopt,
                        QStringLiteral("Model loaded in %1s.").arg(QString::asprintf("%.1f", event.loadTimeSeconds)));
    case Kind::promptProcessingStart:
        return progress(m_promptProcessingProgress, 0, QStringLiteral("Processing prompt..."));
    case Kind::promptProcessingProgress:
        return progress(m_promptProcessingProgress, event.progress,
                        QStringLiteral("Processing prompt ") + percentText(event.progress));
    case Kind::promptProcessingEnd:
        return progress(m_promptProcessingProgress, std::nullopt, QString());
    case Kind::reasoningDelta: {
        if (!message)
            return;
        const QString soFar = message->reasoning.value_or(QString());
        const QString text = StreamTextFilter::cleanReasoning(soFar, StreamTextFilter::filter(event.content));
        if (text.isEmpty())
            return;
        message->reasoning = soFar + text;
        emit messageChanged(answer);
        return;
    }
    case Kind::messageDelta:
        if (!message)
            return;
        message->content += StreamTextFilter::filter(event.content);
        emit messageChanged(answer);
        return;
    case Kind::toolCallStart:
    case Kind::toolCallName:
    case Kind::toolCallArguments:
    case Kind::toolCallSuccess:
    case Kind::toolCallFailure:
        return handleToolCallEvent(answer, event);
    case Kind::chatEnd:
        if (event.result)
            applyChatEnd(answer, *event.result);
        // The server sends chat.end after an error too: the error stays in the status line.
        if (m_streamError)
            m_status.setText(QStringLiteral("Error: ") + *m_streamError);
        return;
    case Kind::streamError:
        m_streamError = event.errorMessage;
        m_status.setText(QStringLiteral("Error: ") + event.errorMessage);
        finishMessage(answer, QStringLiteral("Request failed:\n") + event.errorMessage);
        logLine(QStringLiteral("[CVM] status=") + m_status.text());
        return;
    default:
        return;
    }
}

void ChatSession::handleToolCallEvent(const QUuid &answer, const LMSStreamEvent &event)
{
    using Kind = LMSStreamEvent::Kind;
    TranscriptMessage *message = find(answer);
    const int index = message ? int(message - m_transcript.data()) : -1;
    // Tool calls that have no name yet wait under the index of their message.
    const QString prepared = QStringLiteral("prepared:") + QString::number(index);
    const QString placeholder = QStringLiteral("Prepare tool call...");
    auto label = [](const QString &serverLabel) { return serverLabel.isEmpty() ? AppPaths::displayName() : serverLabel; };
    // A call has no id on the wire: a later event belongs to the oldest open call of its tool,
    // else to the oldest open call, as the server runs them in the order it started them.
    auto openCall = [&](const QString &tool) -> MCPToolCall * {
        if (!message)
            return nullptr;
        MCPToolCall *oldest = nullptr;
        for (MCPToolCall &call : message->toolCalls) {
            if (call.isCompleted)
                continue;
            if (call.tool == tool)
                return &call;
            if (!oldest)
                oldest = &call;
        }
        return oldest;
    };
    // A name the start did not give is taken from the first event that has one.
    auto takeName = [&](MCPToolCall &call) {
        if (call.prepareIndex.isEmpty() || event.tool.isEmpty() || event.tool == QLatin1String("Unknown"))
            return;
        call.tool = event.tool;
        call.serverLabel = label(event.serverLabel);
        call.prepareIndex.clear();
    };

    switch (event.kind) {
    case Kind::toolCallStart: {
        if (!message)
            return;
        MCPToolCall call;
        if (event.tool.isEmpty()) {
            call.tool = placeholder;
            call.serverLabel = AppPaths::displayName();
            call.prepareIndex = prepared;
        } else {
            call.tool = event.tool;
            call.serverLabel = label(event.serverLabel);
        }
        message->toolCalls.append(call);
        message->role = TranscriptMessage::Role::toolCall;
        emit messageChanged(answer);
        m_status.setText(event.tool.isEmpty() ? QStringLiteral("Calling tool...")
                                              : QStringLiteral("Calling tool %1...").arg(event.tool));
        return;
    }
    case Kind::toolCallName:
        if (message) {
            for (MCPToolCall &call : message->toolCalls) {
                if (call.isCompleted || call.prepareIndex != prepared)
                    continue;
                call.tool = event.tool;
                call.serverLabel = label(event.serverLabel);
                call.prepareIndex.clear();
                emit messageChanged(answer);
                break;
            }
        }
        m_status.setText(QStringLiteral("Calling tool %1...").arg(event.tool));
        return;
    case Kind::toolCallArguments:
        if (MCPToolCall *call = openCall(event.tool)) {
            takeName(*call);
            if (!event.arguments.isEmpty())
                call->arguments = event.arguments;
            emit messageChanged(answer);
        }
        m_status.setText(QStringLiteral("Calling tool ") + event.tool);
        return;
    case Kind::toolCallSuccess:
        if (MCPToolCall *call = openCall(event.tool)) {
            takeName(*call);
            if (call->arguments.isEmpty() && !event.arguments.isEmpty())
                call->arguments = event.arguments;
            call->output = event.output;
            call->isCompleted = true;
            emit messageChanged(answer);
        }
        m_status.setText(QStringLiteral("Tool %1 finished.").arg(event.tool));
        return;
    case Kind::toolCallFailure: {
        if (!message)
            return;
        MCPToolCall *call = openCall(event.tool);
        if (!call) {
            // A call the server refused before it started (a tool it does not know): the
            // failure still shows, as a call of its own.
            MCPToolCall refused;
            refused.tool = event.tool.isEmpty() ? QStringLiteral("Unknown") : event.tool;
            refused.serverLabel = label(event.serverLabel);
            message->toolCalls.append(refused);
            message->role = TranscriptMessage::Role::toolCall;
            call = &message->toolCalls.last();
        }
        takeName(*call);
        if (call->arguments.isEmpty() && !event.arguments.isEmpty())
            call->arguments = event.arguments;
        call->isCompleted = true;
        call->error = event.reason;
        message->isComplete = true;
        emit messageChanged(answer);
        m_status.setText(QStringLiteral("Tool call failed: ") + event.reason);
        return;
    }
    default:
        return;
    }
}

void ChatSession::applyChatEnd(const QUuid &answer, const LMSChatResponse &reply)
{
    const AIChatResponse response = LLMChatMapping::fromLMStudio(reply);
    m_lastResponseID = response.id;
    updateMessage(answer, [&](TranscriptMessage &message) {
        message.isComplete = true;
        message.stats = response.stats;
        if (message.content.isEmpty())
            message.content = response.messageText;
    });
    XcodeBridgeService::writeResponse(response.messageText);
    if (!response.stats) {
        m_status.setText(QStringLiteral("Ready.")); // no figures rather than zeros
        return;
    }
    const AIChatStats stats = *response.stats;
    // The C formatter, so that halves round as printf rounds them.
    char line[160];
    std::snprintf(line, sizeof line, "%.0f tok/s | %lld tokens | %.2fs to first token", stats.tokensPerSecond,
                  static_cast<long long>(stats.totalOutputTokens), stats.timeToFirstTokenSeconds);
    m_status.setText(QString::fromUtf8(line));
}

void ChatSession::blockingAnswer(const QUuid &answer, const QString &message)
{
    LLMChatService::ChatRequest request;
    request.message = message;
    request.model = m_connection.selectedModel();
    request.previousResponseID = m_lastResponseID;
    request.systemPrompt = m_connection.systemPrompt();
    if (m_connection.temperature() > 0)
        request.temperature = m_connection.temperature();
    if (m_connection.maxOutputTokens() >= 1)
        request.maxOutputTokens = m_connection.maxOutputTokens();
    request.store = true;
    chatInBackground(request, answer, [this, answer](const AIChatResponse *reply, const AppError *error) {
        if (reply) {
            XcodeBridgeService::writeResponse(reply->messageText);
            // A provider that reports no usage gets no figure, not "0 tokens".
            m_status.setText(reply->stats && reply->stats->totalOutputTokens > 0
                                 ? QStringLiteral("%1 tokens").arg(reply->stats->totalOutputTokens)
                                 : QStringLiteral("Ready."));
            return endSend();
        }
        if (isQuotaFailure(error->description)) {
            m_status.setText(kQuotaWords);
            XcodeBridgeService::writeResponse(kQuotaWords);
        } else {
            m_status.setText(QStringLiteral("Error: ") + error->description);
        }
        finishMessage(answer, QStringLiteral("Request failed:\n") + error->description);
        endSend();
    });
}

void ChatSession::abort()
{
    if (m_stream) {
        m_stream->cancel();
        m_stream->deleteLater();
        m_stream = nullptr;
    }
    if (m_blockingCall) {
        m_blockingCall->cancel();
        m_blockingCall.reset();
    }
    m_status.setText(QStringLiteral("Aborted."));
    // The newest answer still growing; one turned into a tool call is not one of them.
    for (qsizetype i = m_transcript.size() - 1; i >= 0; --i) {
        TranscriptMessage &message = m_transcript[i];
        if (message.role != TranscriptMessage::Role::assistant || message.isComplete)
            continue;
        message.isComplete = true;
        if (message.content.isEmpty())
            message.content = QStringLiteral("*(aborted)*");
        emit messageChanged(message.id);
        break;
    }
    endSend();
}

// ---- the transcript file --------------------------------------------------------------------

std::optional<QByteArray> ChatSession::exportChat() const
{
    ChatTranscriptFile::Contents contents;
    contents.selectedProviderRaw = AIProvider::rawValue(m_connection.selectedProvider());
    contents.baseURL = m_connection.baseURL();
    contents.selectedModel = m_connection.selectedModel();
    contents.systemPrompt = m_connection.systemPrompt();
    contents.lastResponseID = m_lastResponseID;
    contents.transcript = m_transcript;
    return ChatTranscriptFile::encode(contents);
}

bool ChatSession::importChat(const QByteArray &bytes, QString *error)
{
    QString why;
    const std::optional<ChatTranscriptFile::Contents> contents = ChatTranscriptFile::decode(bytes, &why);
    if (!contents) {
        logLine(QStringLiteral("Failed to import chat: ") + why);
        if (error)
            *error = why;
        return false;
    }
    m_lastResponseID = contents->lastResponseID;
    std::optional<AIProviderID> provider;
    if (contents->selectedProviderRaw)
        provider = AIProvider::fromRawValue(*contents->selectedProviderRaw);
    m_connection.restore(provider, contents->baseURL, contents->selectedModel, contents->systemPrompt);
    setTranscript(contents->transcript);
    emit changed();
    return true;
}
