#include "tools/scripting/ScriptContext.h"

#include "tools/scripting/ScriptContextGroupPool.h"
#include "tools/scripting/ScriptValue.h"

#include <dlfcn.h>
#include <malloc.h>

std::shared_ptr<ScriptContext> ScriptContext::create()
{
    ScriptContextGroupPool &pool = ScriptContextGroupPool::shared();
    JSContextGroupRef group = pool.acquire();
    if (!group)
        return nullptr;
    JSGlobalContextRef context = JSGlobalContextCreateInGroup(group, nullptr);
    if (!context) {
        pool.release(group);
        return nullptr;
    }
    return std::shared_ptr<ScriptContext>(new ScriptContext(group, context));
}

// A full collection now; exported by the library but declared only in a header the -dev
// package does not ship. The public JSGarbageCollect only hints, and a group that makes a
// global object per call then grows to tens of megabytes before its collector runs.
extern "C" JS_EXPORT void JSSynchronousGarbageCollectForDebugging(JSContextRef context);

namespace {

// Hands the memory the allocators hold free back to the system now instead of on their
// timers. JavaScriptCore's allocator exports its call only under a C++ name, looked up
// here so that a library without it still loads.
void returnFreedMemory()
{
    using Scavenge = void (*)();
    static const auto scavenge = reinterpret_cast<Scavenge>(::dlsym(RTLD_DEFAULT, "_ZN7bmalloc3api8scavengeEv"));
    if (scavenge)
        scavenge();
    ::malloc_trim(0);
}

}  // namespace

ScriptContext::~ScriptContext()
{
    if (m_discardGroup) {
        JSGlobalContextRelease(m_context);
        // The last reference: the group's heap goes with it.
        JSContextGroupRelease(m_group);
        returnFreedMemory();
        return;
    }
    // Every few calls on a thread the group's garbage is collected while this context
    // still holds it: a group stays a few megabytes, at some cost in latency per call.
    thread_local unsigned calls = 0;
    if (++calls % kCollectEvery == 0)
        JSSynchronousGarbageCollectForDebugging(m_context);
    JSGlobalContextRelease(m_context);
    // The global object is garbage of the group from now on; the group's next user
    // collects it along the way.
    ScriptContextGroupPool::shared().release(m_group);
}

JSObjectRef ScriptContext::globalObject() const
{
    return JSContextGetGlobalObject(m_context);
}

void ScriptContext::setExceptionHandler(ExceptionHandler handler)
{
    m_exceptionHandler = std::move(handler);
}

void ScriptContext::notifyException(JSValueRef exception)
{
    if (m_exceptionHandler)
        m_exceptionHandler(m_context, exception);
}

JSValueRef ScriptContext::evaluateScript(const QString &source, const QString &sourceURL)
{
    ScriptValue::String script(source);
    return evaluateScript(script.get(), sourceURL);
}

JSValueRef ScriptContext::evaluateScript(JSStringRef source, const QString &sourceURL)
{
    JSValueRef exception = nullptr;
    JSValueRef result;
    if (sourceURL.isEmpty()) {
        result = JSEvaluateScript(m_context, source, nullptr, nullptr, 1, &exception);
    } else {
        ScriptValue::String url(sourceURL);
        result = JSEvaluateScript(m_context, source, nullptr, url.get(), 1, &exception);
    }
    if (exception) {
        notifyException(exception);
        return nullptr;
    }
    return result;
}

JSValueRef ScriptContext::objectForKeyedSubscript(const QString &name)
{
    ScriptValue::String key(name);
    JSValueRef exception = nullptr;
    JSValueRef value = JSObjectGetProperty(m_context, globalObject(), key.get(), &exception);
    if (exception) {
        // A throwing getter on the global object: reported, and read as undefined.
        notifyException(exception);
        return JSValueMakeUndefined(m_context);
    }
    return value ? value : JSValueMakeUndefined(m_context);
}

void ScriptContext::setObjectForKeyedSubscript(const QString &name, JSValueRef value)
{
    ScriptValue::String key(name);
    JSValueRef exception = nullptr;
    JSObjectSetProperty(m_context, globalObject(), key.get(), value, kJSPropertyAttributeNone, &exception);
    if (exception)
        notifyException(exception);
}

JSValueRef ScriptContext::callWithArguments(JSValueRef function, const JSValueRef *arguments, size_t count)
{
    if (!function || !JSValueIsObject(m_context, function))
        return nullptr;
    JSValueRef exception = nullptr;
    JSObjectRef callee = JSValueToObject(m_context, function, &exception);
    if (!callee || exception || !JSObjectIsFunction(m_context, callee))
        return nullptr;
    JSValueRef result = JSObjectCallAsFunction(m_context, callee, nullptr, count, arguments, &exception);
    if (exception) {
        notifyException(exception);
        return JSValueMakeUndefined(m_context);
    }
    return result;
}
