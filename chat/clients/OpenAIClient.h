#pragma once

#include "chat/clients/CloudClient.h"

// The OpenAI flavour of the hosted providers' client. Blocking; throws ChatClientError.
class OpenAIClient : public CloudClient {
public:
    OpenAIClient(QString baseURL, QString apiKey);
};
