#pragma once

#include <QJsonArray>
#include <QString>
#include <optional>

// The messages of a prompt as a bundle holds them: the protocol's own shape, so that a
// prompt file reads like the prompts/get answer it gives.
//
//   {"role": "user" | "assistant", "content": CONTENT}
//   CONTENT: {"type": "text", "text": T}
//          | {"type": "image" | "audio", "data": BASE64, "mimeType": M}
//          | {"type": "resource", "resource": {"uri": U, "text": T | "blob": BASE64, "mimeType": M?}}
//
// T and U may hold {{argument}} placeholders; other keys (annotations) pass through.
class PromptMessages {
public:
    // Why the list is not a valid message list, naming the first failing member under
    // `path` (the key it is read from); nothing when it is valid.
    static std::optional<QString> problem(const QJsonArray &messages, const QString &path = QStringLiteral("messages"));
    // The same for the list as JSON text, as the store and the Prompts screen keep it; a
    // blank text means no messages and is valid.
    static std::optional<QString> textProblem(const QString &text);
    // The list the text holds; nothing for a blank text or one with a problem.
    static std::optional<QJsonArray> fromText(const QString &text);
};
