#include "chat/session/ChatViewModel.h"

#include "base/AppPaths.h"
#include "base/UserDefaults.h"
#include "chat/clients/LMSChatStream.h"
#include "chat/clients/LMStudioClient.h"
#include "chat/integrations/MCPIntegrationManager.h"
#include "chat/service/LLMChatMapping.h"
#include "chat/service/LLMChatService.h"
#include "chat/service/LLMProviderSettings.h"
#include "chat/session/ChatTranscriptFile.h"
#include "chat/session/StreamTextFilter.h"
#include "chat/session/XcodeBridgeService.h"
#include "diagnostics/LogController.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonDocument>
#include <QUrl>
#include <cmath>
#include <cstdio>

namespace {

const QString kNotConnected = QStringLiteral("Not connected. Click Connect first.");
const QString kQuotaWords = QStringLiteral("You must PAY for this service. You cannot test this API without Dollares $$ O.o $$");

void logLine(const QString &text)
{
    LogController::shared()->log(text, -1, MCPLogMessageType::Info);
}

bool parsesAsURL(const QString &text)
{
    const QUrl url(text.trimmed(), QUrl::StrictMode);
    return url.isValid() && !url.scheme().isEmpty() && !url.host().isEmpty();
}

QString percentText(double progress)
{
    return QString::number(int(progress * 100)) + u'%';
}

}  // namespace

ChatViewModel::ChatViewModel(MCPIntegrationManager *mcp, QObject *parent)
    : QObject(parent), m_mcp(mcp), m_history(new HistoryModel(this))
{
    selectedProvider = LLMProviderSettings::loadSelectedProvider(*UserDefaults::standard());
    loadSettings();
}

ChatViewModel::~ChatViewModel()
{
    if (m_stream)
        m_stream->cancel();
    if (m_blockingCall)
        m_blockingCall->cancel();
}

void ChatViewModel::publish()
{
    emit changed();
}

void ChatViewModel::setStatus(const QString &text)
{
    statusText = text;
    publish();
}

template<typename T>
void ChatViewModel::guarded(std::function<T()> work, std::function<void(T)> then)
{
    if (!parsesAsURL(baseURL)) {
        setStatus(QStringLiteral("Invalid base URL"));
        return;
    }
    isBusy = true;
    publish();
    // The call object only carries the cancel flag; the worker keeps what it needs.
    LLMBackgroundCall<T>(this, std::move(work), [this, then = std::move(then)](std::optional<T> value, std::optional<ChatClientError> error) {
        isBusy = false;
        if (error) {
            statusText = QStringLiteral("Error: ") + error->description();
            logLine(QStringLiteral("[CVM] Error: ") + error->description());
            publish();
            return;
        }
        then(std::move(*value));
        publish();
    });
}

// ---- settings -------------------------------------------------------------------------------

void ChatViewModel::loadSettings()
{
    auto defaults = UserDefaults::standard();
    const LLMProviderSettings stored = LLMProviderSettings::load(*defaults, selectedProvider);
    baseURL = stored.serverURL;
    token = stored.token;
    systemPrompt = stored.systemPrompt;
    temperature = stored.temperature;
    maxOutputTokens = stored.maxTokensOutput;
    publish();
}

void ChatViewModel::saveSettings()
{
    auto defaults = UserDefaults::standard();
    LLMProviderSettings values{baseURL, token, systemPrompt, temperature, maxOutputTokens};
    values.save(*defaults, selectedProvider);
    LLMProviderSettings::saveSelectedProvider(*defaults, selectedProvider);
}

ChatViewModel::ProviderSettings ChatViewModel::settings(AIProviderID provider) const
{
    if (provider == selectedProvider)
        return {baseURL, token, systemPrompt};
    auto defaults = UserDefaults::standard();
    const LLMProviderSettings stored = LLMProviderSettings::load(*defaults, provider);
    return {stored.serverURL, stored.token, stored.systemPrompt};
}

void ChatViewModel::applySettings(AIProviderID provider, const ProviderSettings &values)
{
    auto defaults = UserDefaults::standard();
    LLMProviderSettings stored = LLMProviderSettings::load(*defaults, provider);
    stored.serverURL = values.baseURL;
    stored.token = values.token;
    stored.systemPrompt = values.systemPrompt;
    stored.save(*defaults, provider);
    if (provider == selectedProvider) {
        baseURL = values.baseURL;
        token = values.token;
        systemPrompt = values.systemPrompt;
        publish();
    }
}

void ChatViewModel::applyModelSettings(const QString &temperatureText, const QString &maxTokensText)
{
    bool ok = false;
    const double parsedTemperature = temperatureText.trimmed().toDouble(&ok);
    if (ok)
        temperature = std::clamp(parsedTemperature, 0.0, 1.0);
    const qint64 parsedLimit = maxTokensText.trimmed().toLongLong(&ok);
    if (ok)
        maxOutputTokens = parsedLimit;
    saveSettings();
    publish();
}

QString ChatViewModel::outputLimitText(qint64 limit)
{
    return limit == -1 ? QStringLiteral("Provider default") : QString::number(limit) + QStringLiteral(" tokens");
}

// ---- connection -----------------------------------------------------------------------------

std::optional<AIModel> ChatViewModel::currentModel() const
{
    for (const AIModel &model : models) {
        if (model.id == selectedModel)
            return model;
    }
    return std::nullopt;
}

void ChatViewModel::connect()
{
    if (selectedProvider != AIProviderID::lmStudio && token.trimmed().isEmpty()) {
        connectionState = ConnectionState::disconnected;
        setStatus(AIProvider::displayName(selectedProvider) + QStringLiteral(" requires an API key in Connection Settings."));
        return;
    }
    connectionState = ConnectionState::unknown;
    publish();
    fetchModels([this] {
        bool kept = false;
        for (const AIModel &model : models)
            kept = kept || model.id == selectedModel;
        if (!kept) {
            // At connect a loaded model is preferred.
            selectedModel.clear();
            for (const AIModel &model : models) {
                if (model.isLoaded) {
                    selectedModel = model.id;
                    break;
                }
            }
            if (selectedModel.isEmpty() && !models.isEmpty())
                selectedModel = models.first().id;
        }
        connectionState = ConnectionState::connected;
        statusText = QStringLiteral("Connected — %1 model(s) available.").arg(models.size());
        sendSystemPrompt();
    });
}

void ChatViewModel::fetchModels(std::function<void()> then)
{
    using Lists = std::pair<QList<AIModel>, QList<LMSModel>>;
    const AIProviderID provider = selectedProvider;
    const QString url = baseURL;
    const QString key = token;
    guarded<Lists>(
        [provider, url, key] {
            Lists lists{LLMChatService::listModels(provider, url, key), {}};
            if (provider == AIProviderID::lmStudio)
                lists.second = LLMChatService::listLMStudioModels(url, key);
            return lists;
        },
        [this, then = std::move(then)](Lists lists) {
            models = lists.first;
            lmStudioModels = lists.second;
            then();
        });
}

bool ChatViewModel::lmStudioConnected(const QString &operation)
{
    if (selectedProvider != AIProviderID::lmStudio) {
        setStatus(operation + QStringLiteral(" is only available for LM Studio."));
        return false;
    }
    if (connectionState != ConnectionState::connected) {
        setStatus(kNotConnected);
        return false;
    }
    return true;
}

void ChatViewModel::disconnect()
{
    connectionState = ConnectionState::disconnected;
    models.clear();
    lmStudioModels.clear();
    lastResponseID.reset();
    setStatus(QStringLiteral("Disconnected."));
}

void ChatViewModel::selectProvider(AIProviderID provider)
{
    if (provider == selectedProvider)
        return;
    saveSettings();
    selectedProvider = provider;
    loadSettings();
    selectedModel.clear();
    saveSettings();
    disconnect();
}

QList<AIModel> ChatViewModel::modelsFromLMStudio() const
{
    QList<AIModel> list;
    for (const LMSModel &entry : lmStudioModels) {
        AIModel model;
        model.id = entry.key;
        model.name = entry.displayName;
        model.provider = AIProviderID::lmStudio;
        model.isLoaded = !entry.loadedInstances.isEmpty();
        list.append(model);
    }
    return list;
}

void ChatViewModel::refreshModels()
{
    if (connectionState != ConnectionState::connected) {
        setStatus(kNotConnected);
        return;
    }
    fetchModels([this] {
        bool kept = false;
        for (const AIModel &model : models)
            kept = kept || model.id == selectedModel;
        if (!kept)
            selectedModel = models.isEmpty() ? QString() : models.first().id;
        statusText = QStringLiteral("Refreshed %1 model(s) available.").arg(models.size());
    });
}

void ChatViewModel::loadSelectedModel()
{
    if (!lmStudioConnected(QStringLiteral("Model loading")))
        return;
    using Result = std::pair<LMSLoadResponse, QList<LMSModel>>;
    const QString url = baseURL;
    const QString key = token;
    const QString model = selectedModel;
    guarded<Result>(
        [url, key, model] {
            LMStudioClient client(url, key);
            LMStudioClient::LoadConfig config;
            config.echoLoadConfig = true;
            LMSLoadResponse loaded = client.load(model, config);
            return Result{loaded, client.listModels()};
        },
        [this, model](Result result) {
            statusText = QStringLiteral("Loaded '%1' in %2s.").arg(model, QString::asprintf("%.1f", result.first.loadTimeSeconds));
            lmStudioModels = result.second;
            loadedModel.reset();
            for (const LMSModel &entry : lmStudioModels) {
                if (entry.key == selectedModel)
                    loadedModel = entry;
            }
            models = modelsFromLMStudio();
            sendSystemPrompt();
        });
}

void ChatViewModel::unloadSelectedModel()
{
    if (!lmStudioConnected(QStringLiteral("Model unloading")))
        return;
    std::optional<LMSModel> entry;
    for (const LMSModel &model : lmStudioModels) {
        if (model.key == selectedModel)
            entry = model;
    }
    if (!entry || entry->loadedInstances.isEmpty()) {
        setStatus(QStringLiteral("'%1' has no loaded instances.").arg(entry ? entry->displayName : selectedModel));
        return;
    }
    const QString url = baseURL;
    const QString key = token;
    const QString instance = entry->loadedInstances.first().id;
    const QString model = selectedModel;
    guarded<QList<LMSModel>>(
        [url, key, instance] {
            LMStudioClient client(url, key);
            client.unload(instance);
            return client.listModels();
        },
        [this, model](QList<LMSModel> list) {
            statusText = QStringLiteral("Unloaded '%1'.").arg(model);
            lmStudioModels = list;
            models = modelsFromLMStudio();
        });
}

QString ChatViewModel::downloadStatusLine(const LMSDownloadStatus &status)
{
    switch (status.status) {
    case LMSDownloadStatus::State::downloading: {
        QString percent = QStringLiteral("…");
        if (status.totalSizeBytes && *status.totalSizeBytes >= 1 && status.downloadedBytes)
            percent = QString::number(qint64(double(*status.downloadedBytes) / double(*status.totalSizeBytes) * 100)) + u'%';
        QString speed;
        if (status.bytesPerSecond) {
            static const char *units[] = {"B", "KB", "MB", "GB", "TB"};
            double value = *status.bytesPerSecond;
            int unit = 0;
            while (value >= 1024 && unit < 4) {
                value /= 1024;
                ++unit;
            }
            speed = QString::asprintf("%.1f %s", value, units[unit]) + QStringLiteral("/s");
        }
        return (QStringLiteral("Downloading ") + percent + u' ' + speed).trimmed();
    }
    case LMSDownloadStatus::State::paused:
        return QStringLiteral("Download paused.");
    case LMSDownloadStatus::State::completed:
        return QStringLiteral("Download completed.");
    case LMSDownloadStatus::State::failed:
        return QStringLiteral("Download failed.");
    case LMSDownloadStatus::State::alreadyDownloaded:
        return QStringLiteral("Model already downloaded.");
    }
    return QString();
}

void ChatViewModel::startDownload()
{
    if (!lmStudioConnected(QStringLiteral("Model download")))
        return;
    const QString url = baseURL;
    const QString key = token;
    const QString model = downloadModelName;
    guarded<LMSDownloadStatus>([url, key, model] { return LMStudioClient(url, key).download(model); },
                               [this](LMSDownloadStatus status) {
                                   downloadStatus = status;
                                   if (status.jobId)
                                       downloadJobID = *status.jobId;
                                   statusText = downloadStatusLine(status);
                               });
}

void ChatViewModel::checkDownloadStatus()
{
    if (!lmStudioConnected(QStringLiteral("Download status")))
        return;
    if (downloadJobID.isEmpty()) {
        setStatus(QStringLiteral("Enter a job ID first."));
        return;
    }
    const QString url = baseURL;
    const QString key = token;
    const QString job = downloadJobID;
    guarded<LMSDownloadStatus>([url, key, job] { return LMStudioClient(url, key).downloadStatus(job); },
                               [this](LMSDownloadStatus status) {
                                   downloadStatus = status;
                                   if (status.jobId)
                                       downloadJobID = *status.jobId;
                                   statusText = downloadStatusLine(status);
                               });
}

// ---- transcript -----------------------------------------------------------------------------

TranscriptMessage *ChatViewModel::find(const QUuid &id)
{
    for (TranscriptMessage &message : transcript) {
        if (message.id == id)
            return &message;
    }
    return nullptr;
}

const TranscriptMessage *ChatViewModel::message(const QUuid &id) const
{
    return const_cast<ChatViewModel *>(this)->find(id);
}

QUuid ChatViewModel::appendPair(const QString &question)
{
    TranscriptMessage user;
    user.role = TranscriptMessage::Role::user;
    user.content = question;
    TranscriptMessage answer;
    answer.role = TranscriptMessage::Role::assistant;
    transcript.append(user);
    transcript.append(answer);
    emit transcriptReset();
    return answer.id;
}

void ChatViewModel::finishMessage(const QUuid &id, const QString &text)
{
    if (TranscriptMessage *message = find(id)) {
        message->content = text;
        message->isComplete = true;
        emit messageChanged(id);
        return;
    }
    TranscriptMessage late;
    late.role = TranscriptMessage::Role::assistant;
    late.content = text;
    late.isComplete = true;
    transcript.append(late);
    emit transcriptReset();
}

void ChatViewModel::clearChat()
{
    transcript.clear();
    lastResponseID.reset();
    emit transcriptReset();
    publish();
}

QList<QUuid> ChatViewModel::searchTranscript(const QString &query) const
{
    QList<QUuid> found;
    if (query.isEmpty())
        return found;
    for (const TranscriptMessage &message : transcript) {
        if (message.searchText().contains(query, Qt::CaseInsensitive))
            found.append(message.id);
    }
    return found;
}

// ---- integrations ---------------------------------------------------------------------------

void ChatViewModel::applyToLiveServer()
{
    if (m_mcp)
        m_mcp->applyToLiveServer();
}

QJsonArray ChatViewModel::integrationPayloads() const
{
    return m_mcp ? m_mcp->integrationPayloads() : QJsonArray();
}

bool ChatViewModel::isQuotaFailure(const QString &description) const
{
    return selectedProvider == AIProviderID::openAI && description.toLower().contains(QStringLiteral("insufficient_quota"));
}

// ---- system prompt --------------------------------------------------------------------------

void ChatViewModel::sendSystemPrompt()
{
    if (selectedProvider == AIProviderID::lmStudio) {
        bool loaded = false;
        for (const LMSModel &model : lmStudioModels)
            loaded = loaded || !model.loadedInstances.isEmpty();
        if (!loaded) {
            setStatus(QStringLiteral("Please load model first."));
            return;
        }
    }
    if (systemPrompt.trimmed().isEmpty() || selectedModel.isEmpty())
        return;
    lastResponseID.reset();
    statusText = QStringLiteral("Sending system prompt...");
    const QUuid answer = appendPair(systemPrompt);
    applyToLiveServer();
    isBusy = true;
    publish();
    if (selectedProvider == AIProviderID::lmStudio) {
        sendSystemPromptStream(answer);
        return;
    }
    LLMChatService::ChatRequest request;
    request.message = systemPrompt;
    request.model = selectedModel;
    request.store = true;
    const AIProviderID provider = selectedProvider;
    const QString url = baseURL;
    const QString key = token;
    m_blockingCall = std::make_unique<LLMBackgroundCall<AIChatResponse>>(
        this, [provider, url, key, request] { return LLMChatService::chat(provider, url, key, request); },
        [this, answer](std::optional<AIChatResponse> reply, std::optional<ChatClientError> error) {
            m_blockingCall.reset();
            isBusy = false;
            if (reply) {
                lastResponseID = reply->id;
                if (TranscriptMessage *message = find(answer)) {
                    message->content = reply->messageText;
                    message->stats = reply->stats;
                    message->isComplete = true;
                    emit messageChanged(answer);
                }
                setStatus(QStringLiteral("Ready."));
                return;
            }
            if (isQuotaFailure(error->description()))
                statusText = kQuotaWords;
            else
                statusText = QStringLiteral("System prompt failed: ") + error->description();
            finishMessage(answer, QStringLiteral("System prompt failed:\n") + error->description());
            publish();
        });
}

void ChatViewModel::sendSystemPromptStream(const QUuid &answer)
{
    LMSChatRequest request;
    request.model = selectedModel;
    request.input = attachmentsBlock() + systemPrompt;
    request.store = true;
    request.integrations = integrationPayloads();
    auto *stream = new LMSChatStream(baseURL, token, this);
    m_stream = stream;
    QObject::connect(stream, &LMSChatStream::event, this, [this, answer](const LMSStreamEvent &event) {
        TranscriptMessage *message = find(answer);
        switch (event.kind) {
        case LMSStreamEvent::Kind::messageDelta:
            if (message) {
                message->content += event.content;
                emit messageChanged(answer);
            }
            break;
        case LMSStreamEvent::Kind::chatEnd:
            if (event.result) {
                const AIChatResponse reply = LLMChatMapping::fromLMStudio(*event.result);
                lastResponseID = reply.id;
                if (message) {
                    message->stats = reply.stats;
                    message->isComplete = true;
                    if (message->content.isEmpty())
                        message->content = reply.messageText;
                    emit messageChanged(answer);
                }
            }
            setStatus(QStringLiteral("Ready."));
            break;
        case LMSStreamEvent::Kind::streamError:
            statusText = QStringLiteral("System prompt error: ") + event.errorMessage;
            finishMessage(answer, QStringLiteral("System prompt failed:\n") + event.errorMessage);
            publish();
            break;
        default:
            break;
        }
    });
    QObject::connect(stream, &LMSChatStream::finished, this, [this, answer, stream](const std::optional<QString> &error) {
        if (error) {
            statusText = QStringLiteral("System prompt failed: ") + *error;
            finishMessage(answer, QStringLiteral("System prompt failed:\n") + *error);
        }
        isBusy = false;
        stream->deleteLater();
        publish();
    });
    stream->start(request);
}

// ---- send -----------------------------------------------------------------------------------

bool ChatViewModel::canSend() const
{
    return !isBusy && !selectedModel.isEmpty() && !prompt.trimmed().isEmpty() && !models.isEmpty() &&
           connectionState == ConnectionState::connected;
}

void ChatViewModel::sendPrompt(bool clearAfter)
{
    send(prompt, [this, clearAfter] {
        if (!clearAfter)
            return;
        attachments.clear();
        prompt.clear();
        publish();
    });
}

void ChatViewModel::send(const QString &text, std::function<void()> done)
{
    const QString trimmed = text.trimmed();
    auto finish = [&] {
        if (done)
            done();
    };
    if (trimmed.isEmpty())
        return finish();
    if (connectionState != ConnectionState::connected) {
        setStatus(kNotConnected);
        return finish();
    }
    m_history->add(trimmed);
    if (!parsesAsURL(baseURL)) {
        setStatus(QStringLiteral("Invalid base URL"));
        return finish();
    }
    isBusy = true;
    m_sendDone = std::move(done);
    const QString message = attachmentsBlock() + trimmed;
    const QUuid answer = appendPair(trimmed);
    publish();
    if (selectedProvider == AIProviderID::lmStudio)
        streamAnswer(answer, message);
    else
        blockingAnswer(answer, message);
}

void ChatViewModel::endSend()
{
    isBusy = false;
    publish();
    if (std::function<void()> done = std::exchange(m_sendDone, {}))
        done();
}

QString ChatViewModel::attachmentsBlock() const
{
    QStringList pieces;
    for (const ChatAttachment &attachment : attachments)
        pieces += attachment.pieces();
    return pieces.isEmpty() ? QString() : pieces.join(u'\n') + QStringLiteral("\n\n");
}

void ChatViewModel::streamAnswer(const QUuid &answer, const QString &message)
{
    modelLoadProgress.reset();
    promptProcessingProgress.reset();
    LMSChatRequest request;
    request.model = selectedModel;
    request.input = message;
    request.store = true;
    request.previousResponseId = lastResponseID;
    if (temperature > 0)
        request.temperature = temperature;
    if (maxOutputTokens >= 1)
        request.maxOutputTokens = maxOutputTokens;
    applyToLiveServer();
    request.integrations = integrationPayloads();
    logLine(QStringLiteral("[CVM] LMS integrations=") +
            QString::fromUtf8(QJsonDocument(request.integrations).toJson(QJsonDocument::Compact)));
    auto *stream = new LMSChatStream(baseURL, token, this);
    m_stream = stream;
    QObject::connect(stream, &LMSChatStream::event, this,
                     [this, answer](const LMSStreamEvent &event) { handleStreamEvent(answer, event); });
    QObject::connect(stream, &LMSChatStream::finished, this, [this, answer, stream](const std::optional<QString> &error) {
        stream->deleteLater();
        if (error) {
            statusText = QStringLiteral("Error: ") + *error;
            finishMessage(answer, QStringLiteral("Request failed:\n") + *error);
        }
        endSend();
    });
    stream->start(request);
}

void ChatViewModel::handleStreamEvent(const QUuid &answer, const LMSStreamEvent &event)
{
    using Kind = LMSStreamEvent::Kind;
    TranscriptMessage *message = find(answer);
    const int index = message ? int(message - transcript.data()) : -1;
    const QString prepared = QStringLiteral("prepared:") + QString::number(index);
    auto openCall = [&](auto matches) -> MCPToolCall * {
        if (!message)
            return nullptr;
        for (MCPToolCall &call : message->toolCalls) {
            if (!call.isCompleted && matches(call))
                return &call;
        }
        return nullptr;
    };
    switch (event.kind) {
    case Kind::modelLoadStart:
        modelLoadProgress = 0;
        setStatus(QStringLiteral("Loading model..."));
        return;
    case Kind::modelLoadProgress:
        modelLoadProgress = event.progress;
        setStatus(QStringLiteral("Loading model ") + percentText(event.progress));
        return;
    case Kind::modelLoadEnd:
        modelLoadProgress.reset();
        setStatus(QStringLiteral("Model loaded in %1s.").arg(QString::asprintf("%.1f", event.loadTimeSeconds)));
        return;
    case Kind::promptProcessingStart:
        promptProcessingProgress = 0;
        setStatus(QStringLiteral("Processing prompt..."));
        return;
    case Kind::promptProcessingProgress:
        promptProcessingProgress = event.progress;
        setStatus(QStringLiteral("Processing prompt ") + percentText(event.progress));
        return;
    case Kind::promptProcessingEnd:
        promptProcessingProgress.reset();
        setStatus(QString());
        return;
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
    case Kind::toolCallStart: {
        if (!message)
            return;
        MCPToolCall call;
        call.tool = QStringLiteral("Prepare tool call...");
        call.serverLabel = AppPaths::displayName();
        call.prepareIndex = prepared;
        message->toolCalls.append(call);
        message->role = TranscriptMessage::Role::toolCall;
        emit messageChanged(answer);
        setStatus(QStringLiteral("Calling tool..."));
        return;
    }
    case Kind::toolCallName:
        if (MCPToolCall *call = openCall([&](const MCPToolCall &c) { return c.prepareIndex == prepared; })) {
            call->tool = event.tool;
            call->serverLabel = event.serverLabel.isEmpty() ? AppPaths::displayName() : event.serverLabel;
            call->prepareIndex.clear();
            emit messageChanged(answer);
        }
        setStatus(QStringLiteral("Calling tool %1...").arg(event.tool));
        return;
    case Kind::toolCallArguments:
        if (MCPToolCall *call = openCall([&](const MCPToolCall &c) { return c.tool == event.tool; })) {
            if (!event.arguments.isEmpty())
                call->arguments = event.arguments;
            emit messageChanged(answer);
        }
        setStatus(QStringLiteral("Calling tool ") + event.tool);
        return;
    case Kind::toolCallSuccess:
        if (MCPToolCall *call = openCall([&](const MCPToolCall &c) { return c.tool == event.tool; })) {
            call->output = event.output;
            call->isCompleted = true;
            emit messageChanged(answer);
        }
        setStatus(QStringLiteral("Tool %1 finished.").arg(event.tool));
        return;
    case Kind::toolCallFailure:
        if (message && !message->toolCalls.isEmpty()) {
            message->toolCalls.last().isCompleted = true;
            message->toolCalls.last().error = event.reason;
            message->isComplete = true;
            emit messageChanged(answer);
        }
        setStatus(QStringLiteral("Tool call failed: ") + event.reason);
        return;
    case Kind::chatEnd:
        if (event.result)
            applyChatEnd(answer, *event.result);
        return;
    case Kind::streamError:
        statusText = QStringLiteral("Error: ") + event.errorMessage;
        finishMessage(answer, QStringLiteral("Request failed:\n") + event.errorMessage);
        logLine(QStringLiteral("[CVM] status=") + statusText);
        publish();
        return;
    default:
        return;
    }
}

void ChatViewModel::applyChatEnd(const QUuid &answer, const LMSChatResponse &reply)
{
    const AIChatResponse response = LLMChatMapping::fromLMStudio(reply);
    lastResponseID = response.id;
    if (TranscriptMessage *message = find(answer)) {
        message->isComplete = true;
        message->stats = response.stats;
        if (message->content.isEmpty())
            message->content = response.messageText;
        emit messageChanged(answer);
    }
    XcodeBridgeService::writeResponse(response.messageText);
    const AIChatStats stats = response.stats.value_or(AIChatStats());
    // The C formatter, so that halves round as printf rounds them.
    char line[160];
    std::snprintf(line, sizeof line, "%.0f tok/s | %lld tokens | %.2fs to first token", stats.tokensPerSecond,
                  static_cast<long long>(stats.totalOutputTokens), stats.timeToFirstTokenSeconds);
    setStatus(QString::fromUtf8(line));
}

void ChatViewModel::blockingAnswer(const QUuid &answer, const QString &message)
{
    LLMChatService::ChatRequest request;
    request.message = message;
    request.model = selectedModel;
    request.previousResponseID = lastResponseID;
    request.systemPrompt = systemPrompt;
    if (temperature > 0)
        request.temperature = temperature;
    if (maxOutputTokens >= 1)
        request.maxOutputTokens = maxOutputTokens;
    request.store = true;
    const AIProviderID provider = selectedProvider;
    const QString url = baseURL;
    const QString key = token;
    m_blockingCall = std::make_unique<LLMBackgroundCall<AIChatResponse>>(
        this, [provider, url, key, request] { return LLMChatService::chat(provider, url, key, request); },
        [this, answer](std::optional<AIChatResponse> reply, std::optional<ChatClientError> error) {
            m_blockingCall.reset();
            if (reply) {
                lastResponseID = reply->id;
                if (TranscriptMessage *message = find(answer)) {
                    message->isComplete = true;
                    message->content = reply->messageText;
                    message->stats = reply->stats;
                    emit messageChanged(answer);
                }
                XcodeBridgeService::writeResponse(reply->messageText);
                statusText = reply->stats ? QStringLiteral("%1 tokens").arg(reply->stats->totalOutputTokens) : QStringLiteral("Ready.");
                return endSend();
            }
            if (isQuotaFailure(error->description())) {
                statusText = kQuotaWords;
                XcodeBridgeService::writeResponse(kQuotaWords);
            } else {
                statusText = QStringLiteral("Error: ") + error->description();
            }
            finishMessage(answer, QStringLiteral("Request failed:\n") + error->description());
            endSend();
        });
}

void ChatViewModel::abort()
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
    statusText = QStringLiteral("Aborted.");
    for (qsizetype i = transcript.size() - 1; i >= 0; --i) {
        TranscriptMessage &message = transcript[i];
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

// ---- attachments and the bridge -------------------------------------------------------------

void ChatViewModel::addAttachment(const QString &path)
{
    ChatAttachment attachment;
    attachment.path = QDir::cleanPath(QFileInfo(path).absoluteFilePath());
    appendUnique(attachment);
}

void ChatViewModel::addTextAttachment(const QString &text)
{
    ChatAttachment attachment;
    attachment.text = text;
    appendUnique(attachment);
}

void ChatViewModel::appendUnique(const ChatAttachment &attachment)
{
    // One file by its cleaned path, one text by its words.
    for (const ChatAttachment &existing : attachments) {
        if ((attachment.path && existing.path == attachment.path) || (attachment.text && existing.text == attachment.text))
            return;
    }
    attachments.append(attachment);
    publish();
}

void ChatViewModel::removeAttachment(const QUuid &id)
{
    attachments.removeIf([&](const ChatAttachment &attachment) { return attachment.id == id; });
    publish();
}

void ChatViewModel::insertDroppedText(const QString &text)
{
    if (prompt.contains(QStringLiteral("$%")))
        prompt.replace(QStringLiteral("$%"), text.startsWith(u'/') ? QFileInfo(text).fileName() : text);
    else if (prompt.contains(QStringLiteral("$$")))
        prompt.replace(QStringLiteral("$$"), text);
    else if (text.startsWith(u'/'))
        prompt += u'\n' + text;
    else
        prompt += (prompt.isEmpty() ? QString() : QStringLiteral(" ")) + text;
    publish();
}

void ChatViewModel::attachDropped(const QString &text, const std::optional<QString> &path)
{
    if (path) {
        addAttachment(*path);
        return;
    }
    const QString trimmed = text.trimmed();
    if (trimmed.startsWith(u'/'))
        addAttachment(trimmed);
}

void ChatViewModel::insertPickedText(const QString &text)
{
    prompt = prompt.isEmpty() ? text : prompt + u'\n' + text;
    publish();
}

bool ChatViewModel::listenForBridgeRequests()
{
    return XcodeBridgeService::subscribe(QStringLiteral("request"), this, SLOT(receiveBridgeRequest()));
}

void ChatViewModel::receiveBridgeRequest()
{
    const QString text = XcodeBridgeService::normalisedRequest(XcodeBridgeService::readRequest());
    if (!text.isEmpty())
        addTextAttachment(text);
}

// ---- the transcript file --------------------------------------------------------------------

std::optional<QByteArray> ChatViewModel::exportChat() const
{
    ChatTranscriptFile::Contents contents;
    contents.selectedProviderRaw = AIProvider::rawValue(selectedProvider);
    contents.baseURL = baseURL;
    contents.selectedModel = selectedModel;
    contents.systemPrompt = systemPrompt;
    contents.lastResponseID = lastResponseID;
    contents.transcript = transcript;
    return ChatTranscriptFile::encode(contents);
}

bool ChatViewModel::importChat(const QByteArray &bytes, QString *error)
{
    QString why;
    const std::optional<ChatTranscriptFile::Contents> contents = ChatTranscriptFile::decode(bytes, &why);
    if (!contents) {
        logLine(QStringLiteral("Failed to import chat: ") + why);
        if (error)
            *error = why;
        return false;
    }
    transcript = contents->transcript;
    lastResponseID = contents->lastResponseID;
    if (contents->selectedProviderRaw) {
        if (const std::optional<AIProviderID> provider = AIProvider::fromRawValue(*contents->selectedProviderRaw))
            selectedProvider = *provider;
    }
    baseURL = contents->baseURL;
    selectedModel = contents->selectedModel;
    systemPrompt = contents->systemPrompt;
    emit transcriptReset();
    publish();
    return true;
}
