#include "chat/clients/LMSStreamParser.h"

#include <gtest/gtest.h>

#include <QJsonDocument>

namespace {

using Kind = LMSStreamEvent::Kind;

// A reply in the server's own shape: event lines, CRLF endings, reasoning, a message, a tool
// call, an error frame, a frame that is no JSON, and the end with the whole result.
const QByteArray kStream =
    "event: chat.start\r\ndata: {\"type\":\"chat.start\",\"model_instance_id\":\"qwen-7b\"}\r\n\r\n"
    ": a comment\n"
    "data: {\"type\":\"reasoning.start\"}\n\n"
    "data: {\"type\":\"reasoning.delta\",\"content\":\"Thinking \xc3\xa9\xe2\x80\xa6\"}\n\n"
    "data: {\"type\":\"reasoning.end\"}\n\n"
    "data: {\"type\":\"tool_call.name\",\"tool_name\":\"read_file\",\"provider_info\":{\"server_label\":\"kelvara\"}}\n\n"
    "data: {\"type\":\"tool_call.arguments\",\"tool\":\"read_file\",\"arguments\":{\"file_path\":\"/tmp/x\"}}\n\n"
    "data: {\"type\":\"tool_call.success\",\"tool\":\"read_file\",\"output\":\"hello\"}\n\n"
    "data: {\"type\":\"message.delta\",\n"
    "data:   \"content\":\"Hi \xf0\x9f\x98\x80\"}\n\n"
    "data: not json\n\n"
    "\n\n"
    "data: {\"type\":\"error\"}\n\n"
    "data: {\"type\":\"chat.end\",\"result\":{\"model_instance_id\":\"qwen-7b\",\"response_id\":\"resp_1\","
    "\"output\":[{\"type\":\"reasoning\",\"content\":\"Thinking\"},{\"type\":\"tool_call\",\"tool\":\"read_file\","
    "\"arguments\":{\"file_path\":\"/tmp/x\"},\"output\":\"hello\"},{\"type\":\"message\",\"content\":\"Hi\"},"
    "{\"type\":\"future_kind\"}],\"stats\":{\"input_tokens\":12,\"total_output_tokens\":34,\"reasoning_output_tokens\":5,"
    "\"tokens_per_second\":41.5,\"time_to_first_token_seconds\":0.25}}}\n\n"
    "data: {\"type\":\"message.delta\",\"content\":\"after the end\"}\n\n";

QList<LMSStreamEvent> parseInPieces(const QByteArray &bytes, qsizetype piece)
{
    LMSStreamParser parser;
    QList<LMSStreamEvent> events;
    for (qsizetype at = 0; at < bytes.size(); at += piece)
        events += parser.feed(QByteArrayView(bytes.constData() + at, std::min(piece, bytes.size() - at)));
    parser.end();
    return events;
}

QString describe(const QList<LMSStreamEvent> &events)
{
    QString text;
    for (const LMSStreamEvent &e : events)
        text += e.type + QLatin1Char('|') + e.content + QLatin1Char('|') + e.tool + QLatin1Char('|') + e.serverLabel +
                QLatin1Char('|') + e.output + QLatin1Char('|') + e.errorType + QLatin1Char('|') + e.errorMessage +
                QLatin1Char('|') + QString::fromUtf8(QJsonDocument(e.arguments).toJson(QJsonDocument::Compact)) + '\n';
    return text;
}

}  // namespace

TEST(LMSStreamParserTest, AWholeReplyGivesItsEventsInOrderWhateverThePiecesAreAndEndsAtChatEnd)
{
    const QList<LMSStreamEvent> whole = parseInPieces(kStream, kStream.size());
    ASSERT_EQ(whole.size(), 10);
    const QList<Kind> kinds{Kind::chatStart,       Kind::reasoningStart,  Kind::reasoningDelta,   Kind::reasoningEnd,
                            Kind::toolCallName,    Kind::toolCallArguments, Kind::toolCallSuccess, Kind::messageDelta,
                            Kind::streamError,     Kind::chatEnd};
    for (qsizetype i = 0; i < kinds.size(); ++i)
        EXPECT_EQ(whole.at(i).kind, kinds.at(i)) << i;
    EXPECT_EQ(whole.at(0).modelInstanceId, "qwen-7b");
    EXPECT_EQ(whole.at(2).content, QString::fromUtf8("Thinking \xc3\xa9\xe2\x80\xa6"));
    EXPECT_EQ(whole.at(4).tool, "read_file");
    EXPECT_EQ(whole.at(4).serverLabel, "kelvara");
    EXPECT_EQ(whole.at(5).arguments.value("file_path").toString(), "/tmp/x");
    EXPECT_EQ(whole.at(6).output, "hello");
    EXPECT_EQ(whole.at(7).content, QString::fromUtf8("Hi \xf0\x9f\x98\x80"));  // two data lines, one frame
    EXPECT_EQ(whole.at(8).errorType, "unknown");                                // an error without its object
    EXPECT_EQ(whole.at(8).errorMessage, "Unknown error");
    const LMSChatResponse &result = *whole.at(9).result;
    EXPECT_EQ(result.responseId, std::optional<QString>("resp_1"));
    ASSERT_EQ(result.output.size(), 4);
    EXPECT_EQ(result.output.at(1).kind, LMSOutputItem::Kind::toolCall);
    EXPECT_EQ(result.output.at(3).kind, LMSOutputItem::Kind::unknown);
    EXPECT_EQ(result.stats.totalOutputTokens, 34);
    EXPECT_EQ(result.stats.modelLoadTimeSeconds, std::nullopt);

    // Byte by byte (characters cut in the middle) and in odd pieces: the same events.
    for (const qsizetype piece : {1, 3, 7, 64})
        EXPECT_EQ(describe(parseInPieces(kStream, piece)), describe(whole)) << piece;
}

TEST(LMSStreamParserTest, FramesItCannotUseAreSkippedOrKeptAsUnknownAndAnOpenFrameIsDropped)
{
    LMSStreamParser parser;
    // A chat.end without a result it can read goes on as unknown("chat.end").
    QList<LMSStreamEvent> events = parser.feed("data: {\"type\":\"chat.end\",\"result\":{\"output\":[]}}\n\n"
                                               "data: {\"type\":\"tool_call.name\"}\n\n"
                                               "data: {\"type\":\"something.new\"}\n\n"
                                               "data: {\"no\":\"type\"}\n\n"
                                               "data: {\"type\":\"message.delta\",\"content\":\"bad \xff byte\"}\n\n"
                                               "data: {\"type\":\"message.delta\",\"content\":\"never ended\"}\n");
    ASSERT_EQ(events.size(), 4);
    EXPECT_EQ(events.at(0).kind, Kind::unknown);
    EXPECT_EQ(events.at(0).type, "chat.end");
    EXPECT_FALSE(parser.finished());
    EXPECT_EQ(events.at(1).tool, "Unknown");
    EXPECT_EQ(events.at(2).kind, Kind::unknown);
    EXPECT_EQ(events.at(2).type, "something.new");
    EXPECT_EQ(events.at(3).content, QString::fromUtf8("bad \xef\xbf\xbd byte"));  // repaired
    parser.end();
    EXPECT_TRUE(parser.feed("\n").isEmpty());  // the open frame went with the end
}

// The tool-call frames as LM Studio's REST API v1 documents them: the name and the provider
// come with the start and again with the arguments and the result; a failure names its tool
// under "metadata". A plugin names itself by its id.
TEST(LMSStreamParserTest, DocumentedToolCallFramesCarryTheToolAndItsProvider)
{
    LMSStreamParser parser;
    const QList<LMSStreamEvent> events = parser.feed(
        "event: tool_call.start\n"
        "data: {\"type\":\"tool_call.start\",\"tool\":\"model_search\",\"provider_info\":{\"type\":\"ephemeral_mcp\","
        "\"server_label\":\"huggingface\"}}\n\n"
        "data: {\"type\":\"tool_call.arguments\",\"tool\":\"model_search\",\"arguments\":{\"limit\":1},"
        "\"provider_info\":{\"type\":\"plugin\",\"plugin_id\":\"mcp/playwright\"}}\n\n"
        "data: {\"type\":\"tool_call.success\",\"tool\":\"model_search\",\"arguments\":{\"limit\":1},"
        "\"output\":\"[]\",\"provider_info\":{\"type\":\"ephemeral_mcp\",\"server_label\":\"huggingface\"}}\n\n"
        "data: {\"type\":\"tool_call.failure\",\"reason\":\"Cannot find tool with name open_browser.\","
        "\"metadata\":{\"type\":\"invalid_name\",\"tool_name\":\"open_browser\"}}\n\n"
        "data: {\"type\":\"tool_call.failure\",\"reason\":\"Bad arguments.\",\"metadata\":{\"type\":\"invalid_arguments\","
        "\"tool_name\":\"read_file\",\"arguments\":{\"path\":7},\"provider_info\":{\"type\":\"ephemeral_mcp\",\"server_label\":\"k\"}}}\n\n"
        "data: {\"type\":\"tool_call.start\"}\n\n"
        "data: {\"type\":\"tool_call.failure\",\"reason\":\"no metadata\"}\n\n"
        "data: {\"type\":\"error\",\"error\":{\"type\":\"mcp_connection_error\",\"message\":\"gone\",\"code\":\"x\"}}\n\n");
    ASSERT_EQ(events.size(), 8);
    EXPECT_EQ(events.at(0).kind, Kind::toolCallStart);
    EXPECT_EQ(events.at(0).tool, "model_search");
    EXPECT_EQ(events.at(0).serverLabel, "huggingface");
    EXPECT_EQ(events.at(1).serverLabel, "mcp/playwright");
    EXPECT_EQ(events.at(1).arguments.value("limit").toInt(), 1);
    EXPECT_EQ(events.at(2).kind, Kind::toolCallSuccess);
    EXPECT_EQ(events.at(2).output, "[]");
    EXPECT_EQ(events.at(2).arguments.value("limit").toInt(), 1);
    EXPECT_EQ(events.at(3).tool, "open_browser");
    EXPECT_EQ(events.at(3).reason, "Cannot find tool with name open_browser.");
    EXPECT_TRUE(events.at(3).arguments.isEmpty());
    EXPECT_EQ(events.at(4).tool, "read_file");
    EXPECT_EQ(events.at(4).serverLabel, "k");
    EXPECT_EQ(events.at(4).arguments.value("path").toInt(), 7);
    // The earlier form: a start and a failure that name nothing.
    EXPECT_EQ(events.at(5).kind, Kind::toolCallStart);
    EXPECT_TRUE(events.at(5).tool.isEmpty());
    EXPECT_TRUE(events.at(6).tool.isEmpty());
    EXPECT_EQ(events.at(6).reason, "no metadata");
    EXPECT_EQ(events.at(7).errorType, "mcp_connection_error");
    EXPECT_EQ(events.at(7).errorMessage, "gone");
}
