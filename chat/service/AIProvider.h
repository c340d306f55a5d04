#pragma once

#include <QList>
#include <QString>
#include <optional>

// The five language-model providers the chat talks to, in the order of the provider picker,
// with what is fixed about each: the raw value stored in the settings, the name shown, the
// default base URL and the family of client that speaks to it.
class AIProvider {
public:
    enum class ID { lmStudio, openAI, anthropic, gemini, huggingFace };
    enum class ClientFamily { lmStudio, openAI, anthropic, gemini };

    static QList<ID> all();
    // "lmStudio", "openAI", ...
    static QString rawValue(ID id);
    static std::optional<ID> fromRawValue(const QString &raw);
    // "LM Studio", "ChatGPT (OpenAI)", "Claude (Anthropic)", "Gemini (Google)", "Hugging Face"
    static QString displayName(ID id);
    static QString defaultBaseURL(ID id);
    // Hugging Face is an OpenAI connection to another base URL.
    static ClientFamily clientFamily(ID id);
    // Only LM Studio streams, reasons, calls MCP tools, keeps threads and loads models.
    static bool isLocal(ID id) { return id == ID::lmStudio; }
    // "ChatGPT (OpenAI) does not support model loading."
    static QString unsupportedText(ID id, const QString &feature);
};
