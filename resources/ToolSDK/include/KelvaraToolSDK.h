/*
 * KelvaraToolSDK.h - the C interface of Kelvara native tool plug-ins, version 3.
 *
 * A plug-in is a shared library that implements one tool. It exports exactly two things
 * with C linkage:
 *
 *   1. toolDescribe(): returns a pointer to a KelvaraToolDescriptor that says who the
 *      plug-in is and which symbol carries the tool.
 *   2. The tool entry function, exported under the name that the descriptor's
 *      toolEntryPoint gives, with the five parameters of KelvaraToolEntryFunc.
 *
 * Kelvara passes the plug-in nothing to call back: there are no host functions.
 *
 * Forms on Linux
 *   - library form: a file "<name>.so", loaded with dlopen(RTLD_NOW | RTLD_LOCAL) for the
 *     time of one call and closed again afterwards (with its static data);
 *   - bundle forms: a directory "<name>.bundle" or "<name>.plugin" holding the library at
 *     "Contents/Linux/<name>.so"; a bundle stays loaded for the life of the process.
 *   Both symbols must be defined in the plug-in's own file. A symbol that the dynamic loader
 *   finds only in a library the plug-in depends on counts as missing.
 *
 * Memory rules
 *   - The descriptor and its texts stay the plug-in's. Kelvara copies every text as soon as
 *     toolDescribe() returns, never writes to or frees the structure and keeps no pointer
 *     into it, so the descriptor may live in static storage.
 *   - The three input texts of the entry function are valid only during the call.
 *   - The result text MUST be allocated with malloc() (or calloc/realloc/strdup); Kelvara
 *     releases it with free(). Never return a string literal or static buffer.
 *
 * Texts are NUL-terminated UTF-8. A NULL text pointer in the descriptor counts as "".
 * A result that is not valid UTF-8 is dropped, and the call fails.
 *
 * Threads: several calls may be inside one plug-in at the same time, each on its own thread.
 * Keep the entry function free of unguarded shared state.
 *
 * The result text is a JSON object of one of three shapes, tested in this order:
 *
 *   1. Error as text:    {"error": "what went wrong"}
 *   2. Error as object:  {"error": {"message": "what went wrong", ...}}
 *                        (an "error" object without a string "message" is reported as an
 *                        invalid error object)
 *   3. Success:          {"structuredContent": { ...any members... },
 *                         "content": [{"type": "text", "text": "..."}, ...]}
 *
 * The JSON text handed to the entry function is the tool call's arguments object, written
 * by Kelvara, including the keys it adds: "sessionId", "name", "title", "toolType",
 * "execHandler", "execMethod", "pluginName" and "scriptName".
 */
#ifndef KELVARA_TOOL_SDK_H
#define KELVARA_TOOL_SDK_H

#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#ifdef __cplusplus
#define KELVARA_TOOL_EXTERN_C extern "C"
#else
#define KELVARA_TOOL_EXTERN_C
#endif

/* Marks the two exported functions: C linkage and default visibility, so that a plug-in
 * built with -fvisibility=hidden still exports them. */
#define KELVARA_TOOL_EXPORT KELVARA_TOOL_EXTERN_C __attribute__((visibility("default")))

/* The only interface version this SDK describes. A descriptor with another abiVersion is
 * refused at load time. */
#define KELVARA_TOOL_ABI_VERSION 3u

/* The name of the descriptor function. It is fixed. */
#define KELVARA_TOOL_DESCRIBE_SYMBOL "toolDescribe"

/*
 * The tool descriptor. Layout for 64-bit pointers with natural alignment, 64 bytes in all:
 *
 *   offset  width  field             meaning
 *        0      4  abiVersion        must be KELVARA_TOOL_ABI_VERSION (3)
 *        4      4  toolVersion       the tool's own numeric version
 *        8      8  name              the plug-in's name; tool configurations name it by this
 *       16      8  version           version text for people
 *       24      8  author            author text
 *       32      8  toolDescription   description text
 *       40      8  toolEntryPoint    exported symbol name of the tool entry function
 *       48      8  toolIdentifier    an identifier of the author's choosing
 *       56      8  capabilitiesJSON  JSON text about the tool's abilities, kept and shown
 */
typedef struct KelvaraToolDescriptor {
    uint32_t abiVersion;
    uint32_t toolVersion;
    const char *name;
    const char *version;
    const char *author;
    const char *toolDescription;
    const char *toolEntryPoint;
    const char *toolIdentifier;
    const char *capabilitiesJSON;
} KelvaraToolDescriptor;

/* toolDescribe(): no arguments; returns the descriptor. */
typedef const KelvaraToolDescriptor *(*KelvaraToolDescribeFunc)(void);

/*
 * The tool entry function.
 *
 *   sessionId     the MCP session of the call
 *   toolName      the plug-in's name as the call asked for it
 *   jsonParams    the JSON text of the call's arguments
 *   result        out: a malloc'ed, NUL-terminated UTF-8 JSON text; both out cells hold zero
 *                 on entry. Leaving *result NULL means "no result", which fails the call.
 *   resultLength  out: the result's length in bytes, without the NUL. It is only logged;
 *                 the end of the text is found by its NUL.
 *
 * The return value is ignored; return 0.
 */
typedef int32_t (*KelvaraToolEntryFunc)(const char *sessionId, const char *toolName, const char *jsonParams,
                                        char **result, uint64_t *resultLength);

/* Every plug-in defines this function. */
KELVARA_TOOL_EXPORT const KelvaraToolDescriptor *toolDescribe(void);

/* Convenience for entry functions: stores a malloc'ed copy of text in the out cells.
 * Returns 0, or -1 when memory ran out (the out cells then stay untouched). */
static inline int kelvaraToolSetResult(const char *text, char **result, uint64_t *resultLength)
{
    size_t length = text ? strlen(text) : 0;
    char *copy = (char *)malloc(length + 1);
    if (!copy)
        return -1;
    if (length)
        memcpy(copy, text, length);
    copy[length] = '\0';
    *result = copy;
    if (resultLength)
        *resultLength = (uint64_t)length;
    return 0;
}

/* The binary layout is part of the contract; these checks stop a build whose compiler
 * would lay the structure out differently. */
#if defined(__cplusplus)
#define KELVARA_TOOL_STATIC_ASSERT(cond, msg) static_assert(cond, msg)
#elif defined(__STDC_VERSION__) && __STDC_VERSION__ >= 201112L
#define KELVARA_TOOL_STATIC_ASSERT(cond, msg) _Static_assert(cond, msg)
#else
#define KELVARA_TOOL_CONCAT_(a, b) a##b
#define KELVARA_TOOL_CONCAT(a, b) KELVARA_TOOL_CONCAT_(a, b)
#define KELVARA_TOOL_STATIC_ASSERT(cond, msg) \
    typedef char KELVARA_TOOL_CONCAT(kelvara_tool_static_assert_, __LINE__)[(cond) ? 1 : -1]
#endif

#if UINTPTR_MAX == 0xFFFFFFFFFFFFFFFFu
KELVARA_TOOL_STATIC_ASSERT(sizeof(KelvaraToolDescriptor) == 64, "descriptor must be 64 bytes");
KELVARA_TOOL_STATIC_ASSERT(offsetof(KelvaraToolDescriptor, abiVersion) == 0, "abiVersion at 0");
KELVARA_TOOL_STATIC_ASSERT(offsetof(KelvaraToolDescriptor, toolVersion) == 4, "toolVersion at 4");
KELVARA_TOOL_STATIC_ASSERT(offsetof(KelvaraToolDescriptor, name) == 8, "name at 8");
KELVARA_TOOL_STATIC_ASSERT(offsetof(KelvaraToolDescriptor, version) == 16, "version at 16");
KELVARA_TOOL_STATIC_ASSERT(offsetof(KelvaraToolDescriptor, author) == 24, "author at 24");
KELVARA_TOOL_STATIC_ASSERT(offsetof(KelvaraToolDescriptor, toolDescription) == 32, "toolDescription at 32");
KELVARA_TOOL_STATIC_ASSERT(offsetof(KelvaraToolDescriptor, toolEntryPoint) == 40, "toolEntryPoint at 40");
KELVARA_TOOL_STATIC_ASSERT(offsetof(KelvaraToolDescriptor, toolIdentifier) == 48, "toolIdentifier at 48");
KELVARA_TOOL_STATIC_ASSERT(offsetof(KelvaraToolDescriptor, capabilitiesJSON) == 56, "capabilitiesJSON at 56");
#else
#error "Kelvara tool plug-ins are built for 64-bit targets"
#endif

#endif /* KELVARA_TOOL_SDK_H */
