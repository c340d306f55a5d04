#pragma once

#include "chat/clients/LMSDownloadStatus.h"
#include "chat/clients/LMSInstanceConfig.h"
#include "chat/clients/LMSLoadResponse.h"
#include "chat/clients/LMSModel.h"

#include <QByteArray>
#include <QJsonObject>
#include <QList>
#include <QString>
#include <optional>

// LM Studio's native REST routes besides the chat stream (LMSChatStream): the model list,
// load, unload, download and its status. Each call blocks until the reply is read, so callers
// run it on a worker thread; any thread. A failure fills error with "HTTP <status>: Request
// failed." and the body, the transfer's reason, or the decoder's complaint.
class LMStudioClient {
public:
    LMStudioClient(QString baseURL, QString token);

    std::optional<QList<LMSModel>> listModels(QString *error = nullptr) const;
    // echoLoadConfig asks the server to say how it loaded the model.
    std::optional<LMSLoadResponse> load(const QString &model, const std::optional<LMSInstanceConfig> &config = std::nullopt,
                                        bool echoLoadConfig = false, QString *error = nullptr) const;
    // The reply is not read.
    bool unload(const QString &instanceId, QString *error = nullptr) const;
    std::optional<LMSDownloadStatus> download(const QString &model, const std::optional<QString> &quantization = std::nullopt,
                                              QString *error = nullptr) const;
    std::optional<LMSDownloadStatus> downloadStatus(const QString &jobId, QString *error = nullptr) const;

private:
    // The reply's JSON object, or nothing with error filled in.
    std::optional<QJsonObject> call(const QString &method, const QString &path, const QJsonObject *body, QString *error) const;

    QString m_baseURL;
    QString m_token;
};
