#pragma once

#include <QJsonObject>
#include <QString>
#include <optional>

// Where a model download stands. An unknown state fails the decoding.
struct LMSDownloadStatus {
    enum class State { downloading, paused, completed, failed, alreadyDownloaded };

    std::optional<QString> jobId;
    State status = State::downloading;
    std::optional<qint64> totalSizeBytes;
    std::optional<qint64> downloadedBytes;
    std::optional<double> bytesPerSecond;
    std::optional<QString> startedAt;
    std::optional<QString> completedAt;
    std::optional<QString> estimatedCompletion;

    static std::optional<State> stateFromRaw(const QString &raw);
    static std::optional<LMSDownloadStatus> fromJson(const QJsonObject &object);
    bool operator==(const LMSDownloadStatus &) const = default;
};
