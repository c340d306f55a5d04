#pragma once

#include "chat/clients/CloudClient.h"

// The Gemini flavour of the hosted providers' client. Blocking; fails with ChatClientError values.
class GeminiClient : public CloudClient {
public:
    GeminiClient(QString baseURL, QString apiKey);
};
