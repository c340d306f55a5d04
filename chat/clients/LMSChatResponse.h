#pragma once

#include "chat/clients/LMSChatStats.h"
#include "chat/clients/LMSOutputItem.h"

#include <QList>
#include <QString>
#include <optional>

// A whole LM Studio chat reply: the model instance that answered, its output items and its
// figures, and the id to continue the conversation from.
struct LMSChatResponse {
    QString modelInstanceId;
    QList<LMSOutputItem> output;
    LMSChatStats stats;
    std::optional<QString> responseId;

    // model_instance_id, output and stats are required, each item as LMSOutputItem reads it.
    static std::optional<LMSChatResponse> fromJson(const QJsonObject &object);
    bool operator==(const LMSChatResponse &) const = default;
};
