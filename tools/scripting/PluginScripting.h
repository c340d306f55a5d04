#pragma once

#include "tools/results/JSONToolResult.h"
#include "tools/scripting/ScriptValue.h"

#include <QString>
#include <optional>

// The script tool runtime: the router calls it for tools of type "ScriptTool", the script
// editor for its runs. One call takes the script and the pre-processor as they are on disk
// now (ScriptSourceCache), makes a fresh context with the host object `Kelvara`, `stdOut`,
// `stdErr`, `console` and `__moduleDir`, evaluates the pre-processor and the script, calls
// toolEntry and turns what it gives into a JSONToolResult.
//
// Synchronous on the caller's thread; calls on different threads run side by side. Each
// call makes the current directory of the process the script's folder and leaves it so.
class PluginScripting {
public:
    static JSONToolResult callScript(const QString &sid, const QString &scriptPath, const QString &handlerName,
                                     const QString &jsonParams);

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
};
