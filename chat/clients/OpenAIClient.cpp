#include "chat/clients/OpenAIClient.h"

OpenAIClient::OpenAIClient(QString baseURL, QString apiKey)
    : CloudClient(Flavor::openAI, std::move(baseURL), std::move(apiKey))
{
}
