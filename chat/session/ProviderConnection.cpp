#include "chat/session/ProviderConnection.h"

#include "base/UserDefaults.h"
#include "chat/clients/LMStudioClient.h"
#include "chat/service/LLMBackgroundCall.h"
#include "chat/service/LLMChatService.h"
#include "chat/service/LLMProviderSettings.h"
#include "chat/session/ChatStatus.h"
#include "diagnostics/LogController.h"

#include <QUrl>
#include <algorithm>

namespace {

const QString kNotConnected = QStringLiteral("Not connected. Click Connect first.");

}  // namespace

ProviderConnection::ProviderConnection(ChatStatus &status, QObject *parent) : QObject(parent), m_status(status)
{
    m_provider = LLMProviderSettings::loadSelectedProvider(*UserDefaults::standard());
    loadSettings();
}

// ---- fields ---------------------------------------------------------------------------------

void ProviderConnection::setBaseURL(const QString &url)
{
    m_baseURL = url;
    emit changed();
}

void ProviderConnection::setToken(const QString &token)
{
    m_token = token;
    emit changed();
}

void ProviderConnection::setSystemPrompt(const QString &prompt)
{
    m_systemPrompt = prompt;
    emit changed();
}

void ProviderConnection::setTemperature(double temperature)
{
    m_temperature = temperature;
    emit changed();
}

void ProviderConnection::setMaxOutputTokens(qint64 limit)
{
    m_maxOutputTokens = limit;
    emit changed();
}

void ProviderConnection::setSelectedModel(const QString &id)
{
    m_selectedModel = id;
    emit changed();
}

void ProviderConnection::setLMStudioModels(const QList<LMSModel> &models)
{
    m_lmStudioModels = models;
    emit changed();
}

void ProviderConnection::setDownloadModelName(const QString &name)
{
    m_downloadModelName = name;
    emit changed();
}

void ProviderConnection::setDownloadJobID(const QString &job)
{
    m_downloadJobID = job;
    emit changed();
}

std::optional<AIModel> ProviderConnection::currentModel() const
{
    for (const AIModel &model : m_models) {
        if (model.id == m_selectedModel)
            return model;
    }
    return std::nullopt;
}

bool ProviderConnection::canAsk() const
{
    return !m_selectedModel.isEmpty() && !m_models.isEmpty() && m_state == State::connected;
}

bool ProviderConnection::hasLoadedLMStudioModel() const
{
    return std::any_of(m_lmStudioModels.begin(), m_lmStudioModels.end(),
                       [](const LMSModel &model) { return !model.loadedInstances.isEmpty(); });
}

bool ProviderConnection::hasValidBaseURL() const
{
    const QUrl url(m_baseURL.trimmed(), QUrl::StrictMode);
    return url.isValid() && !url.scheme().isEmpty() && !url.host().isEmpty();
}

template<typename T>
void ProviderConnection::guarded(std::function<Result<T>()> work, std::function<void(T)> then)
{
    if (!hasValidBaseURL()) {
        m_status.setText(QStringLiteral("Invalid base URL"));
        return;
    }
    m_status.setBusy(true);
    // The call object only carries the cancel flag; the worker keeps what it needs.
    LLMBackgroundCall<T>(this, std::move(work), [this, then = std::move(then)](Result<T> outcome) {
        m_status.setBusy(false);
        if (!outcome) {
            m_status.setText(QStringLiteral("Error: ") + outcome.error().description);
            LogController::shared()->log(QStringLiteral("[CVM] Error: ") + outcome.error().description, -1,
                                         MCPLogMessageType::Info);
            return;
        }
        then(std::move(*outcome));
        emit changed();
    });
}

// ---- settings -------------------------------------------------------------------------------

void ProviderConnection::loadSettings()
{
    const LLMProviderSettings stored = LLMProviderSettings::load(*UserDefaults::standard(), m_provider);
    m_baseURL = stored.serverURL;
    m_token = stored.token;
    m_systemPrompt = stored.systemPrompt;
    m_temperature = stored.temperature;
    m_maxOutputTokens = stored.maxTokensOutput;
    emit changed();
}

void ProviderConnection::saveSettings()
{
    auto defaults = UserDefaults::standard();
    LLMProviderSettings values{m_baseURL, m_token, m_systemPrompt, m_temperature, m_maxOutputTokens};
    values.save(*defaults, m_provider);
    LLMProviderSettings::saveSelectedProvider(*defaults, m_provider);
}

ProviderConnection::ProviderSettings ProviderConnection::settings(AIProviderID provider) const
{
    if (provider == m_provider)
        return {m_baseURL, m_token, m_systemPrompt};
    const LLMProviderSettings stored = LLMProviderSettings::load(*UserDefaults::standard(), provider);
    return {stored.serverURL, stored.token, stored.systemPrompt};
}

void ProviderConnection::applySettings(AIProviderID provider, const ProviderSettings &values)
{
    auto defaults = UserDefaults::standard();
    LLMProviderSettings stored = LLMProviderSettings::load(*defaults, provider);
    stored.serverURL = values.baseURL;
    stored.token = values.token;
    stored.systemPrompt = values.systemPrompt;
    stored.save(*defaults, provider);
    if (provider == m_provider) {
        m_baseURL = values.baseURL;
        m_token = values.token;
        m_systemPrompt = values.systemPrompt;
        emit changed();
    }
}

void ProviderConnection::applyModelSettings(const QString &temperatureText, const QString &maxTokensText)
{
    bool ok = false;
    const double parsedTemperature = temperatureText.trimmed().toDouble(&ok);
    if (ok)
        m_temperature = std::clamp(parsedTemperature, 0.0, 1.0);
    const qint64 parsedLimit = maxTokensText.trimmed().toLongLong(&ok);
    if (ok)
        m_maxOutputTokens = parsedLimit;
    saveSettings();
    emit changed();
}

void ProviderConnection::restore(std::optional<AIProviderID> provider, const QString &baseURL, const QString &model,
                                 const QString &systemPrompt)
{
    if (provider)
        m_provider = *provider;
    m_baseURL = baseURL;
    m_selectedModel = model;
    m_systemPrompt = systemPrompt;
    emit changed();
}

QString ProviderConnection::outputLimitText(qint64 limit)
{
    return limit == -1 ? QStringLiteral("Provider default") : QString::number(limit) + QStringLiteral(" tokens");
}

// ---- connection -----------------------------------------------------------------------------

void ProviderConnection::connect()
{
    if (m_provider != AIProviderID::lmStudio && m_token.trimmed().isEmpty()) {
        m_state = State::disconnected;
        m_status.setText(AIProvider::displayName(m_provider) + QStringLiteral(" requires an API key in Connection Settings."));
        emit changed();
        return;
    }
    m_state = State::unknown;
    emit changed();
    fetchModels([this] {
        const bool kept = std::any_of(m_models.begin(), m_models.end(),
                                      [&](const AIModel &model) { return model.id == m_selectedModel; });
        if (!kept) {
            // At connect a loaded model is preferred.
            m_selectedModel.clear();
            for (const AIModel &model : m_models) {
                if (model.isLoaded) {
                    m_selectedModel = model.id;
                    break;
                }
            }
            if (m_selectedModel.isEmpty() && !m_models.isEmpty())
                m_selectedModel = m_models.first().id;
        }
        m_state = State::connected;
        m_status.setText(QStringLiteral("Connected — %1 model(s) available.").arg(m_models.size()));
        emit connected();
    });
}

void ProviderConnection::fetchModels(std::function<void()> then)
{
    using Lists = std::pair<QList<AIModel>, QList<LMSModel>>;
    const AIProviderID provider = m_provider;
    const QString url = m_baseURL;
    const QString key = m_token;
    guarded<Lists>(
        [provider, url, key]() -> Result<Lists> {
            Result<QList<AIModel>> models = LLMChatService::listModels(provider, url, key);
            if (!models)
                return models.error();
            Lists lists{std::move(*models), {}};
            if (provider == AIProviderID::lmStudio) {
                Result<QList<LMSModel>> lmStudio = LLMChatService::listLMStudioModels(url, key);
                if (!lmStudio)
                    return lmStudio.error();
                lists.second = std::move(*lmStudio);
            }
            return lists;
        },
        [this, then = std::move(then)](Lists lists) {
            m_models = lists.first;
            m_lmStudioModels = lists.second;
            then();
        });
}

bool ProviderConnection::lmStudioConnected(const QString &operation)
{
    if (m_provider != AIProviderID::lmStudio) {
        m_status.setText(operation + QStringLiteral(" is only available for LM Studio."));
        return false;
    }
    if (m_state != State::connected) {
        m_status.setText(kNotConnected);
        return false;
    }
    return true;
}

void ProviderConnection::disconnect()
{
    m_state = State::disconnected;
    m_models.clear();
    m_lmStudioModels.clear();
    emit disconnected();
    emit changed();
    m_status.setText(QStringLiteral("Disconnected."));
}

void ProviderConnection::selectProvider(AIProviderID provider)
{
    if (provider == m_provider)
        return;
    saveSettings();
    m_provider = provider;
    loadSettings();
    m_selectedModel.clear();
    saveSettings();
    disconnect();
}

QList<AIModel> ProviderConnection::modelsFromLMStudio() const
{
    QList<AIModel> list;
    for (const LMSModel &entry : m_lmStudioModels) {
        AIModel model;
        model.id = entry.key;
        model.name = entry.displayName;
        model.provider = AIProviderID::lmStudio;
        model.isLoaded = !entry.loadedInstances.isEmpty();
        list.append(model);
    }
    return list;
}

void ProviderConnection::refreshModels()
{
    if (m_state != State::connected) {
        m_status.setText(kNotConnected);
        return;
    }
    fetchModels([this] {
        const bool kept = std::any_of(m_models.begin(), m_models.end(),
                                      [&](const AIModel &model) { return model.id == m_selectedModel; });
        if (!kept)
            m_selectedModel = m_models.isEmpty() ? QString() : m_models.first().id;
        m_status.setText(QStringLiteral("Refreshed %1 model(s) available.").arg(m_models.size()));
    });
}

void ProviderConnection::loadSelectedModel()
{
    if (!lmStudioConnected(QStringLiteral("Model loading")))
        return;
    using Loaded = std::pair<LMSLoadResponse, QList<LMSModel>>;
    const QString url = m_baseURL;
    const QString key = m_token;
    const QString model = m_selectedModel;
    guarded<Loaded>(
        [url, key, model]() -> Result<Loaded> {
            LMStudioClient client(url, key);
            LMStudioClient::LoadConfig config;
            config.echoLoadConfig = true;
            Result<LMSLoadResponse> loaded = client.load(model, config);
            if (!loaded)
                return loaded.error();
            Result<QList<LMSModel>> models = client.listModels();
            if (!models)
                return models.error();
            return Loaded{std::move(*loaded), std::move(*models)};
        },
        [this, model](Loaded result) {
            m_status.setText(QStringLiteral("Loaded '%1' in %2s.").arg(model, QString::asprintf("%.1f", result.first.loadTimeSeconds)));
            m_lmStudioModels = result.second;
            m_loadedModel.reset();
            for (const LMSModel &entry : m_lmStudioModels) {
                if (entry.key == m_selectedModel)
                    m_loadedModel = entry;
            }
            m_models = modelsFromLMStudio();
            emit modelLoaded();
        });
}

void ProviderConnection::unloadSelectedModel()
{
    if (!lmStudioConnected(QStringLiteral("Model unloading")))
        return;
    std::optional<LMSModel> entry;
    for (const LMSModel &model : m_lmStudioModels) {
        if (model.key == m_selectedModel)
            entry = model;
    }
    if (!entry || entry->loadedInstances.isEmpty()) {
        m_status.setText(QStringLiteral("'%1' has no loaded instances.").arg(entry ? entry->displayName : m_selectedModel));
        return;
    }
    const QString url = m_baseURL;
    const QString key = m_token;
    const QString instance = entry->loadedInstances.first().id;
    const QString model = m_selectedModel;
    guarded<QList<LMSModel>>(
        [url, key, instance]() -> Result<QList<LMSModel>> {
            LMStudioClient client(url, key);
            if (const Result<void> unloaded = client.unload(instance); !unloaded)
                return unloaded.error();
            return client.listModels();
        },
        [this, model](QList<LMSModel> list) {
            m_status.setText(QStringLiteral("Unloaded '%1'.").arg(model));
            m_lmStudioModels = list;
            m_models = modelsFromLMStudio();
        });
}

// ---- downloads ------------------------------------------------------------------------------

QString ProviderConnection::downloadStatusLine(const LMSDownloadStatus &status)
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

void ProviderConnection::takeDownloadStatus(const LMSDownloadStatus &status)
{
    m_downloadStatus = status;
    if (status.jobId)
        m_downloadJobID = *status.jobId;
    m_status.setText(downloadStatusLine(status));
}

void ProviderConnection::startDownload()
{
    if (!lmStudioConnected(QStringLiteral("Model download")))
        return;
    const QString url = m_baseURL;
    const QString key = m_token;
    const QString model = m_downloadModelName;
    guarded<LMSDownloadStatus>([url, key, model] { return LMStudioClient(url, key).download(model); },
                               [this](LMSDownloadStatus status) { takeDownloadStatus(status); });
}

void ProviderConnection::checkDownloadStatus()
{
    if (!lmStudioConnected(QStringLiteral("Download status")))
        return;
    if (m_downloadJobID.isEmpty()) {
        m_status.setText(QStringLiteral("Enter a job ID first."));
        return;
    }
    const QString url = m_baseURL;
    const QString key = m_token;
    const QString job = m_downloadJobID;
    guarded<LMSDownloadStatus>([url, key, job] { return LMStudioClient(url, key).downloadStatus(job); },
                               [this](LMSDownloadStatus status) { takeDownloadStatus(status); });
}
