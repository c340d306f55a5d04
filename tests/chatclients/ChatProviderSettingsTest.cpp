#include "base/UserDefaults.h"
#include "chat/service/ChatProviderSettings.h"

#include <gtest/gtest.h>

TEST(ChatProviderSettingsTest, ProvidersInPickerOrderWithTheirFixedProperties)
{
    const QList<AIProvider::ID> all = AIProvider::all();
    ASSERT_EQ(all.size(), 5);
    QStringList raw;
    for (AIProvider::ID id : all) {
        raw << AIProvider::rawValue(id);
        EXPECT_EQ(AIProvider::fromRawValue(AIProvider::rawValue(id)), std::optional<AIProvider::ID>(id));
    }
    EXPECT_EQ(raw, (QStringList{"lmStudio", "openAI", "anthropic", "gemini", "huggingFace"}));
    EXPECT_EQ(AIProvider::clientFamily(AIProvider::ID::huggingFace), AIProvider::ClientFamily::openAI);
    EXPECT_TRUE(AIProvider::defaultBaseURL(AIProvider::ID::gemini).endsWith("/v1beta"));
    EXPECT_EQ(AIProvider::unsupportedText(AIProvider::ID::openAI, QStringLiteral("model loading")),
              "ChatGPT (OpenAI) does not support model loading.");
}

TEST(ChatProviderSettingsTest, KeysAndTheAnswersForWhatIsNotStored)
{
    auto defaults = UserDefaults::standard();
    defaults->remove(ChatProviderSettings::selectedProviderKey);
    EXPECT_EQ(ChatProviderSettings::selectedProvider(), AIProvider::ID::lmStudio);
    defaults->setValue(ChatProviderSettings::selectedProviderKey, QStringLiteral("someoneElse"));
    EXPECT_EQ(ChatProviderSettings::selectedProvider(), AIProvider::ID::lmStudio);  // unknown: LM Studio
    ChatProviderSettings::setSelectedProvider(AIProvider::ID::anthropic);
    EXPECT_EQ(defaults->value("kelvara.selectedProvider").toString(), "anthropic");

    const auto claude = AIProvider::ID::anthropic;
    EXPECT_EQ(ChatProviderSettings::key(claude, QStringLiteral("token")), "kelvara.anthropic.token");
    EXPECT_EQ(ChatProviderSettings::serverURL(claude), AIProvider::defaultBaseURL(claude));
    ChatProviderSettings::setServerURL(claude, QString());  // stored empty counts as absent
    EXPECT_EQ(ChatProviderSettings::serverURL(claude), AIProvider::defaultBaseURL(claude));
    ChatProviderSettings::setServerURL(claude, QStringLiteral("http://127.0.0.1:9999"));
    EXPECT_EQ(ChatProviderSettings::serverURL(claude), "http://127.0.0.1:9999");
    EXPECT_EQ(ChatProviderSettings::temperature(claude), 0.0);
    EXPECT_EQ(ChatProviderSettings::maxTokensOutput(claude), 0);
    ChatProviderSettings::setTemperature(claude, 0.7);
    ChatProviderSettings::setMaxTokensOutput(claude, 2048);
    ChatProviderSettings::setToken(claude, QStringLiteral("sk-ant"));
    EXPECT_EQ(defaults->value("kelvara.anthropic.temperature").toDouble(), 0.7);
    EXPECT_EQ(ChatProviderSettings::maxTokensOutput(claude), 2048);
    EXPECT_EQ(ChatProviderSettings::token(claude), "sk-ant");
    EXPECT_EQ(ChatProviderSettings::token(AIProvider::ID::openAI), "");  // each provider its own
}
