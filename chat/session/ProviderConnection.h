#pragma once

#include "base/Result.h"
#include "chat/clients/LMSDownloadStatus.h"
#include "chat/clients/LMSModel.h"
#include "chat/service/AIModel.h"
#include "chat/service/AIProvider.h"

#include <QList>
#include <QObject>
#include <QString>
#include <functional>
#include <optional>

class ChatStatus;

// The chat's link to a model provider: which provider, its address, key and system prompt,
// the inference settings, the model list and the chosen model, and LM Studio's model
// operations (load, unload, download). Settings are per provider in the user defaults.
// Network calls run off the main thread and come back to it; while one runs the shared status
// is busy, and every outcome is told in its text. Main thread.
class ProviderConnection : public QObject {
    Q_OBJECT

public:
    enum class State { unknown, connected, disconnected };

    // Reads the stored provider and its settings.
    explicit ProviderConnection(ChatStatus &status, QObject *parent = nullptr);

    AIProviderID selectedProvider() const { return m_provider; }
    const QString &baseURL() const { return m_baseURL; }
    const QString &token() const { return m_token; }
    const QString &systemPrompt() const { return m_systemPrompt; }
    double temperature() const { return m_temperature; }
    qint64 maxOutputTokens() const { return m_maxOutputTokens; }
    const QList<AIModel> &models() const { return m_models; }
    const QString &selectedModel() const { return m_selectedModel; }
    State state() const { return m_state; }
    // LM Studio's own list as last fetched; empty for the other providers.
    const QList<LMSModel> &lmStudioModels() const { return m_lmStudioModels; }
    // The selected model's entry after a load.
    const std::optional<LMSModel> &loadedModel() const { return m_loadedModel; }
    const QString &downloadModelName() const { return m_downloadModelName; }
    const QString &downloadJobID() const { return m_downloadJobID; }
    const std::optional<LMSDownloadStatus> &downloadStatus() const { return m_downloadStatus; }

    // The live fields; none is stored until saveSettings. Each emits `changed`.
    void setBaseURL(const QString &url);
    void setToken(const QString &token);
    void setSystemPrompt(const QString &prompt);
    void setTemperature(double temperature);
    void setMaxOutputTokens(qint64 limit);
    void setSelectedModel(const QString &id);
    void setLMStudioModels(const QList<LMSModel> &models);
    void setDownloadModelName(const QString &name);
    void setDownloadJobID(const QString &job);

    // The entry of models whose id is the selected model.
    std::optional<AIModel> currentModel() const;
    // Connected, with a model chosen from a list that is not empty.
    bool canAsk() const;
    bool hasLoadedLMStudioModel() const;
    // The base URL parses with a scheme and a host.
    bool hasValidBaseURL() const;

    void connect();
    void disconnect();
    void selectProvider(AIProviderID provider);
    void refreshModels();
    void loadSelectedModel();
    void unloadSelectedModel();
    void startDownload();
    void checkDownloadStatus();

    void loadSettings();
    void saveSettings();
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
    // What a saved chat brings back: its provider (unless unknown), URL, model and system
    // prompt, taken as they are, without the stored settings of that provider.
    void restore(std::optional<AIProviderID> provider, const QString &baseURL, const QString &model,
                 const QString &systemPrompt);

    // The status line of a download ("Downloading 42% 1.5 MB/s", "Download completed.").
    static QString downloadStatusLine(const LMSDownloadStatus &status);
    // "Provider default" for -1, else "N tokens".
    static QString outputLimitText(qint64 limit);

signals:
    void changed();
    // A connect found its models, or a load has finished: a new thread may start.
    void connected();
    void modelLoaded();
    // The link is dropped; the provider's thread is left behind.
    void disconnected();

private:
    // Runs work off the main thread while the status is busy; then `then` with its value, or
    // the error in the status line.
    template<typename T>
    void guarded(std::function<Result<T>()> work, std::function<void(T)> then);
    // Both model lists into models and lmStudioModels, then `then`; in the guarded run.
    void fetchModels(std::function<void()> then);
    // LM Studio and connected; else the status says which is missing.
    bool lmStudioConnected(const QString &operation);
    void takeDownloadStatus(const LMSDownloadStatus &status);
    QList<AIModel> modelsFromLMStudio() const;

    ChatStatus &m_status;
    AIProviderID m_provider = AIProviderID::lmStudio;
    QString m_baseURL;
    QString m_token;
    QString m_systemPrompt;
    double m_temperature = 0.5;
    qint64 m_maxOutputTokens = -1;
    QList<AIModel> m_models;
    QString m_selectedModel;
    State m_state = State::unknown;
    QList<LMSModel> m_lmStudioModels;
    std::optional<LMSModel> m_loadedModel;
    QString m_downloadModelName;
    QString m_downloadJobID;
    std::optional<LMSDownloadStatus> m_downloadStatus;
};
