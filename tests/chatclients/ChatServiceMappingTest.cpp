#include "chat/service/AIModel.h"
#include "chat/service/LLMChatMapping.h"
#include "chat/service/LLMProviderSettings.h"
#include "chat/service/LLMServiceError.h"

#include <gtest/gtest.h>

#include <QJsonArray>
#include <QSet>
#include <QTemporaryDir>

namespace {

QList<AIModel> models(AIProviderID provider, const QByteArray &body)
{
    const auto decoded = LLMChatMapping::decodeModels(provider, body);
    EXPECT_TRUE(decoded.ok()) << decoded.error().description.toStdString();
    return decoded.valueOr(QList<AIModel>{});
}

} // namespace

TEST(AIProviderTest, TableOrderRawValuesAndUnsupportedFeatureText)
{
    QStringList raw, names;
    for (AIProviderID id : AIProvider::allCases()) {
        raw << AIProvider::rawValue(id);
        names << AIProvider::displayName(id);
        EXPECT_EQ(AIProvider::fromRawValue(AIProvider::rawValue(id)), id);
    }
    EXPECT_EQ(raw, QStringList({"lmStudio", "openAI", "anthropic", "gemini", "huggingFace"}));
    EXPECT_EQ(names, QStringList({"LM Studio", "ChatGPT (OpenAI)", "Claude (Anthropic)", "Gemini (Google)",
                                  "Hugging Face"}));
    EXPECT_FALSE(AIProvider::fromRawValue("LMStudio").has_value());
    EXPECT_TRUE(AIProvider::defaultBaseURL(AIProviderID::gemini).endsWith("/v1beta"));
    EXPECT_EQ(LLMServiceError({AIProviderID::openAI, "model loading"}).description(),
              "ChatGPT (OpenAI) does not support model loading.");
}

TEST(AIProviderTest, ModelEqualityAndHashTakeEveryField)
{
    const AIModel a{"m", "M", AIProviderID::openAI, false, {}, {}};
    AIModel b = a;
    EXPECT_EQ(a, b);
    EXPECT_EQ(qHash(a), qHash(b));
    b.temperature = 0.0;
    EXPECT_NE(a, b);
    AIModel c = a;
    c.provider = AIProviderID::huggingFace;
    EXPECT_NE(a, c);
    EXPECT_EQ(QSet<AIModel>({a, b, c, a}).size(), 3);
}

TEST(AIChatStatsTest, CodingUsesFieldNamesAndRoundTrips)
{
    AIChatStats stats{12, 34, 5, 40.5, 0.25, 1.5};
    const QJsonObject json = stats.toJson();
    EXPECT_EQ(json.value("totalOutputTokens").toInteger(), 34);
    EXPECT_EQ(json.value("modelLoadTimeSeconds").toDouble(), 1.5);
    EXPECT_EQ(AIChatStats::fromJson(json), stats);
    stats.modelLoadTimeSeconds.reset();
    EXPECT_FALSE(stats.toJson().contains("modelLoadTimeSeconds"));
    EXPECT_EQ(AIChatStats::fromJson(stats.toJson()), stats);
    QJsonObject broken = json;
    broken.insert("inputTokens", "12");
    EXPECT_FALSE(AIChatStats::fromJson(broken).has_value());
}

TEST(LLMProviderSettingsTest, MissingValuesReadAsDefaultsAndSavedOnesComeBack)
{
    QTemporaryDir dir;
    QSettings defaults(dir.filePath("Kelvara.conf"), QSettings::IniFormat);

    EXPECT_EQ(LLMProviderSettings::loadSelectedProvider(defaults), AIProviderID::lmStudio);
    defaults.setValue("kelvara.selectedProvider", "nonsense");
    EXPECT_EQ(LLMProviderSettings::loadSelectedProvider(defaults), AIProviderID::lmStudio);
    LLMProviderSettings::saveSelectedProvider(defaults, AIProviderID::gemini);
    EXPECT_EQ(defaults.value("kelvara.selectedProvider").toString(), "gemini");
    EXPECT_EQ(LLMProviderSettings::loadSelectedProvider(defaults), AIProviderID::gemini);

    // An empty stored URL is the default; an empty token stays empty.
    defaults.setValue("kelvara.anthropic.serverURL", "");
    defaults.setValue("kelvara.anthropic.token", "");
    const LLMProviderSettings fresh = LLMProviderSettings::load(defaults, AIProviderID::anthropic);
    EXPECT_EQ(fresh.serverURL, AIProvider::defaultBaseURL(AIProviderID::anthropic));
    EXPECT_EQ(fresh.token, "");
    EXPECT_EQ(fresh.temperature, 0.0);
    EXPECT_EQ(fresh.maxTokensOutput, 0);

    const LLMProviderSettings stored{"http://127.0.0.1:8080", "sk-1", "Be brief.", 0.7, 256};
    stored.save(defaults, AIProviderID::openAI);
    defaults.sync();
    QSettings reread(dir.filePath("Kelvara.conf"), QSettings::IniFormat);
    EXPECT_EQ(reread.value("kelvara.openAI.token").toString(), "sk-1");
    EXPECT_EQ(reread.value("kelvara.openAI.maxTokensOutput").toLongLong(), 256);
    EXPECT_EQ(LLMProviderSettings::load(reread, AIProviderID::openAI), stored);
    // Other providers keep their own keys.
    EXPECT_EQ(LLMProviderSettings::load(reread, AIProviderID::huggingFace).serverURL,
              AIProvider::defaultBaseURL(AIProviderID::huggingFace));
}

TEST(LLMChatMappingTest, SystemPromptRulesPerProvider)
{
    // OpenAI: a blank prompt adds no system message; a real one goes out untrimmed.
    QJsonObject body = LLMChatMapping::openAIRequest("gpt", "Hi", QString(" \n\t"), std::nullopt, std::nullopt);
    EXPECT_EQ(body.value("messages").toArray().size(), 1);
    EXPECT_FALSE(body.contains("temperature"));
    EXPECT_FALSE(body.contains("max_tokens"));
    body = LLMChatMapping::openAIRequest("gpt", "Hi", QString(" Be brief.\n"), 0.2, 64);
    const QJsonArray messages = body.value("messages").toArray();
    ASSERT_EQ(messages.size(), 2);
    EXPECT_EQ(messages[0].toObject(), QJsonObject({{"role", "system"}, {"content", " Be brief.\n"}}));
    EXPECT_EQ(messages[1].toObject(), QJsonObject({{"role", "user"}, {"content", "Hi"}}));
    EXPECT_EQ(body.value("temperature").toDouble(), 0.2);
    EXPECT_EQ(body.value("max_tokens").toInteger(), 64);

    // Anthropic: the prompt as given, 1024 tokens when no limit is given.
    body = LLMChatMapping::anthropicRequest("claude", "Hi", QString("  "), std::nullopt);
    EXPECT_EQ(body.value("system").toString(), "  ");
    EXPECT_EQ(body.value("max_tokens").toInteger(), 1024);
    EXPECT_EQ(LLMChatMapping::anthropicRequest("claude", "Hi", std::nullopt, 10).value("max_tokens").toInteger(), 10);
    EXPECT_FALSE(LLMChatMapping::anthropicRequest("claude", "Hi", std::nullopt, 10).contains("system"));

    // Gemini: folded into the text, one content with one part and no role.
    EXPECT_EQ(LLMChatMapping::geminiPrompt("Hi", QString(" \n")), "Hi");
    EXPECT_EQ(LLMChatMapping::geminiPrompt("Hi", QString("  Be brief. ")), "System: Be brief.\n\nUser: Hi");
    EXPECT_EQ(LLMChatMapping::geminiRequest("Q"),
              QJsonObject({{"contents", QJsonArray{QJsonObject{{"parts", QJsonArray{QJsonObject{{"text", "Q"}}}}}}}}));
}

TEST(LLMChatMappingTest, OpenAIReplies)
{
    auto reply = LLMChatMapping::decodeOpenAIReply(
        R"({"id":"c1","choices":[{"message":{"role":"assistant","content":"One"}},
            {"message":{"role":"assistant","content":"Two"}}],"usage":{"prompt_tokens":3,"completion_tokens":4}})");
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->id, "c1");
    EXPECT_EQ(reply->messageText, "One");
    EXPECT_EQ(reply->stats, (AIChatStats{3, 4, 0, 0, 0, std::nullopt}));

    // No choices is an empty answer with zero counts, not an error.
    reply = LLMChatMapping::decodeOpenAIReply(R"({"id":"c2","choices":[]})");
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->messageText, "");
    EXPECT_EQ(reply->stats, AIChatStats{});

    const auto nullContent = LLMChatMapping::decodeOpenAIReply(
        R"({"id":"c3","choices":[{"message":{"role":"assistant","content":null}}]})");
    ASSERT_FALSE(nullContent.ok());
    EXPECT_FALSE(nullContent.error().description.isEmpty());
    EXPECT_FALSE(LLMChatMapping::decodeOpenAIReply(R"({"choices":[]})"));
    const auto page = LLMChatMapping::decodeOpenAIReply("<html>502</html>");
    ASSERT_FALSE(page.ok());
    EXPECT_TRUE(page.error().description.startsWith("The reply isn't valid JSON: ")) << page.error().description.toStdString();
    EXPECT_FALSE(LLMChatMapping::decodeOpenAIReply(R"({"id":"c","choices":[],"usage":{"prompt_tokens":"3"}})"));
}

TEST(LLMChatMappingTest, AnthropicAndGeminiReplies)
{
    auto reply = LLMChatMapping::decodeAnthropicReply(
        R"({"id":"msg_1","content":[{"type":"text","text":"Hel"},{"type":"tool_use","id":"t"},
            {"type":"text","text":"lo"}],"usage":{"input_tokens":7,"output_tokens":2}})");
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->id, "msg_1");
    EXPECT_EQ(reply->messageText, "Hello");
    EXPECT_EQ(reply->stats->inputTokens, 7);
    EXPECT_EQ(reply->stats->totalOutputTokens, 2);
    EXPECT_FALSE(LLMChatMapping::decodeAnthropicReply(R"({"id":"m","content":[{"text":"x"}]})"));

    reply = LLMChatMapping::decodeGeminiReply(
        R"({"candidates":[{"content":{"parts":[{"text":"A"},{"inlineData":{}},{"text":"B"}]}},
            {"content":{"parts":[{"text":"other"}]}}],"usageMetadata":{"promptTokenCount":5,"candidatesTokenCount":6}})");
    ASSERT_TRUE(reply);
    EXPECT_FALSE(reply->id.has_value());
    EXPECT_EQ(reply->messageText, "AB");
    EXPECT_EQ(reply->stats, (AIChatStats{5, 6, 0, 0, 0, std::nullopt}));
    reply = LLMChatMapping::decodeGeminiReply(R"({"candidates":[]})");
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->messageText, "");
    EXPECT_FALSE(LLMChatMapping::decodeGeminiReply(R"({"usageMetadata":{}})"));
}

TEST(LLMChatMappingTest, LMStudioReplyJoinsMessagesAndCopiesFigures)
{
    LMSChatResponse lms;
    lms.responseId = "resp_9";
    lms.stats = LMSChatStats{1, 2, 3, 4.5, 0.5, 2.0};
    LMSOutputItem reasoning;
    reasoning.kind = LMSOutputItem::Kind::reasoning;
    reasoning.content = "hmm";
    LMSOutputItem message;
    message.kind = LMSOutputItem::Kind::message;
    message.content = "Hi ";
    lms.output = {message, reasoning, message};
    const AIChatResponse reply = LLMChatMapping::fromLMStudio(lms);
    EXPECT_EQ(reply.id, "resp_9");
    EXPECT_EQ(reply.messageText, "Hi Hi ");
    EXPECT_EQ(reply.stats, (AIChatStats{1, 2, 3, 4.5, 0.5, 2.0}));
}

TEST(LLMChatMappingTest, ModelListsKeepReplyOrder)
{
    QList<AIModel> list = models(AIProviderID::openAI, R"({"object":"list","data":[{"id":"z"},{"id":"a","object":"model"}]})");
    ASSERT_EQ(list.size(), 2);
    EXPECT_EQ(list[0], (AIModel{"z", "z", AIProviderID::openAI, false, {}, {}}));
    EXPECT_EQ(list[1].id, "a");

    list = models(AIProviderID::anthropic, R"({"data":[{"id":"c-1","display_name":"Claude One"},{"id":"c-2"}]})");
    ASSERT_EQ(list.size(), 2);
    EXPECT_EQ(list[0].name, "Claude One");
    EXPECT_EQ(list[1].name, "c-2");

    list = models(AIProviderID::gemini,
                  R"({"models":[{"name":"models/gemini-pro","displayName":"Gemini Pro"},{"name":"models/flash"}]})");
    ASSERT_EQ(list.size(), 2);
    EXPECT_EQ(list[0], (AIModel{"gemini-pro", "Gemini Pro", AIProviderID::gemini, false, {}, {}}));
    EXPECT_EQ(list[1].id, "flash");
    EXPECT_EQ(list[1].name, "flash");

    EXPECT_TRUE(models(AIProviderID::huggingFace, R"({"data":[]})").isEmpty());
    EXPECT_FALSE(LLMChatMapping::decodeModels(AIProviderID::openAI, R"({"models":[]})"));
    EXPECT_FALSE(LLMChatMapping::decodeModels(AIProviderID::gemini, R"({"models":[{"displayName":"x"}]})"));

    const QList<AIModel> fallback = LLMChatMapping::huggingFaceFallbackModels();
    ASSERT_EQ(fallback.size(), 4);
    EXPECT_EQ(fallback[0].id, "Qwen/Qwen3-Coder-30B-A3B-Instruct");
    EXPECT_EQ(fallback[3].name, "DeepSeek R1");
    for (const AIModel &model : fallback)
        EXPECT_EQ(model.provider, AIProviderID::huggingFace);
}
