#include "chat/clients/GeminiClient.h"

GeminiClient::GeminiClient(QString baseURL, QString apiKey)
    : CloudClient(Flavor::gemini, std::move(baseURL), std::move(apiKey))
{
}
