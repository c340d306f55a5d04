#pragma once

#include "tools/scripting/ScriptContext.h"

#include <QHash>
#include <QString>
#include <memory>
#include <mutex>

class LogController;

// The JavaScript contexts of the script calls now under way, one per session id. An entry
// lives for one call; calls of one session that overlap in time share its context.
// Any thread: contextLock guards only the table, never a running script.
class ScriptContextManager {
public:
    static ScriptContextManager *shared();

    ScriptContextManager();

    // The session's context; when there is none, `offered` (a context made ahead) or a new
    // one becomes it, with the exception handler installed. Nothing when the engine can
    // make no context.
    std::shared_ptr<ScriptContext> contextForSession(const QString &sid,
                                                     std::shared_ptr<ScriptContext> offered = nullptr);
    // Forgets the session's context and logs that it did.
    void clearContext(const QString &sid);
    bool hasContext(const QString &sid) const;

    // Logs an exception as "[Script] " message "\n" stack, code 500.
    void handleException(JSContextRef ctx, JSValueRef exception) const;

private:
    LogController *m_logger;
    QHash<QString, std::shared_ptr<ScriptContext>> m_contexts;
    mutable std::mutex m_contextLock;
};
