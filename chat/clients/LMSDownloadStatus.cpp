#include "chat/clients/LMSDownloadStatus.h"

std::optional<LMSDownloadStatus::State> LMSDownloadStatus::stateFromText(const QString &text)
{
    if (text == QLatin1String("downloading")) return State::downloading;
    if (text == QLatin1String("paused")) return State::paused;
    if (text == QLatin1String("completed")) return State::completed;
    if (text == QLatin1String("failed")) return State::failed;
    if (text == QLatin1String("already_downloaded")) return State::alreadyDownloaded;
    return std::nullopt;
}

std::optional<LMSDownloadStatus> LMSDownloadStatus::fromJson(const QJsonObject &object)
{
    const std::optional<State> state = stateFromText(object.value(QStringLiteral("status")).toString());
    if (!object.value(QStringLiteral("status")).isString() || !state)
        return std::nullopt;
    LMSDownloadStatus status;
    status.status = *state;
    auto text = [&](const char *key, std::optional<QString> &into) {
        if (object.value(QLatin1String(key)).isString())
            into = object.value(QLatin1String(key)).toString();
    };
    auto integer = [&](const char *key, std::optional<qint64> &into) {
        if (object.value(QLatin1String(key)).isDouble())
            into = object.value(QLatin1String(key)).toInteger();
    };
    text("job_id", status.jobId);
    integer("total_size_bytes", status.totalSizeBytes);
    integer("downloaded_bytes", status.downloadedBytes);
    if (object.value(QStringLiteral("bytes_per_second")).isDouble())
        status.bytesPerSecond = object.value(QStringLiteral("bytes_per_second")).toDouble();
    text("started_at", status.startedAt);
    text("completed_at", status.completedAt);
    text("estimated_completion", status.estimatedCompletion);
    return status;
}
