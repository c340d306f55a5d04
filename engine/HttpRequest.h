#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace MCP {

// One HTTP request as the transport reads it: request line, headers, decoded body.
// Feeding is incremental so that the reader can hand over each receive as it comes.
class HttpRequest {
public:
    enum ChunkState : int32_t { ReadSize = 0, ReadData = 1, ReadFinalCRLF = 2, Done = 3 };

    std::string method;
    std::string path;
    std::string version;  // "HTTP/1.1" as the request line gives it
    std::map<std::string, std::string> headers;
    // Lower-cased names of the headers that came more than once (the last value is kept).
    std::set<std::string> repeatedHeaders;
    std::vector<char> body;
    uint64_t contentLength = 0;
    bool headersComplete = false;
    bool chunked = false;
    uint64_t chunkSize = 0;
    uint64_t chunkRead = 0;
    int32_t chunkState = ReadSize;

    // Bounds set before the first feed; zero means none.
    size_t maxHeadBytes = 0;
    uint64_t maxBodyBytes = 0;
    // For a connection that carries more requests: the body ends where its length says (none
    // without a length), and what follows it is kept for the next request (takeSurplus).
    // Without it, the bytes that arrive with the head count as the body, as they always did.
    bool exactFraming = false;

    enum class Progress { NeedMore, Complete, Malformed, HeadTooLarge, BodyTooLarge };

    // Takes the next bytes from the connection. NeedMore asks for another receive;
    // Complete means the request is whole; Malformed means it can never be read (a
    // content-length that is not a decimal number or does not fit 64 bits); HeadTooLarge
    // and BodyTooLarge that it passed a bound (a body as soon as its declared length does).
    Progress feed(const char *data, size_t size);

    // How many of these next bytes complete the head: all of them while it stays
    // incomplete, none once it is complete. Lets a reader take the head off the connection
    // without a byte of what follows.
    size_t headBytesWanted(const char *data, size_t size) const;

    // Bytes received beyond the end of a complete request (with exactFraming).
    std::string takeSurplus() { return std::exchange(m_surplus, {}); }

    // Scans the header block (request line and header lines up to, not including, the
    // blank line) into method, path and headers.
    void parseHeaderBlock(std::string_view block);

private:
    Progress startBody();
    Progress feedBody(const char *data, size_t size);
    Progress chunkProgress();
    // Runs the chunked decoder over m_raw; true once it reached Done.
    bool decodeChunks();

    std::string m_head;       // bytes received before the blank line was seen
    std::string m_raw;        // undecoded chunked stream
    std::string m_surplus;    // the next request's first bytes
    size_t m_rawPos = 0;
    bool m_decoderStuck = false;
};

}  // namespace MCP
