#include "chat/clients/AnthropicClient.h"

AnthropicClient::AnthropicClient(QString baseURL, QString apiKey, QString apiVersion)
    : CloudClient(Flavor::anthropic, std::move(baseURL), std::move(apiKey), std::move(apiVersion))
{
}
