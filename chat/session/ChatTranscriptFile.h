#pragma once

#include "chat/session/TranscriptMessage.h"

#include <QByteArray>
#include <QString>
#include <optional>

// The file form of a saved chat: the connection context (provider, URL, model, system prompt,
// the thread id) and the whole transcript, pretty-printed with sorted keys and ISO 8601
// dates. The token is never part of it. Reading restores tool calls only in outline.
class ChatTranscriptFile {
public:
    struct Contents {
        std::optional<QString> selectedProviderRaw;
        QString baseURL;
        QString selectedModel;
        QString systemPrompt;
        std::optional<QString> lastResponseID;
        QList<TranscriptMessage> transcript;
    };

    static QByteArray encode(const Contents &contents, const QDateTime &createdAt = QDateTime::currentDateTimeUtc());
    // Nothing, with *error said, when the bytes are not a chat of this form; then nothing of
    // them is taken. Ids that are no UUID get new ones, unknown roles read as user.
    static std::optional<Contents> decode(const QByteArray &bytes, QString *error = nullptr);
    // "chat-2026-11-25T09-30-00.000Z.json": the name the save panel proposes.
    static QString suggestedFileName(const QDateTime &now = QDateTime::currentDateTimeUtc());
};
