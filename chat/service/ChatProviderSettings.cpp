#include "chat/service/ChatProviderSettings.h"

#include "base/UserDefaults.h"

QString ChatProviderSettings::key(AIProvider::ID provider, const QString &suffix)
{
    return QStringLiteral("kelvara.") + AIProvider::rawValue(provider) + QLatin1Char('.') + suffix;
}

AIProvider::ID ChatProviderSettings::selectedProvider()
{
    return AIProvider::fromRawValue(UserDefaults::standard()->value(selectedProviderKey).toString())
        .value_or(AIProvider::ID::lmStudio);
}

void ChatProviderSettings::setSelectedProvider(AIProvider::ID provider)
{
    UserDefaults::standard()->setValue(selectedProviderKey, AIProvider::rawValue(provider));
}

QString ChatProviderSettings::serverURL(AIProvider::ID provider)
{
    const QString stored = UserDefaults::standard()->value(key(provider, QStringLiteral("serverURL"))).toString();
    return stored.isEmpty() ? AIProvider::defaultBaseURL(provider) : stored;
}

QString ChatProviderSettings::token(AIProvider::ID provider)
{
    return UserDefaults::standard()->value(key(provider, QStringLiteral("token"))).toString();
}

QString ChatProviderSettings::systemPrompt(AIProvider::ID provider)
{
    return UserDefaults::standard()->value(key(provider, QStringLiteral("systemPrompt"))).toString();
}

double ChatProviderSettings::temperature(AIProvider::ID provider)
{
    return UserDefaults::standard()->value(key(provider, QStringLiteral("temperature")), 0.0).toDouble();
}

qint64 ChatProviderSettings::maxTokensOutput(AIProvider::ID provider)
{
    return UserDefaults::standard()->value(key(provider, QStringLiteral("maxTokensOutput")), 0).toLongLong();
}

void ChatProviderSettings::setServerURL(AIProvider::ID provider, const QString &url)
{
    UserDefaults::standard()->setValue(key(provider, QStringLiteral("serverURL")), url);
}

void ChatProviderSettings::setToken(AIProvider::ID provider, const QString &token)
{
    UserDefaults::standard()->setValue(key(provider, QStringLiteral("token")), token);
}

void ChatProviderSettings::setSystemPrompt(AIProvider::ID provider, const QString &prompt)
{
    UserDefaults::standard()->setValue(key(provider, QStringLiteral("systemPrompt")), prompt);
}

void ChatProviderSettings::setTemperature(AIProvider::ID provider, double temperature)
{
    UserDefaults::standard()->setValue(key(provider, QStringLiteral("temperature")), temperature);
}

void ChatProviderSettings::setMaxTokensOutput(AIProvider::ID provider, qint64 tokens)
{
    UserDefaults::standard()->setValue(key(provider, QStringLiteral("maxTokensOutput")), tokens);
}
