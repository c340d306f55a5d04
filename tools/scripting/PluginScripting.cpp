#include "tools/scripting/PluginScripting.h"

#include "base/AppPaths.h"
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
                                           const QString &jsonParams)
{
    LogController *logger = LogController::shared();
    ScriptContextManager *manager = ScriptContextManager::shared();

    logger->log(QStringLiteral("[Script] Calling script: ") + scriptPath + QStringLiteral(", handler: ") + handlerName
                    + QStringLiteral(", json: ") + jsonParams,
                -1, MCPLogMessageType::Info);

    // A relative path names a file in the application's container: the current directory
    // is whatever folder the last script call left, so it would name nothing reliable.
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

    // Changing the directory may fail; that is not looked at.
    const QString moduleDir = QFileInfo(path).absolutePath();
    QDir::setCurrent(moduleDir);

    const std::shared_ptr<ScriptContext> context = manager->contextForSession(sid);
    if (!context)
        return ToolError::report(logger, QStringLiteral("[Script] Failed to create JavaScript context"), -1, MCPLogMessageType::Info);
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

    auto bridge = std::make_shared<ScriptBridge>(sid);
    context->setObjectForKeyedSubscript(QStringLiteral("Kelvara"), ScriptBridgeExports::makeHostObject(ctx, bridge));
    bridge->setJSContext(context);

    context->setObjectForKeyedSubscript(QStringLiteral("stdOut"), JSObjectMakeArray(ctx, 0, nullptr, nullptr));
    context->setObjectForKeyedSubscript(QStringLiteral("stdErr"), JSObjectMakeArray(ctx, 0, nullptr, nullptr));

    context->evaluateScript(consoleSource());
    context->evaluateScript(moduleDirDeclaration(moduleDir));

    const std::optional<ScriptValue::String> preprocessor = loadPreprocessor();
    if (!preprocessor) {
        return ToolError::report(logger, QStringLiteral("[Script] Failed to load pre-processor from bundle"), -1,
                                 MCPLogMessageType::Info);
    }
    context->evaluateScript(preprocessor->get(), QStringLiteral("bootstrap.js"));
    context->evaluateScript(scriptText->get(), QUrl::fromLocalFile(path).toString());

    JSValueRef toolEntry = context->objectForKeyedSubscript(QStringLiteral("toolEntry"));
    if (watchdog.fired())
        return stoppedResult();
    if (!toolEntry || JSValueIsUndefined(ctx, toolEntry)) {
        return ToolError::report(logger, QStringLiteral("[Script] Script must define 'toolEntry' function"), -1,
                                 MCPLogMessageType::Info);
    }

    const JSValueRef arguments[] = {
        ScriptValue::makeString(ctx, sid),
        ScriptValue::makeString(ctx, handlerName),
        ScriptValue::makeString(ctx, jsonParams),
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
