#include "engine/HttpRequest.h"

#include <gtest/gtest.h>

using MCP::HttpRequest;
using Progress = MCP::HttpRequest::Progress;

namespace {

// Feeds the text in pieces of the given size; gives the last progress.
Progress feedInPieces(HttpRequest &request, std::string_view text, size_t piece)
{
    Progress progress = Progress::NeedMore;
    for (size_t i = 0; i < text.size(); i += piece) {
        progress = request.feed(text.data() + i, std::min(piece, text.size() - i));
        if (progress != Progress::NeedMore)
            break;
    }
    return progress;
}

std::string body(const HttpRequest &request)
{
    return std::string(request.body.begin(), request.body.end());
}

}  // namespace

TEST(HttpRequestTest, HeaderScan)
{
    HttpRequest request;
    const std::string text = "post  /a/b  HTTP/1.1\r\nX-Name:\t value \t\r\nno colon line\r\nx-name: second\r\n"
                             "Content-LENGTH: 2\r\n\r\nok";
    EXPECT_EQ(request.feed(text.data(), text.size()), Progress::Complete);
    EXPECT_EQ(request.method, "post");
    EXPECT_EQ(request.path, "/a/b");
    EXPECT_EQ(request.headers.at("x-name"), "second");  // a repeated header overwrites
    EXPECT_EQ(request.headers.size(), 2u);
    EXPECT_EQ(request.contentLength, 2u);
    EXPECT_EQ(body(request), "ok");
}

TEST(HttpRequestTest, OnlyCRLFEndsLinesAndAnEmptyFirstLineEndsTheHeaders)
{
    HttpRequest request;
    EXPECT_EQ(request.feed("\r\nGET / HTTP/1.1\r\n", 17), Progress::Complete);
    EXPECT_EQ(request.method, "");
    EXPECT_TRUE(request.headersComplete);

    HttpRequest bare;
    EXPECT_EQ(bare.feed("POST / HTTP/1.1\n\nmore", 21), Progress::NeedMore);
    EXPECT_FALSE(bare.headersComplete);
}

TEST(HttpRequestTest, ContentLengthBodyAcrossReceives)
{
    HttpRequest request;
    const std::string text = "POST / HTTP/1.1\r\nContent-Length: 11\r\n\r\nhello world";
    EXPECT_EQ(feedInPieces(request, text, 3), Progress::Complete);
    EXPECT_EQ(body(request), "hello world");

    // Bytes that came with the headers stay, even beyond the declared length.
    HttpRequest extra;
    const std::string more = "POST / HTTP/1.1\r\nContent-Length: 2\r\n\r\nabcd";
    EXPECT_EQ(extra.feed(more.data(), more.size()), Progress::Complete);
    EXPECT_EQ(body(extra), "abcd");
}

TEST(HttpRequestTest, MalformedContentLengthCannotBeRead)
{
    for (const char *value : {"abc", "", "-1", "+5", "99999999999999999999999"}) {
        HttpRequest request;
        const std::string text = std::string("POST / HTTP/1.1\r\nContent-Length: ") + value + "\r\n\r\n";
        EXPECT_EQ(request.feed(text.data(), text.size()), Progress::Malformed) << value;
    }
    HttpRequest digitsFirst;
    const std::string text = "POST / HTTP/1.1\r\nContent-Length: 2xyz\r\n\r\nab";
    EXPECT_EQ(digitsFirst.feed(text.data(), text.size()), Progress::Complete);
}

TEST(HttpRequestTest, ChunkedBodyInAnyPieces)
{
    const std::string text = "POST / HTTP/1.1\r\nTransfer-Encoding: gzip, chunked\r\nContent-Length: 3\r\n\r\n"
                             "5;ext=1\r\nhello\r\n6\r\n world\r\nA\r\n0123456789\r\n0\r\n\r\n";
    for (size_t piece : {1u, 2u, 7u, 8192u}) {
        HttpRequest request;
        EXPECT_EQ(feedInPieces(request, text, piece), Progress::Complete) << piece;
        EXPECT_TRUE(request.chunked);
        EXPECT_EQ(body(request), "hello world0123456789") << piece;
        EXPECT_EQ(request.chunkState, HttpRequest::Done);
    }
}

TEST(HttpRequestTest, ChunkedNeedsLowerCaseValueAndStopsAtTrailers)
{
    HttpRequest capitals;
    const std::string upper = "POST / HTTP/1.1\r\nTransfer-Encoding: CHUNKED\r\nContent-Length: 3\r\n\r\nabc";
    EXPECT_EQ(capitals.feed(upper.data(), upper.size()), Progress::Complete);
    EXPECT_FALSE(capitals.chunked);

    HttpRequest trailers;
    const std::string text = "POST / HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n1\r\na\r\n0\r\nX-T: 1\r\n\r\n";
    EXPECT_EQ(trailers.feed(text.data(), text.size()), Progress::NeedMore);
    EXPECT_EQ(trailers.feed("\r\n\r\n", 4), Progress::NeedMore);  // stuck until the peer closes
}

// A reader that takes only what headBytesWanted allows stops right behind the blank line,
// wherever the receives split it, and leaves the body unread.
TEST(HttpRequestTest, TheHeadCanBeTakenWithoutAByteBehindIt)
{
    const std::string head = "POST / HTTP/1.1\r\nContent-Length: 4\r\n\r\n";
    const std::string text = head + "body" + "POST / HTTP/1.1";
    for (size_t piece = 1; piece <= text.size(); ++piece) {
        HttpRequest request;
        size_t taken = 0;
        while (!request.headersComplete && taken < text.size()) {
            const size_t offered = std::min(piece, text.size() - taken);
            const size_t take = request.headBytesWanted(text.data() + taken, offered);
            ASSERT_LE(take, offered);
            request.feed(text.data() + taken, take);
            taken += take;
        }
        EXPECT_TRUE(request.headersComplete) << piece;
        EXPECT_EQ(taken, head.size()) << piece;
        EXPECT_TRUE(request.body.empty()) << piece;
        EXPECT_EQ(request.headBytesWanted("more", 4), 0u);
    }
    // An empty first line is a whole head of two bytes, also when they come one by one.
    HttpRequest empty;
    EXPECT_EQ(empty.headBytesWanted("\r\nGET", 5), 2u);
    HttpRequest split;
    EXPECT_EQ(split.headBytesWanted("\r", 1), 1u);
    split.feed("\r", 1);
    EXPECT_EQ(split.headBytesWanted("\nGET", 4), 1u);
    // Lone line feeds end nothing.
    HttpRequest bare;
    EXPECT_EQ(bare.headBytesWanted("GET /\n\n", 7), 7u);
}

TEST(HttpRequestTest, RepeatedHeadersAreNamedWhateverTheirCase)
{
    HttpRequest request;
    const std::string text = "POST / HTTP/1.1\r\nOrigin: a\r\nHost: h\r\nORIGIN: b\r\nX: 1\r\nx: 2\r\nx: 3\r\n\r\n";
    request.feed(text.data(), text.size());
    EXPECT_EQ(request.repeatedHeaders, (std::set<std::string>{"origin", "x"}));
    EXPECT_EQ(request.headers.at("origin"), "b");
}
