#pragma once

#include "engine/CallReporter.h"
#include "tools/results/JSONToolResult.h"
#include "tools/scripting/ScriptThreadPool.h"
#include "tools/scripting/ScriptValue.h"

#include <QString>
#include <memory>
#include <optional>

// The script tool runtime: the router calls it for tools of type "ScriptTool", the script
// editor for its runs. One call takes the script and the pre-processor as they are on disk
// now (ScriptSourceCache), takes a fresh context with the host object `Kelvara`, `stdOut`,
// `stdErr`, `console` and the pre-processor in place (made ahead on a ScriptThreadPool
// thread, or now), declares `__moduleDir`, evaluates the script, calls toolEntry and turns
// what it gives into a JSONToolResult. Every call's context is new and evaluates the file
// anew; nothing a call leaves reaches the next.
//
// The caller waits for the call, which runs on a pool thread (on the caller's own when that
// is the main thread, or after the pool stopped); calls on different threads run side by
// side. The
// script's folder is its own: relative paths in its host calls and require() resolve there,
// and the process's current directory is left alone.
class PluginScripting {
public:
    // reporter carries Kelvara.log's and Kelvara.progress's reports to the calling client
    // (none: the log gets them, progress is dropped); loggerName names the source of those
    // messages (the script file's base name when empty).
    static JSONToolResult callScript(const QString &sid, const QString &scriptPath, const QString &handlerName,
                                     const QString &jsonParams, std::shared_ptr<MCP::CallReporter> reporter = nullptr,
                                     const QString &loggerName = QString());

    // Where a script lives: an absolute path as it stands, a relative one inside the
    // application's container (AppPaths::dataDir()).
    static QString resolvedScriptPath(const QString &scriptPath);
    // The script's text, as UTF-8 inside the security scope of its path, or nothing (both
    // logged). Read again only when the file changed on disk since the last call.
    static std::optional<ScriptValue::String> loadScriptText(const QString &path, QString *failure = nullptr);
    // bootstrap.js from the resources' ToolSDK/Scripts folder, or nothing (logged); kept
    // like a script's text.
    static std::optional<ScriptValue::String> loadPreprocessor();
    static QString preprocessorPath();

    // The source that defines `console`, evaluated in every context.
    static const QString &consoleSource();
    // "var __moduleDir = '…';" with every "'" of the folder written "\'".
    static QString moduleDirDeclaration(const QString &moduleDir);

private:
    struct Call {
        QString sid;
        QString path;
        QString handlerName;
        QString jsonParams;
        JSStringRef scriptText;  // held by the caller for the call's length
        std::shared_ptr<MCP::CallReporter> reporter;
        QString loggerName;
    };
    // One call in a context: the slot's prepared one when it fits, else a new one.
    static JSONToolResult run(const Call &call, ScriptThreadPool::Slot *slot);
};
