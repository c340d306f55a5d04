#include "chat/clients/LMSDownloadStatus.h"

#include <QJsonValue>

std::optional<LMSDownloadStatus::State> LMSDownloadStatus::stateFromRaw(const QString &raw)
{
    if (raw == QLatin1String("downloading")) return State::downloading;
    if (raw == QLatin1String("paused")) return State::paused;
    if (raw == QLatin1String("completed")) return State::completed;
    if (raw == QLatin1String("failed")) return State::failed;
    if (raw == QLatin1String("already_downloaded")) return State::alreadyDownloaded;
    return std::nullopt;
}

std::optional<LMSDownloadStatus> LMSDownloadStatus::fromJson(const QJsonObject &object)
{
    const auto state = stateFromRaw(object.value("status").toString());
    if (!object.value("status").isString() || !state)
        return std::nullopt;
    LMSDownloadStatus status;
    status.status = *state;
    bool ok = true;
    auto text = [&](const char *key) -> std::optional<QString> {
        const QJsonValue value = object.value(QLatin1String(key));
        if (value.isString())
            return value.toString();
        if (!value.isUndefined() && !value.isNull())
            ok = false;
        return std::nullopt;
    };
    auto number = [&](const char *key) -> std::optional<double> {
        const QJsonValue value = object.value(QLatin1String(key));
        if (value.isDouble())
            return value.toDouble();
        if (!value.isUndefined() && !value.isNull())
            ok = false;
        return std::nullopt;
    };
    status.jobId = text("job_id");
    if (const auto total = number("total_size_bytes"))
        status.totalSizeBytes = qint64(*total);
    if (const auto done = number("downloaded_bytes"))
        status.downloadedBytes = qint64(*done);
    status.bytesPerSecond = number("bytes_per_second");
    status.startedAt = text("started_at");
    status.completedAt = text("completed_at");
    status.estimatedCompletion = text("estimated_completion");
    if (!ok)
        return std::nullopt;
    return status;
}
