#pragma once

#include "chat/service/AIProvider.h"

#include <QSettings>
#include <QString>

// The settings kept for one provider in the user defaults, under "kelvara.<raw value>.<suffix>".
// Tokens are stored in plain text, as the connection sheet tells the user. Main thread.
struct LLMProviderSettings {
    QString serverURL;
    QString token;
    QString systemPrompt;
    double temperature = 0;
    qint64 maxTokensOutput = 0;

    static QString key(AIProviderID provider, const QString &suffix);
    // An empty or missing stored URL reads as the provider's default; other missing values as
    // empty, 0.0 and 0.
    static LLMProviderSettings load(const QSettings &defaults, AIProviderID provider);
    void save(QSettings &defaults, AIProviderID provider) const;

    // "kelvara.selectedProvider"; missing or unknown reads as LM Studio.
    static AIProviderID loadSelectedProvider(const QSettings &defaults);
    static void saveSelectedProvider(QSettings &defaults, AIProviderID provider);

    bool operator==(const LLMProviderSettings &) const = default;
};
