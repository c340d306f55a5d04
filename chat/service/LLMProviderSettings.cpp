#include "chat/service/LLMProviderSettings.h"

namespace {
const QString selectedProviderKey = QStringLiteral("kelvara.selectedProvider");
}

QString LLMProviderSettings::key(AIProviderID provider, const QString &suffix)
{
    return QStringLiteral("kelvara.") + AIProvider::rawValue(provider) + QLatin1Char('.') + suffix;
}

LLMProviderSettings LLMProviderSettings::load(const QSettings &defaults, AIProviderID provider)
{
    LLMProviderSettings settings;
    settings.serverURL = defaults.value(key(provider, "serverURL")).toString();
    if (settings.serverURL.isEmpty())
        settings.serverURL = AIProvider::defaultBaseURL(provider);
    settings.token = defaults.value(key(provider, "token")).toString();
    settings.systemPrompt = defaults.value(key(provider, "systemPrompt")).toString();
    // A value that isn't a number reads like a missing one.
    bool ok = false;
    const double temperature = defaults.value(key(provider, "temperature")).toDouble(&ok);
    settings.temperature = ok ? temperature : 0.0;
    const qint64 maxTokens = defaults.value(key(provider, "maxTokensOutput")).toLongLong(&ok);
    settings.maxTokensOutput = ok ? maxTokens : 0;
    return settings;
}

void LLMProviderSettings::save(QSettings &defaults, AIProviderID provider) const
{
    defaults.setValue(key(provider, "serverURL"), serverURL);
    defaults.setValue(key(provider, "token"), token);
    defaults.setValue(key(provider, "systemPrompt"), systemPrompt);
    defaults.setValue(key(provider, "temperature"), temperature);
    defaults.setValue(key(provider, "maxTokensOutput"), maxTokensOutput);
}

AIProviderID LLMProviderSettings::loadSelectedProvider(const QSettings &defaults)
{
    return AIProvider::fromRawValue(defaults.value(selectedProviderKey).toString()).value_or(AIProviderID::lmStudio);
}

void LLMProviderSettings::saveSelectedProvider(QSettings &defaults, AIProviderID provider)
{
    defaults.setValue(selectedProviderKey, AIProvider::rawValue(provider));
}
