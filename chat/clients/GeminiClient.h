#pragma once

#include "chat/clients/CloudClient.h"

// The Gemini flavour of the hosted providers' client. Blocking; throws ChatClientError.
class GeminiClient : public CloudClient {
public:
    GeminiClient(QString baseURL, QString apiKey);
};
