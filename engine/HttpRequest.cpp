#include "engine/HttpRequest.h"

#include "engine/AsciiText.h"

#include <algorithm>
#include <charconv>

namespace MCP {

static std::string_view trimBlanks(std::string_view text)
{
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t'))
        text.remove_prefix(1);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t'))
        text.remove_suffix(1);
    return text;
}

static bool isSpace(char c)
{
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}

void HttpRequest::parseHeaderBlock(std::string_view block)
{
    bool first = true;
    size_t pos = 0;
    while (pos <= block.size()) {
        size_t end = block.find("\r\n", pos);
        if (end == std::string_view::npos)
            end = block.size();
        const std::string_view line = block.substr(pos, end - pos);
        pos = end + 2;
        if (first) {
            first = false;
            // Method, path and version, split at white space.
            std::string_view rest = line;
            std::string_view tokens[3];
            for (auto &token : tokens) {
                while (!rest.empty() && isSpace(rest.front()))
                    rest.remove_prefix(1);
                size_t n = 0;
                while (n < rest.size() && !isSpace(rest[n]))
                    ++n;
                token = rest.substr(0, n);
                rest.remove_prefix(n);
            }
            method.assign(tokens[0]);
            path.assign(tokens[1]);
            version.assign(tokens[2]);
            continue;
        }
        const size_t colon = line.find(':');
        if (colon == std::string_view::npos)
            continue;
        std::string name = asciiLowered(line.substr(0, colon));
        if (!headers.insert_or_assign(name, std::string(trimBlanks(line.substr(colon + 1)))).second)
            repeatedHeaders.insert(std::move(name));
    }
}

size_t HttpRequest::headBytesWanted(const char *data, size_t size) const
{
    if (headersComplete)
        return 0;
    // The same two ends as feed: CRLF as the very first line, else the first CRLF CRLF. The
    // held head never ends in a complete terminator, so its last three bytes are all that
    // can begin one.
    const std::string_view next(data, size);
    if (m_head.size() < 2) {
        const std::string start = m_head + std::string(next.substr(0, 2 - m_head.size()));
        if (start == "\r\n")
            return 2 - m_head.size();
    }
    const size_t tailSize = std::min<size_t>(3, m_head.size());
    std::string window = m_head.substr(m_head.size() - tailSize);
    window.append(next);
    const size_t found = window.find("\r\n\r\n");
    return found == std::string::npos ? size : found + 4 - tailSize;
}

HttpRequest::Progress HttpRequest::feed(const char *data, size_t size)
{
    if (headersComplete)
        return feedBody(data, size);

    const size_t searchFrom = m_head.size() >= 3 ? m_head.size() - 3 : 0;
    m_head.append(data, size);
    // The headers end at the first empty line: the very first line when the request
    // starts with CRLF, else the first CRLF CRLF. Lone CR or LF bytes end nothing.
    size_t blockEnd;
    size_t bodyStart;
    if (m_head.starts_with("\r\n")) {
        blockEnd = 0;
        bodyStart = 2;
    } else {
        const size_t found = m_head.find("\r\n\r\n", searchFrom);
        if (found == std::string::npos)
            return maxHeadBytes && m_head.size() > maxHeadBytes ? Progress::HeadTooLarge : Progress::NeedMore;
        if (maxHeadBytes && found > maxHeadBytes)
            return Progress::HeadTooLarge;
        blockEnd = found;
        bodyStart = found + 4;
    }
    headersComplete = true;
    parseHeaderBlock(std::string_view(m_head).substr(0, blockEnd));

    if (auto it = headers.find("transfer-encoding"); it != headers.end() && it->second.find("chunked") != std::string::npos)
        chunked = true;
    if (auto it = headers.find("content-length"); it != headers.end()) {
        const std::string &value = it->second;
        const auto result = std::from_chars(value.data(), value.data() + value.size(), contentLength);
        // Digits first; anything after them is ignored, but no digits at all or a
        // value beyond 64 bits cannot be read.
        if (result.ec != std::errc() || value.empty() || value.front() < '0' || value.front() > '9')
            return Progress::Malformed;
        if (maxBodyBytes && contentLength > maxBodyBytes)
            return Progress::BodyTooLarge;
    }

    std::string rest = m_head.substr(bodyStart);
    m_head.clear();
    m_head.shrink_to_fit();
    if (chunked) {
        m_raw = std::move(rest);
        return chunkProgress();
    }
    if (exactFraming && rest.size() > contentLength) {
        m_surplus = rest.substr(static_cast<size_t>(contentLength));
        rest.resize(static_cast<size_t>(contentLength));
    }
    body.assign(rest.begin(), rest.end());
    return body.size() >= contentLength ? Progress::Complete : Progress::NeedMore;
}

HttpRequest::Progress HttpRequest::feedBody(const char *data, size_t size)
{
    if (chunked) {
        m_raw.append(data, size);
        return chunkProgress();
    }
    body.insert(body.end(), data, data + size);
    return body.size() >= contentLength ? Progress::Complete : Progress::NeedMore;
}

HttpRequest::Progress HttpRequest::chunkProgress()
{
    const bool done = decodeChunks();
    if (done && exactFraming && m_rawPos < m_raw.size()) {
        m_surplus = m_raw.substr(m_rawPos);
        m_rawPos = m_raw.size();
    }
    // A chunked body declares no length: it is bounded by what it has grown to, the
    // bytes not yet decoded included.
    if (maxBodyBytes && body.size() + (m_raw.size() - m_rawPos) > maxBodyBytes + 64)
        return Progress::BodyTooLarge;
    return done ? Progress::Complete : Progress::NeedMore;
}

bool HttpRequest::decodeChunks()
{
    while (!m_decoderStuck) {
        const size_t available = m_raw.size() - m_rawPos;
        switch (chunkState) {
        case ReadSize: {
            const size_t lineEnd = m_raw.find("\r\n", m_rawPos);
            if (lineEnd == std::string::npos)
                return false;
            // Hex digits up to the first other character (such as a ';' extension);
            // no digits at all count as 0. Sizes beyond 64 bits saturate.
            uint64_t size = 0;
            for (size_t i = m_rawPos; i < lineEnd; ++i) {
                const char c = m_raw[i];
                int digit;
                if (c >= '0' && c <= '9')
                    digit = c - '0';
                else if (c >= 'a' && c <= 'f')
                    digit = c - 'a' + 10;
                else if (c >= 'A' && c <= 'F')
                    digit = c - 'A' + 10;
                else
                    break;
                size = size > (UINT64_MAX >> 4) ? UINT64_MAX : (size << 4) | static_cast<uint64_t>(digit);
            }
            m_rawPos = lineEnd + 2;
            chunkSize = size;
            chunkRead = 0;
            chunkState = size != 0 ? ReadData : ReadFinalCRLF;
            break;
        }
        case ReadData: {
            if (chunkRead < chunkSize) {
                const uint64_t take = std::min<uint64_t>(available, chunkSize - chunkRead);
                if (take == 0)
                    return false;
                body.insert(body.end(), m_raw.data() + m_rawPos, m_raw.data() + m_rawPos + take);
                m_rawPos += take;
                chunkRead += take;
                break;
            }
            // The chunk's CRLF is skipped, not compared.
            if (available < 2)
                return false;
            m_rawPos += 2;
            chunkState = ReadSize;
            break;
        }
        case ReadFinalCRLF:
            if (available < 2)
                return false;
            if (m_raw.compare(m_rawPos, 2, "\r\n") != 0) {
                // Trailers and other bytes here stop the decoder; the read then lasts
                // until the peer closes.
                m_decoderStuck = true;
                return false;
            }
            m_rawPos += 2;
            chunkState = Done;
            break;
        case Done:
            return true;
        }
        // Drop consumed raw bytes now and then so a long body does not pile up twice.
        if (m_rawPos > 65536 && m_rawPos * 2 > m_raw.size()) {
            m_raw.erase(0, m_rawPos);
            m_rawPos = 0;
        }
    }
    return false;
}

}  // namespace MCP
