/*
 * TextStats - a sample Kelvara tool plug-in.
 *
 * Counts the characters (Unicode code points), words, lines and UTF-8 bytes of a text and
 * gives its CRC-32 checksum (IEEE 802.3, the one of zip and PNG), so that two texts can be
 * compared at a glance.
 *
 * Parameters: "text", a string, either at the top level of the call's JSON or inside its
 * "arguments" object.
 *
 * Result on success:
 *   {"structuredContent":{"characters":5,"words":1,"lines":1,"bytes":6,"crc32":"..."},
 *    "content":[{"type":"text","text":"5 characters, 1 word, 1 line, 6 bytes, CRC-32 ..."}]}
 * and on bad input {"error":"..."}.
 *
 * The plug-in keeps no state between calls, so any number of calls may run at once.
 */
#include "KelvaraToolSDK.h"

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static const KelvaraToolDescriptor kDescriptor = {
    KELVARA_TOOL_ABI_VERSION,
    100,
    "TextStats",
    "1.0.0",
    "Kelvara ToolSDK",
    "Counts the characters, words, lines and bytes of a text and gives its CRC-32 checksum.",
    "textStatsEntry",
    "org.tamsel.kelvara.sample.textstats",
    "{\"parameters\":{\"text\":{\"type\":\"string\",\"description\":\"The text to measure\"}},"
    "\"output\":{\"characters\":\"integer\",\"words\":\"integer\",\"lines\":\"integer\","
    "\"bytes\":\"integer\",\"crc32\":\"string\"}}",
};

KELVARA_TOOL_EXPORT const KelvaraToolDescriptor *toolDescribe(void)
{
    return &kDescriptor;
}

/* ---- a growable byte buffer ------------------------------------------------------------ */

typedef struct {
    char *data;
    size_t length;
    size_t capacity;
    int failed; /* out of memory */
} Buffer;

static void bufferAppend(Buffer *buffer, const char *bytes, size_t count)
{
    if (buffer->failed)
        return;
    if (buffer->length + count + 1 > buffer->capacity) {
        size_t capacity = buffer->capacity ? buffer->capacity : 64;
        while (buffer->length + count + 1 > capacity)
            capacity *= 2;
        char *grown = (char *)realloc(buffer->data, capacity);
        if (!grown) {
            buffer->failed = 1;
            return;
        }
        buffer->data = grown;
        buffer->capacity = capacity;
    }
    memcpy(buffer->data + buffer->length, bytes, count);
    buffer->length += count;
    buffer->data[buffer->length] = '\0';
}

static void bufferAppendText(Buffer *buffer, const char *text)
{
    bufferAppend(buffer, text, strlen(text));
}

static void bufferAppendCodePoint(Buffer *buffer, uint32_t cp)
{
    char bytes[4];
    size_t count;
    if (cp < 0x80) {
        bytes[0] = (char)cp;
        count = 1;
    } else if (cp < 0x800) {
        bytes[0] = (char)(0xC0 | (cp >> 6));
        bytes[1] = (char)(0x80 | (cp & 0x3F));
        count = 2;
    } else if (cp < 0x10000) {
        bytes[0] = (char)(0xE0 | (cp >> 12));
        bytes[1] = (char)(0x80 | ((cp >> 6) & 0x3F));
        bytes[2] = (char)(0x80 | (cp & 0x3F));
        count = 3;
    } else {
        bytes[0] = (char)(0xF0 | (cp >> 18));
        bytes[1] = (char)(0x80 | ((cp >> 12) & 0x3F));
        bytes[2] = (char)(0x80 | ((cp >> 6) & 0x3F));
        bytes[3] = (char)(0x80 | (cp & 0x3F));
        count = 4;
    }
    bufferAppend(buffer, bytes, count);
}

/* ---- just enough JSON to find one string member ----------------------------------------- */

enum { kMaxDepth = 128 };

static void skipSpace(const char **p)
{
    while (**p == ' ' || **p == '\t' || **p == '\n' || **p == '\r')
        ++*p;
}

static int hexValue(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

static int readHex4(const char *p, uint32_t *value)
{
    uint32_t v = 0;
    for (int i = 0; i < 4; ++i) {
        int digit = hexValue(p[i]);
        if (digit < 0)
            return -1;
        v = (v << 4) | (uint32_t)digit;
    }
    *value = v;
    return 0;
}

/* Reads the string at *p (its opening quote); decodes it into out when out is not NULL. */
static int parseString(const char **p, Buffer *out)
{
    const char *s = *p;
    if (*s != '"')
        return -1;
    ++s;
    for (;;) {
        unsigned char c = (unsigned char)*s;
        if (c == '\0' || c < 0x20)
            return -1;
        if (c == '"') {
            *p = s + 1;
            return 0;
        }
        if (c != '\\') {
            if (out)
                bufferAppend(out, s, 1);
            ++s;
            continue;
        }
        ++s;
        char escaped = *s++;
        char plain = 0;
        switch (escaped) {
        case '"': plain = '"'; break;
        case '\\': plain = '\\'; break;
        case '/': plain = '/'; break;
        case 'b': plain = '\b'; break;
        case 'f': plain = '\f'; break;
        case 'n': plain = '\n'; break;
        case 'r': plain = '\r'; break;
        case 't': plain = '\t'; break;
        case 'u': {
            uint32_t cp;
            if (readHex4(s, &cp) != 0)
                return -1;
            s += 4;
            if (cp >= 0xD800 && cp <= 0xDBFF) {
                uint32_t low;
                if (s[0] == '\\' && s[1] == 'u' && readHex4(s + 2, &low) == 0 && low >= 0xDC00 && low <= 0xDFFF) {
                    cp = 0x10000 + ((cp - 0xD800) << 10) + (low - 0xDC00);
                    s += 6;
                } else {
                    cp = 0xFFFD; /* a lone surrogate has no UTF-8 form */
                }
            } else if (cp >= 0xDC00 && cp <= 0xDFFF) {
                cp = 0xFFFD;
            }
            if (out)
                bufferAppendCodePoint(out, cp);
            continue;
        }
        default:
            return -1;
        }
        if (out)
            bufferAppend(out, &plain, 1);
    }
}

static int skipValue(const char **p, int depth);

static int skipContainer(const char **p, char close, int depth, int isObject)
{
    ++*p;
    skipSpace(p);
    if (**p == close) {
        ++*p;
        return 0;
    }
    for (;;) {
        if (isObject) {
            if (parseString(p, NULL) != 0)
                return -1;
            skipSpace(p);
            if (**p != ':')
                return -1;
            ++*p;
        }
        if (skipValue(p, depth + 1) != 0)
            return -1;
        skipSpace(p);
        if (**p == ',') {
            ++*p;
            skipSpace(p);
            continue;
        }
        if (**p != close)
            return -1;
        ++*p;
        return 0;
    }
}

static int skipValue(const char **p, int depth)
{
    if (depth > kMaxDepth)
        return -1;
    skipSpace(p);
    const char *s = *p;
    switch (*s) {
    case '{':
        return skipContainer(p, '}', depth, 1);
    case '[':
        return skipContainer(p, ']', depth, 0);
    case '"':
        return parseString(p, NULL);
    case 't':
        if (strncmp(s, "true", 4) != 0)
            return -1;
        *p = s + 4;
        return 0;
    case 'f':
        if (strncmp(s, "false", 5) != 0)
            return -1;
        *p = s + 5;
        return 0;
    case 'n':
        if (strncmp(s, "null", 4) != 0)
            return -1;
        *p = s + 4;
        return 0;
    default: {
        if (*s == '-')
            ++s;
        if (*s < '0' || *s > '9')
            return -1;
        while ((*s >= '0' && *s <= '9') || *s == '.' || *s == 'e' || *s == 'E' || *s == '+' || *s == '-')
            ++s;
        *p = s;
        return 0;
    }
    }
}

/* Looks for the string member "text" in the object at *p, and in its "arguments" object.
 * Returns 1 when found (decoded into text), 0 when absent, -1 on malformed JSON. */
static int findText(const char **p, Buffer *text, int depth)
{
    int found = 0;
    Buffer nested = {0};
    int nestedFound = 0;
    skipSpace(p);
    if (**p != '{')
        return -1;
    ++*p;
    skipSpace(p);
    if (**p == '}') {
        ++*p;
        return 0;
    }
    for (;;) {
        Buffer key = {0};
        if (parseString(p, &key) != 0) {
            free(key.data);
            free(nested.data);
            return -1;
        }
        skipSpace(p);
        int status = **p == ':' ? 0 : -1;
        if (status == 0) {
            ++*p;
            skipSpace(p);
            const int isText = key.data && strcmp(key.data, "text") == 0 && key.length == 4;
            const int isArguments = key.data && strcmp(key.data, "arguments") == 0 && key.length == 9;
            if (isText && **p == '"' && !found) {
                status = parseString(p, text);
                found = status == 0;
            } else if (isArguments && **p == '{' && depth == 0 && !nestedFound) {
                int result = findText(p, &nested, depth + 1);
                status = result < 0 ? -1 : 0;
                nestedFound = result == 1;
            } else {
                status = skipValue(p, depth + 1);
            }
        }
        free(key.data);
        if (status != 0) {
            free(nested.data);
            return -1;
        }
        skipSpace(p);
        if (**p == ',') {
            ++*p;
            skipSpace(p);
            continue;
        }
        if (**p != '}') {
            free(nested.data);
            return -1;
        }
        ++*p;
        break;
    }
    /* A top-level "text" wins over one inside "arguments". */
    if (!found && nestedFound) {
        free(text->data);
        *text = nested;
        return 1;
    }
    free(nested.data);
    return found;
}

/* ---- the statistics ----------------------------------------------------------------- */

typedef struct {
    size_t characters;
    size_t words;
    size_t lines;
    size_t bytes;
    uint32_t crc32;
} TextStatistics;

static int isSpace(unsigned char c)
{
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v';
}

static TextStatistics measure(const char *text, size_t length)
{
    TextStatistics stats = {0, 0, 0, length, 0};
    uint32_t crc = 0xFFFFFFFFu;
    int inWord = 0;
    for (size_t i = 0; i < length; ++i) {
        unsigned char c = (unsigned char)text[i];
        if ((c & 0xC0) != 0x80)
            ++stats.characters;
        if (c == '\n')
            ++stats.lines;
        if (isSpace(c)) {
            inWord = 0;
        } else if (!inWord) {
            inWord = 1;
            ++stats.words;
        }
        crc ^= c;
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1u)));
    }
    /* A last line without a line feed still counts. */
    if (length > 0 && text[length - 1] != '\n')
        ++stats.lines;
    stats.crc32 = ~crc;
    return stats;
}

static const char *plural(size_t count, const char *one, const char *many)
{
    return count == 1 ? one : many;
}

static int32_t fail(const char *message, char **result, uint64_t *resultLength)
{
    Buffer out = {0};
    bufferAppendText(&out, "{\"error\":\"");
    bufferAppendText(&out, message);
    bufferAppendText(&out, "\"}");
    if (out.failed) {
        free(out.data);
        return -1;
    }
    *result = out.data;
    *resultLength = out.length;
    return -1;
}

KELVARA_TOOL_EXPORT int32_t textStatsEntry(const char *sessionId, const char *toolName, const char *jsonParams,
                                           char **result, uint64_t *resultLength)
{
    (void)sessionId;
    (void)toolName;
    Buffer text = {0};
    const char *cursor = jsonParams ? jsonParams : "";
    const int found = findText(&cursor, &text, 0);
    if (found < 0) {
        free(text.data);
        return fail("Invalid JSON parameters.", result, resultLength);
    }
    if (found == 0) {
        free(text.data);
        return fail("Parameter 'text' must be a string.", result, resultLength);
    }
    if (text.failed) {
        free(text.data);
        return fail("Out of memory.", result, resultLength);
    }

    const TextStatistics stats = measure(text.data ? text.data : "", text.length);
    free(text.data);

    char summary[256];
    snprintf(summary, sizeof summary, "%zu %s, %zu %s, %zu %s, %zu %s, CRC-32 %08x", stats.characters,
             plural(stats.characters, "character", "characters"), stats.words, plural(stats.words, "word", "words"),
             stats.lines, plural(stats.lines, "line", "lines"), stats.bytes, plural(stats.bytes, "byte", "bytes"),
             (unsigned)stats.crc32);
    char json[512];
    snprintf(json, sizeof json,
             "{\"structuredContent\":{\"characters\":%zu,\"words\":%zu,\"lines\":%zu,\"bytes\":%zu,\"crc32\":\"%08x\"},"
             "\"content\":[{\"type\":\"text\",\"text\":\"%s\"}]}",
             stats.characters, stats.words, stats.lines, stats.bytes, (unsigned)stats.crc32, summary);
    if (kelvaraToolSetResult(json, result, resultLength) != 0)
        return -1;
    return 0;
}
