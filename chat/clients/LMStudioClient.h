#pragma once

#include "base/Result.h"
#include "chat/clients/ChatHttpSession.h"
#include "chat/clients/LMSChatRequest.h"
#include "chat/clients/LMSChatResponse.h"
#include "chat/clients/LMSDownloadStatus.h"
#include "chat/clients/LMSLoadResponse.h"
#include "chat/clients/LMSModel.h"

#include <QList>
#include <QString>

// The blocking routes of LM Studio's native REST API: models, load, unload, download and its
// status, and a chat without streaming (LMSChatStream streams). A value; every call blocks, so
// callers run it off the main thread. Failures come back as ChatClientError values: an HTTP
// error reads "HTTP 500: Request failed." and, on the next line, the body.
class LMStudioClient {
public:
    LMStudioClient(QString baseURL, QString token);

    // Load options; only what is set goes out.
    struct LoadConfig {
        std::optional<qint64> contextLength;
        std::optional<qint64> evalBatchSize;
        std::optional<bool> flashAttention;
        std::optional<qint64> numExperts;
        std::optional<bool> offloadKvCacheToGpu;
        std::optional<bool> echoLoadConfig;
    };

    Result<QList<LMSModel>> listModels() const;
    Result<LMSLoadResponse> load(const QString &model, const std::optional<LoadConfig> &config = std::nullopt) const;
    Result<void> unload(const QString &instanceId) const;
    Result<LMSDownloadStatus> download(const QString &model,
                                       const std::optional<QString> &quantization = std::nullopt) const;
    Result<LMSDownloadStatus> downloadStatus(const QString &jobId) const;
    Result<LMSChatResponse> chat(const LMSChatRequest &request) const;

    ChatHttpSession::Request makeRequest(const QString &path, const QByteArray &method) const;
    Result<QByteArray> perform(const ChatHttpSession::Request &request) const;
    Result<QByteArray> post(const QString &path, const QJsonObject &body) const;

private:
    QString m_baseURL;
    QString m_token;
};
