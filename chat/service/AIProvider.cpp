#include "chat/service/AIProvider.h"

QList<AIProviderID> AIProvider::allCases()
{
    return {AIProviderID::lmStudio, AIProviderID::openAI, AIProviderID::anthropic, AIProviderID::gemini,
            AIProviderID::huggingFace};
}

QString AIProvider::rawValue(AIProviderID id)
{
    switch (id) {
    case AIProviderID::lmStudio: return QStringLiteral("lmStudio");
    case AIProviderID::openAI: return QStringLiteral("openAI");
    case AIProviderID::anthropic: return QStringLiteral("anthropic");
    case AIProviderID::gemini: return QStringLiteral("gemini");
    case AIProviderID::huggingFace: return QStringLiteral("huggingFace");
    }
    return {};
}

std::optional<AIProviderID> AIProvider::fromRawValue(const QString &raw)
{
    for (AIProviderID id : allCases())
        if (rawValue(id) == raw)
            return id;
    return std::nullopt;
}

QString AIProvider::displayName(AIProviderID id)
{
    switch (id) {
    case AIProviderID::lmStudio: return QStringLiteral("LM Studio");
    case AIProviderID::openAI: return QStringLiteral("ChatGPT (OpenAI)");
    case AIProviderID::anthropic: return QStringLiteral("Claude (Anthropic)");
    case AIProviderID::gemini: return QStringLiteral("Gemini (Google)");
    case AIProviderID::huggingFace: return QStringLiteral("Hugging Face");
    }
    return {};
}

QString AIProvider::defaultBaseURL(AIProviderID id)
{
    switch (id) {
    case AIProviderID::lmStudio: return QStringLiteral("http://localhost:1234");
    case AIProviderID::openAI: return QStringLiteral("https://api.openai.com");
    case AIProviderID::anthropic: return QStringLiteral("https://api.anthropic.com");
    case AIProviderID::gemini: return QStringLiteral("https://generativelanguage.googleapis.com/v1beta");
    case AIProviderID::huggingFace: return QStringLiteral("https://router.huggingface.co");
    }
    return {};
}

bool AIProvider::needsAPIKey(AIProviderID id)
{
    return id != AIProviderID::lmStudio;
}
