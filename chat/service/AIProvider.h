#pragma once

#include <QList>
#include <QString>
#include <optional>

// The five language-model providers. The order of the cases is the order of the provider picker.
enum class AIProviderID { lmStudio, openAI, anthropic, gemini, huggingFace };

// The fixed properties of each provider. Pure functions; any thread.
class AIProvider {
public:
    static QList<AIProviderID> allCases();
    static QString rawValue(AIProviderID id);
    // Nothing for a raw value no provider has.
    static std::optional<AIProviderID> fromRawValue(const QString &raw);
    static QString displayName(AIProviderID id);
    // Where the provider answers when the user stored no base URL of their own.
    static QString defaultBaseURL(AIProviderID id);
    // Whether connecting needs an API key (every provider but the local LM Studio).
    static bool needsAPIKey(AIProviderID id);
};
