#pragma once

#include "chat/clients/CloudClient.h"

// The OpenAI flavour of the hosted providers' client. Blocking; fails with ChatClientError values.
class OpenAIClient : public CloudClient {
public:
    OpenAIClient(QString baseURL, QString apiKey);
};
