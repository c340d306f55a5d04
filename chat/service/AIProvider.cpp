#include "chat/service/AIProvider.h"

QList<AIProvider::ID> AIProvider::all()
{
    return {ID::lmStudio, ID::openAI, ID::anthropic, ID::gemini, ID::huggingFace};
}

QString AIProvider::rawValue(ID id)
{
    switch (id) {
    case ID::lmStudio: return QStringLiteral("lmStudio");
    case ID::openAI: return QStringLiteral("openAI");
    case ID::anthropic: return QStringLiteral("anthropic");
    case ID::gemini: return QStringLiteral("gemini");
    case ID::huggingFace: return QStringLiteral("huggingFace");
    }
    return QStringLiteral("lmStudio");
}

std::optional<AIProvider::ID> AIProvider::fromRawValue(const QString &raw)
{
    for (ID id : all())
        if (rawValue(id) == raw)
            return id;
    return std::nullopt;
}

QString AIProvider::displayName(ID id)
{
    switch (id) {
    case ID::lmStudio: return QStringLiteral("LM Studio");
    case ID::openAI: return QStringLiteral("ChatGPT (OpenAI)");
    case ID::anthropic: return QStringLiteral("Claude (Anthropic)");
    case ID::gemini: return QStringLiteral("Gemini (Google)");
    case ID::huggingFace: return QStringLiteral("Hugging Face");
    }
    return QString();
}

QString AIProvider::defaultBaseURL(ID id)
{
    // The public hosts of each service; a local OpenAI-compatible server (llama.cpp's server,
    // Ollama) is reached through the OpenAI provider with its own base URL.
    switch (id) {
    case ID::lmStudio: return QStringLiteral("http://localhost:1234");
    case ID::openAI: return QStringLiteral("https://api.openai.com");
    case ID::anthropic: return QStringLiteral("https://api.anthropic.com");
    case ID::gemini: return QStringLiteral("https://generativelanguage.googleapis.com/v1beta");
    case ID::huggingFace: return QStringLiteral("https://router.huggingface.co");
    }
    return QString();
}

AIProvider::ClientFamily AIProvider::clientFamily(ID id)
{
    switch (id) {
    case ID::lmStudio: return ClientFamily::lmStudio;
    case ID::openAI:
    case ID::huggingFace: return ClientFamily::openAI;
    case ID::anthropic: return ClientFamily::anthropic;
    case ID::gemini: return ClientFamily::gemini;
    }
    return ClientFamily::lmStudio;
}

QString AIProvider::unsupportedText(ID id, const QString &feature)
{
    return displayName(id) + QStringLiteral(" does not support ") + feature + QLatin1Char('.');
}
