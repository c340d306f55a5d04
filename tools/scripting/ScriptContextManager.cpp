#include "tools/scripting/ScriptContextManager.h"

#include "diagnostics/LogController.h"
#include "tools/scripting/ScriptValue.h"
#include "tools/security/BookmarkController.h"

ScriptContextManager *ScriptContextManager::shared()
{
    static auto *instance = new ScriptContextManager;
    return instance;
}

ScriptContextManager::ScriptContextManager()
    : m_logger(LogController::shared())
{
}

std::shared_ptr<ScriptContext> ScriptContextManager::contextForSession(const QString &sid,
                                                                     std::shared_ptr<ScriptContext> offered)
{
    {
        std::lock_guard lock(m_contextLock);
        if (auto found = m_contexts.value(sid))
            return found;
    }
    // Made outside the lock: making a context is most of a call's cost, and calls of
    // different sessions must not wait for one another here.
    std::shared_ptr<ScriptContext> context = offered ? std::move(offered) : ScriptContext::create();
    if (!context)
        return nullptr;
    context->setExceptionHandler([this](JSContextRef ctx, JSValueRef exception) { handleException(ctx, exception); });
    std::lock_guard lock(m_contextLock);
    // Another call of the same session may have been quicker: the session keeps one.
    if (auto found = m_contexts.value(sid))
        return found;
    m_contexts.insert(sid, context);
    return context;
}

void ScriptContextManager::clearContext(const QString &sid)
{
    std::shared_ptr<ScriptContext> removed;
    {
        std::lock_guard lock(m_contextLock);
        removed = m_contexts.take(sid);
    }
    m_logger->log(QStringLiteral("[Script] Cleared context for session: ") + sid, -1, MCPLogMessageType::Debug);
    // `removed` is released here, outside the lock.
}

bool ScriptContextManager::hasContext(const QString &sid) const
{
    std::lock_guard lock(m_contextLock);
    return m_contexts.contains(sid);
}

void ScriptContextManager::handleException(JSContextRef ctx, JSValueRef exception) const
{
    QString message = QStringLiteral("Unknown JavaScript error");
    QString stack;
    if (exception) {
        if (auto text = ScriptValue::stringForm(ctx, exception))
            message = *text;
        JSValueRef stackValue = ScriptValue::property(ctx, exception, QStringLiteral("stack"));
        if (!JSValueIsUndefined(ctx, stackValue))
            stack = ScriptValue::stringForm(ctx, stackValue).value_or(QString());
    }
    m_logger->log(QStringLiteral("[Script] ") + message + QLatin1Char('\n') + stack, 500, MCPLogMessageType::Error);
}
