#pragma once

#include "chat/clients/CloudClient.h"

// The Anthropic flavour of the hosted providers' client. Blocking; fails with ChatClientError values.
class AnthropicClient : public CloudClient {
public:
    AnthropicClient(QString baseURL, QString apiKey, QString apiVersion = QStringLiteral("2023-06-01"));
};
