#pragma once

#include <JavaScriptCore/JavaScript.h>

#include <QString>
#include <functional>
#include <memory>

// One JavaScript context: a fresh global object in a context group borrowed from the
// pool for the context's life. Exceptions thrown by what runs through this class go to
// its exception handler, which logs them; the calls themselves then go on.
class ScriptContext {
public:
    using ExceptionHandler = std::function<void(JSContextRef ctx, JSValueRef exception)>;

    // A thread's every this many contexts collects its group's garbage as it ends. A full
    // collection costs about as much as a context; every 8th keeps a group to a few more
    // megabytes (the global objects of 8 calls) for a fifth less CPU per call than every 2nd.
    static constexpr unsigned kCollectEvery = 8;

    // Nothing when the engine can make no context.
    static std::shared_ptr<ScriptContext> create();
    ~ScriptContext();
    ScriptContext(const ScriptContext &) = delete;
    ScriptContext &operator=(const ScriptContext &) = delete;

    // For a call that ran out of memory: at the context's end its group is released instead
    // of going back to the pool, which frees the whole heap, and the allocators hand what
    // was freed back to the system at once, so that the process shrinks back.
    void discardGroupAtEnd() { m_discardGroup = true; }

    JSGlobalContextRef jsContext() const { return m_context; }
    JSContextGroupRef group() const { return m_group; }
    JSObjectRef globalObject() const;

    void setExceptionHandler(ExceptionHandler handler);
    // Hands an exception to the handler.
    void notifyException(JSValueRef exception);

    // Evaluates source; an exception goes to the handler and gives nullptr.
    JSValueRef evaluateScript(const QString &source, const QString &sourceURL = QString());
    JSValueRef evaluateScript(JSStringRef source, const QString &sourceURL = QString());
    // The global of that name (undefined when there is none).
    JSValueRef objectForKeyedSubscript(const QString &name);
    void setObjectForKeyedSubscript(const QString &name, JSValueRef value);
    // Calls a function value; a value that is no function gives nullptr without an
    // exception, a throwing call gives the handler its exception and an undefined value.
    JSValueRef callWithArguments(JSValueRef function, const JSValueRef *arguments, size_t count);

private:
    ScriptContext(JSContextGroupRef group, JSGlobalContextRef context) : m_group(group), m_context(context) {}

    JSContextGroupRef m_group;
    JSGlobalContextRef m_context;
    ExceptionHandler m_exceptionHandler;
    bool m_discardGroup = false;
};
