#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QString>
#include <optional>

// The body of a chat with LM Studio: the keys as the server names them, the optional ones
// only when present, the integrations only when there are some.
struct LMSChatRequest {
    QString model;
    QString input;
    bool stream = true;
    bool store = false;
    std::optional<QString> systemPrompt;
    std::optional<double> temperature;
    std::optional<qint64> maxOutputTokens;
    std::optional<QString> previousResponseId;
    QJsonArray integrations;

    QJsonObject toJson() const;
};
