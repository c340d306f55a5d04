#include "tools/scripting/PluginScripting.h"

#include "base/AppPaths.h"
#include "base/MainThread.h"
#include "engine/CancellationToken.h"
#include "diagnostics/LogController.h"
#include "tools/builtin/Utf8TextFile.h"
#include "tools/results/ToolError.h"
#include "tools/scripting/ScriptBridge.h"
#include "tools/scripting/ScriptBridgeExports.h"
#include "tools/scripting/ScriptContextManager.h"
#include "tools/scripting/ScriptSourceCache.h"
#include "tools/scripting/ScriptValue.h"
#include "tools/scripting/ScriptWatchdog.h"
#include "tools/security/BookmarkController.h"
#include "tools/security/ScopedSecurityAccess.h"

#include <QDir>
#include <QFileInfo>

const QString &PluginScripting::consoleSource()
{
    static const QString source = QStringLiteral(
        "var console = {\n"
        "    log: function(msg) { Kelvara.log('info', -1, String(msg)); },\n"
        "    error: function(msg) { Kelvara.log('error', -2, String(msg)); },\n"
        "    warn: function(msg) { Kelvara.log('warning', -3, String(msg)); },\n"
        "    debug: function(msg) { Kelvara.log('debug', -4, String(msg)); }\n"
        "};");
    return source;
}

QString PluginScripting::moduleDirDeclaration(const QString &moduleDir)
{
    // Only the quote is escaped: a backslash in the folder name stays a JavaScript escape.
    QString escaped = moduleDir;
    escaped.replace(QLatin1Char('\''), QStringLiteral("\\'"));
    return QStringLiteral("var __moduleDir = '") + escaped + QStringLiteral("';");
}

QString PluginScripting::resolvedScriptPath(const QString &scriptPath)
{
    if (scriptPath.isEmpty() || QDir::isAbsolutePath(scriptPath))
        return scriptPath;
    return QDir::cleanPath(AppPaths::dataDir() + QLatin1Char('/') + scriptPath);
}

std::optional<ScriptValue::String> PluginScripting::loadScriptText(const QString &path, QString *failure)
{
    LogController *logger = LogController::shared();
    ScopedSecurityAccess access(BookmarkController::shared(), QUrl::fromLocalFile(path));
    ScriptSourceCache::Failure why = ScriptSourceCache::Failure::None;
    QString description;
    if (std::optional<ScriptValue::String> source = ScriptSourceCache::shared().load(path, &why, &description)) {
        logger->log(QStringLiteral("[Script] Loaded script from: ") + path, -1, MCPLogMessageType::Debug);
        return source;
    }
    if (why == ScriptSourceCache::Failure::Unreadable) {
        logger->log(QStringLiteral("[Script] Error reading file at ") + path + QStringLiteral(": ") + description, 500,
                    MCPLogMessageType::Error);
        if (failure && Utf8TextFile::describesProcessLimit(description))
            *failure = description;
    }
    logger->log(QStringLiteral("[Script] Script file not found: ") + path, 404, MCPLogMessageType::Error);
    return std::nullopt;
}

QString PluginScripting::preprocessorPath()
{
    return AppPaths::resourcesDir() + QStringLiteral("/ToolSDK/Scripts/bootstrap.js");
}

std::optional<ScriptValue::String> PluginScripting::loadPreprocessor()
{
    LogController *logger = LogController::shared();
    const QString resources = AppPaths::resourcesDir();
    ScriptSourceCache::Failure why = ScriptSourceCache::Failure::None;
    QString description;
    std::optional<ScriptValue::String> source =
        resources.isEmpty() ? std::nullopt : ScriptSourceCache::shared().load(preprocessorPath(), &why, &description);
    if (!source && (resources.isEmpty() || !QFileInfo(resources).isDir())) {
        logger->log(QStringLiteral("[Script] Bundle resource path not found"), 404, MCPLogMessageType::Error);
        return std::nullopt;
    }
    if (!source) {
        if (description.isEmpty())
            Utf8TextFile::read(preprocessorPath(), &description);  // the reader's words for a missing file
        logger->log(QStringLiteral("[Script] Error reading bundle script ") + resources + QStringLiteral(": ") + description,
                    500, MCPLogMessageType::Error);
        return std::nullopt;
    }
    logger->log(QStringLiteral("[Script] Loaded bundle script: ") + resources, -1, MCPLogMessageType::Debug);
    return source;
}

JSONToolResult PluginScripting::callScript(const QString &sid, const QString &scriptPath, const QString &handlerName,
                                           const QString &jsonParams, std::shared_ptr<MCP::CallReporter> reporter,
                                           const QString &loggerName)
{
    LogController *logger = LogController::shared();
    logger->log(QStringLiteral("[Script] Calling script: ") + scriptPath + QStringLiteral(", handler: ") + handlerName
                    + QStringLiteral(", json: ") + jsonParams,
                -1, MCPLogMessageType::Info);

    // A relative path names a file in the application's container: the current directory
    // belongs to the whole process and names nothing reliable.
    const QString path = resolvedScriptPath(scriptPath);
    QString failure;
    const std::optional<ScriptValue::String> scriptText = loadScriptText(path, &failure);
    if (!scriptText) {
        // A file that is there but could not be read because the process ran out of files or
        // memory says so: "not found" would send the user looking for the wrong fault.
        return ToolError::report(logger, QStringLiteral("[Script] Failed to load script file: ") + path +
                                     (failure.isEmpty() ? QString() : QStringLiteral(": ") + failure),
                                 -1, MCPLogMessageType::Info);
    }

    const Call call{sid, path, handlerName, jsonParams, scriptText->get(), std::move(reporter), loggerName};
    JSONToolResult result;
    // On a pool thread with a context prepared ahead; on this thread when it is the main
    // thread (a script may wait for it) or the pool has stopped.
    const bool pooled = !MainThread::isCurrent() &&
                        ScriptThreadPool::shared().run([&](ScriptThreadPool::Slot &slot) { result = run(call, &slot); },
                                                       MCP::CancellationToken::current());
    if (!pooled)
        result = run(call, nullptr);
    return result;
}

JSONToolResult PluginScripting::run(const Call &call, ScriptThreadPool::Slot *slot)
{
    LogController *logger = LogController::shared();
    ScriptContextManager *manager = ScriptContextManager::shared();
    const QString &sid = call.sid;

    // The script's own folder, given to it (its bridge and __moduleDir) rather than made the
    // process's current directory, which every other thread shares.
    const QFileInfo scriptFile(call.path);
    const QString moduleDir = scriptFile.absolutePath();

    // Looked at before the context is taken: a context prepared ahead serves only a call that
    // finds the pre-processor it evaluated. A missing one fails below, in a context as ever.
    const std::optional<ScriptValue::String> preprocessor = loadPreprocessor();
    std::shared_ptr<ScriptContext> offered;
    std::shared_ptr<ScriptBridge> preparedBridge;
    if (slot && slot->prepared) {
        if (preprocessor && slot->preparedWith && slot->preparedWith->get() == preprocessor->get()) {
            offered = std::move(slot->prepared);
            preparedBridge = std::move(slot->preparedBridge);
        } else {
            // Prepared with a pre-processor text that is no longer the file's: gone first, so
            // that the thread's group is free for the context made in its place.
            slot->clear();
        }
    }
    const std::shared_ptr<ScriptContext> context = manager->contextForSession(sid, offered);
    if (!context)
        return ToolError::report(logger, QStringLiteral("[Script] Failed to create JavaScript context"), -1, MCPLogMessageType::Info);
    // Released by the pool's thread once the caller has the answer.
    if (slot)
        slot->finished = context;
    // Taken by a session whose context another call of it had made already: kept for the next.
    const bool prepared = offered && context == offered;
    if (slot && offered && !prepared) {
        slot->prepared = std::move(offered);
        slot->preparedBridge = std::move(preparedBridge);
    }
    JSGlobalContextRef ctx = context->jsContext();
    // Everything the call runs in this context is under the limits, the tool's own
    // top-level code included.
    const auto [timeLimit, memoryLimit] = ScriptWatchdog::configuredLimits();
    ScriptWatchdog watchdog(context->group(), timeLimit, memoryLimit);
    auto stoppedResult = [&] {
        manager->clearContext(sid);
        // What the script took goes with its context, not with some later call's.
        if (watchdog.stopped() == ScriptWatchdog::Stop::MemoryLimit)
            context->discardGroupAtEnd();
        return ToolError::report(logger, watchdog.stopText(), -1, MCPLogMessageType::Error);
    };

    // A prepared context has the host object, `stdOut`, `stdErr`, `console` and the
    // pre-processor in place already.
    std::shared_ptr<ScriptBridge> bridge = prepared ? preparedBridge : std::make_shared<ScriptBridge>(sid);
    bridge->setSid(sid);
    bridge->setModuleDir(moduleDir);
    bridge->setReporter(call.reporter, call.loggerName.isEmpty() ? scriptFile.completeBaseName() : call.loggerName);
    if (!prepared) {
        context->setObjectForKeyedSubscript(QStringLiteral("Kelvara"), ScriptBridgeExports::makeHostObject(ctx, bridge));
        context->setObjectForKeyedSubscript(QStringLiteral("stdOut"), JSObjectMakeArray(ctx, 0, nullptr, nullptr));
        context->setObjectForKeyedSubscript(QStringLiteral("stdErr"), JSObjectMakeArray(ctx, 0, nullptr, nullptr));
        context->evaluateScript(consoleSource());
    }
    bridge->setJSContext(context);
    context->evaluateScript(moduleDirDeclaration(moduleDir));

    if (!preprocessor) {
        return ToolError::report(logger, QStringLiteral("[Script] Failed to load pre-processor from bundle"), -1,
                                 MCPLogMessageType::Info);
    }
    if (!prepared)
        context->evaluateScript(preprocessor->get(), QStringLiteral("bootstrap.js"));
    context->evaluateScript(call.scriptText, QUrl::fromLocalFile(call.path).toString());

    JSValueRef toolEntry = context->objectForKeyedSubscript(QStringLiteral("toolEntry"));
    if (watchdog.fired())
        return stoppedResult();
    if (!toolEntry || JSValueIsUndefined(ctx, toolEntry)) {
        return ToolError::report(logger, QStringLiteral("[Script] Script must define 'toolEntry' function"), -1,
                                 MCPLogMessageType::Info);
    }

    const JSValueRef arguments[] = {
        ScriptValue::makeString(ctx, sid),
        ScriptValue::makeString(ctx, call.handlerName),
        ScriptValue::makeString(ctx, call.jsonParams),
    };
    JSValueRef returned = context->callWithArguments(toolEntry, arguments, 3);
    if (returned) {
        JSValueRef thrown = nullptr;
        const QString text = ScriptValue::stringForm(ctx, returned, &thrown).value_or(QString());
        if (thrown)
            context->notifyException(thrown);
        if (!text.isEmpty() && !bridge->toolResult())
            bridge->setToolResult(text);
    }

    if (watchdog.fired())
        return stoppedResult();
    manager->clearContext(sid);
    if (std::optional<JSONToolResult> result = bridge->toolResult())
        return *result;
    return ToolError::report(logger, QStringLiteral("[Script] Script must return a JSON result structure"), -1,
                             MCPLogMessageType::Info);
}
