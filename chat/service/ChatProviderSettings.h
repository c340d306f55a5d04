#pragma once

#include "chat/service/AIProvider.h"

#include <QString>

// The chat's per-provider settings in the user defaults: "kelvara.selectedProvider" for all,
// and "kelvara.<raw value>.serverURL", ".token", ".systemPrompt", ".temperature" and
// ".maxTokensOutput" for each. Tokens are kept in plain text there (the connection sheet says
// so). Any thread.
class ChatProviderSettings {
public:
    static inline const QString selectedProviderKey = QStringLiteral("kelvara.selectedProvider");
    // "kelvara.anthropic.token"
    static QString key(AIProvider::ID provider, const QString &suffix);

    // LM Studio when unset or unknown.
    static AIProvider::ID selectedProvider();
    static void setSelectedProvider(AIProvider::ID provider);

    // The provider's default when unset or stored empty.
    static QString serverURL(AIProvider::ID provider);
    static QString token(AIProvider::ID provider);
    static QString systemPrompt(AIProvider::ID provider);
    // 0.0 and 0 when unset, as the store answers for a missing number.
    static double temperature(AIProvider::ID provider);
    static qint64 maxTokensOutput(AIProvider::ID provider);

    static void setServerURL(AIProvider::ID provider, const QString &url);
    static void setToken(AIProvider::ID provider, const QString &token);
    static void setSystemPrompt(AIProvider::ID provider, const QString &prompt);
    static void setTemperature(AIProvider::ID provider, double temperature);
    static void setMaxTokensOutput(AIProvider::ID provider, qint64 tokens);
};
