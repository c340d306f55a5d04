#include "tools/scripting/ScriptBridgeExports.h"

#include "tools/scripting/ScriptBridge.h"
#include "tools/scripting/ScriptValue.h"

#include <cmath>
#include <mutex>

namespace {

using BridgeHolder = std::shared_ptr<ScriptBridge>;

#define KELVARA_EXPORT(name)                                                                                    \
    JSValueRef name(JSContextRef ctx, JSObjectRef, JSObjectRef thisObject, size_t argc, const JSValueRef argv[], \
                    JSValueRef *exception)

// A mistake in a call to the client's log or progress is the script's error: thrown, so that
// it shows where it was made instead of sending nothing without a word.
JSValueRef thrown(JSContextRef ctx, JSValueRef *exception, const QString &message)
{
    if (exception) {
        const JSValueRef text = ScriptValue::makeString(ctx, message);
        *exception = JSObjectMakeError(ctx, 1, &text, nullptr);
    }
    return JSValueMakeUndefined(ctx);
}

// Two forms share the name: log(level, code, message) with a number second writes Kelvara's
// own log (console uses it); log(level, text, data) is a message for the calling client.
KELVARA_EXPORT(exportLog)
{
    ScriptBridge *bridge = ScriptBridgeExports::bridgeOf(ctx, thisObject);
    if (!bridge)
        return JSValueMakeUndefined(ctx);
    if (argc >= 2 && JSValueIsNumber(ctx, argv[1])) {
        bridge->log(ScriptValue::argumentString(ctx, argc, argv, 0), ScriptValue::argumentInt(ctx, argc, argv, 1),
                    ScriptValue::argumentString(ctx, argc, argv, 2));
        return JSValueMakeUndefined(ctx);
    }
    const QString level = ScriptValue::argumentString(ctx, argc, argv, 0).toLower();
    if (!ScriptBridge::clientLogLevels().contains(level)) {
        return thrown(ctx, exception,
                      QStringLiteral("Kelvara.log: unknown level '%1'; the levels are %2")
                          .arg(ScriptValue::argumentString(ctx, argc, argv, 0),
                               ScriptBridge::clientLogLevels().join(QStringLiteral(", "))));
    }
    const QString text = ScriptValue::optionalArgumentString(ctx, argc, argv, 1);
    std::optional<MCP::JSONValue> data;
    if (argc > 2 && !JSValueIsUndefined(ctx, argv[2])) {
        JSValueRef failure = nullptr;
        data = ScriptValue::toJSON(ctx, argv[2], &failure);
        if (failure) {
            if (exception)
                *exception = failure;
            return JSValueMakeUndefined(ctx);
        }
    }
    bridge->logToClient(level, text.isNull() ? QString() : text, data);
    return JSValueMakeUndefined(ctx);
}

KELVARA_EXPORT(exportProgress)
{
    ScriptBridge *bridge = ScriptBridgeExports::bridgeOf(ctx, thisObject);
    if (!bridge)
        return JSValueMakeUndefined(ctx);
    auto number = [&](size_t i) -> std::optional<double> {
        if (i >= argc || !JSValueIsNumber(ctx, argv[i]))
            return std::nullopt;
        const double value = JSValueToNumber(ctx, argv[i], nullptr);
        return std::isfinite(value) ? std::optional<double>(value) : std::nullopt;
    };
    const std::optional<double> progress = number(0);
    if (!progress)
        return thrown(ctx, exception, QStringLiteral("Kelvara.progress: progress must be a finite number"));
    std::optional<double> total;
    if (argc > 1 && !JSValueIsUndefined(ctx, argv[1]) && !JSValueIsNull(ctx, argv[1])) {
        total = number(1);
        if (!total)
            return thrown(ctx, exception, QStringLiteral("Kelvara.progress: total must be a finite number when given"));
    }
    const QString message = ScriptValue::optionalArgumentString(ctx, argc, argv, 2);
    bridge->progress(*progress, total, message.isNull() ? QString() : message);
    return JSValueMakeUndefined(ctx);
}

KELVARA_EXPORT(exportCloseStream)
{
    ScriptBridge *bridge = ScriptBridgeExports::bridgeOf(ctx, thisObject);
    if (!bridge)
        return JSValueMakeBoolean(ctx, false);
    double retry = 1000;
    if (argc > 0 && !JSValueIsUndefined(ctx, argv[0])) {
        retry = JSValueIsNumber(ctx, argv[0]) ? JSValueToNumber(ctx, argv[0], nullptr) : -1;
        if (!std::isfinite(retry) || retry < 0 || retry > 86400000)
            return thrown(ctx, exception, QStringLiteral("Kelvara.closeStream: retry must be a number of milliseconds from 0 to 86400000"));
    }
    return JSValueMakeBoolean(ctx, bridge->closeStream(std::chrono::milliseconds(int64_t(retry))));
}

// The client's answer as a JavaScript value, or the failure thrown.
JSValueRef answerValue(JSContextRef ctx, JSValueRef *exception, const ScriptBridge::ClientAnswer &answer)
{
    if (!answer.result)
        return thrown(ctx, exception, answer.error);
    std::string text;
    answer.result->appendTo(text, 0);
    JSStringRef json = JSStringCreateWithUTF8CString(text.c_str());
    JSValueRef value = JSValueMakeFromJSONString(ctx, json);
    JSStringRelease(json);
    return value ? value : JSValueMakeUndefined(ctx);
}

// The JSON of an argument; a value that has none (a function, a cycle) is thrown.
std::optional<MCP::JSONValue> jsonArgument(JSContextRef ctx, size_t argc, const JSValueRef argv[], size_t i,
                                           JSValueRef *exception)
{
    if (i >= argc || JSValueIsUndefined(ctx, argv[i]))
        return MCP::JSONValue();
    JSValueRef failure = nullptr;
    auto value = ScriptValue::toJSON(ctx, argv[i], &failure);
    if (failure) {
        if (exception)
            *exception = failure;
        return std::nullopt;
    }
    return value ? value : std::optional<MCP::JSONValue>(MCP::JSONValue());
}

// Kelvara.elicit(message, requestedSchema): blocks until the client answers.
KELVARA_EXPORT(exportElicit)
{
    ScriptBridge *bridge = ScriptBridgeExports::bridgeOf(ctx, thisObject);
    if (!bridge)
        return JSValueMakeUndefined(ctx);
    if (argc < 1 || !JSValueIsString(ctx, argv[0]))
        return thrown(ctx, exception, QStringLiteral("Kelvara.elicit: message must be a text"));
    const QString message = ScriptValue::argumentString(ctx, argc, argv, 0);
    const auto schema = jsonArgument(ctx, argc, argv, 1, exception);
    if (!schema)
        return JSValueMakeUndefined(ctx);
    return answerValue(ctx, exception, bridge->elicit(message, *schema));
}

// Kelvara.sample(messages, options): a text stands for one user message of that text.
KELVARA_EXPORT(exportSample)
{
    ScriptBridge *bridge = ScriptBridgeExports::bridgeOf(ctx, thisObject);
    if (!bridge)
        return JSValueMakeUndefined(ctx);
    std::optional<MCP::JSONValue> messages;
    if (argc > 0 && JSValueIsString(ctx, argv[0])) {
        MCP::JSONValue content;
        content["type"] = MCP::JSONValue(std::string("text"));
        content["text"] = MCP::JSONValue(ScriptValue::argumentString(ctx, argc, argv, 0).toStdString());
        MCP::JSONValue message;
        message["role"] = MCP::JSONValue(std::string("user"));
        message["content"] = std::move(content);
        messages = MCP::JSONValue(MCP::JSONValue::ArrayType{std::move(message)});
    } else {
        messages = jsonArgument(ctx, argc, argv, 0, exception);
        if (!messages)
            return JSValueMakeUndefined(ctx);
    }
    const auto options = jsonArgument(ctx, argc, argv, 1, exception);
    if (!options)
        return JSValueMakeUndefined(ctx);
    return answerValue(ctx, exception, bridge->sample(*messages, *options));
}

KELVARA_EXPORT(exportOpenFile)
{
    if (ScriptBridge *bridge = ScriptBridgeExports::bridgeOf(ctx, thisObject)) {
        if (auto text = bridge->openFile(ScriptValue::argumentString(ctx, argc, argv, 0)))
            return ScriptValue::makeString(ctx, *text);
    }
    return JSValueMakeUndefined(ctx);
}

KELVARA_EXPORT(exportSaveFile)
{
    bool saved = false;
    if (ScriptBridge *bridge = ScriptBridgeExports::bridgeOf(ctx, thisObject)) {
        saved = bridge->saveFile(ScriptValue::argumentString(ctx, argc, argv, 0),
                                 ScriptValue::argumentString(ctx, argc, argv, 1));
    }
    return JSValueMakeBoolean(ctx, saved);
}

KELVARA_EXPORT(exportReadFile)
{
    if (ScriptBridge *bridge = ScriptBridgeExports::bridgeOf(ctx, thisObject)) {
        if (auto text = bridge->readFile(ScriptValue::argumentString(ctx, argc, argv, 0)))
            return ScriptValue::makeString(ctx, *text);
    }
    return JSValueMakeUndefined(ctx);
}

KELVARA_EXPORT(exportReadFileBase64)
{
    if (ScriptBridge *bridge = ScriptBridgeExports::bridgeOf(ctx, thisObject)) {
        if (auto data = bridge->readFileBase64(ScriptValue::argumentString(ctx, argc, argv, 0)))
            return ScriptValue::makeString(ctx, *data);
    }
    return JSValueMakeUndefined(ctx);
}

KELVARA_EXPORT(exportSetToolResult)
{
    if (ScriptBridge *bridge = ScriptBridgeExports::bridgeOf(ctx, thisObject))
        bridge->setToolResult(ScriptValue::argumentString(ctx, argc, argv, 0));
    return JSValueMakeUndefined(ctx);
}

KELVARA_EXPORT(exportFileExists)
{
    bool exists = false;
    if (ScriptBridge *bridge = ScriptBridgeExports::bridgeOf(ctx, thisObject))
        exists = bridge->fileExists(ScriptValue::argumentString(ctx, argc, argv, 0));
    return JSValueMakeBoolean(ctx, exists);
}

KELVARA_EXPORT(exportListDirectory)
{
    QStringList names;
    if (ScriptBridge *bridge = ScriptBridgeExports::bridgeOf(ctx, thisObject))
        names = bridge->listDirectory(ScriptValue::argumentString(ctx, argc, argv, 0));
    return ScriptValue::makeStringArray(ctx, names);
}

KELVARA_EXPORT(exportCreateDirectory)
{
    bool created = false;
    if (ScriptBridge *bridge = ScriptBridgeExports::bridgeOf(ctx, thisObject))
        created = bridge->createDirectory(ScriptValue::argumentString(ctx, argc, argv, 0));
    return JSValueMakeBoolean(ctx, created);
}

KELVARA_EXPORT(exportDeleteFile)
{
    bool deleted = false;
    if (ScriptBridge *bridge = ScriptBridgeExports::bridgeOf(ctx, thisObject))
        deleted = bridge->deleteFile(ScriptValue::argumentString(ctx, argc, argv, 0));
    return JSValueMakeBoolean(ctx, deleted);
}

KELVARA_EXPORT(exportGetDocumentsPath)
{
    if (ScriptBridge *bridge = ScriptBridgeExports::bridgeOf(ctx, thisObject))
        return ScriptValue::makeString(ctx, bridge->getDocumentsPath());
    return JSValueMakeUndefined(ctx);
}

KELVARA_EXPORT(exportGetTempPath)
{
    if (ScriptBridge *bridge = ScriptBridgeExports::bridgeOf(ctx, thisObject))
        return ScriptValue::makeString(ctx, bridge->getTempPath());
    return JSValueMakeUndefined(ctx);
}

// The JSON arguments of the HTTP methods and their bodies are optional: left out (or
// undefined, or null) they are absent, not the text "undefined".
KELVARA_EXPORT(exportHttpGet)
{
    if (ScriptBridge *bridge = ScriptBridgeExports::bridgeOf(ctx, thisObject)) {
        return ScriptValue::makeString(ctx, bridge->httpGet(ScriptValue::argumentString(ctx, argc, argv, 0),
                                                            ScriptValue::optionalArgumentString(ctx, argc, argv, 1)));
    }
    return JSValueMakeUndefined(ctx);
}

KELVARA_EXPORT(exportHttpRequest)
{
    if (ScriptBridge *bridge = ScriptBridgeExports::bridgeOf(ctx, thisObject)) {
        return ScriptValue::makeString(
            ctx, bridge->httpRequest(ScriptValue::argumentString(ctx, argc, argv, 0),
                                     ScriptValue::argumentString(ctx, argc, argv, 1),
                                     ScriptValue::optionalArgumentString(ctx, argc, argv, 2),
                                     ScriptValue::optionalArgumentString(ctx, argc, argv, 3)));
    }
    return JSValueMakeUndefined(ctx);
}

KELVARA_EXPORT(exportHttpPost)
{
    if (ScriptBridge *bridge = ScriptBridgeExports::bridgeOf(ctx, thisObject)) {
        return ScriptValue::makeString(ctx, bridge->httpPost(ScriptValue::argumentString(ctx, argc, argv, 0),
                                                             ScriptValue::optionalArgumentString(ctx, argc, argv, 1),
                                                             ScriptValue::optionalArgumentString(ctx, argc, argv, 2)));
    }
    return JSValueMakeUndefined(ctx);
}

KELVARA_EXPORT(exportDownloadFile)
{
    bool downloaded = false;
    if (ScriptBridge *bridge = ScriptBridgeExports::bridgeOf(ctx, thisObject)) {
        downloaded = bridge->downloadFile(ScriptValue::argumentString(ctx, argc, argv, 0),
                                          ScriptValue::argumentString(ctx, argc, argv, 1));
    }
    return JSValueMakeBoolean(ctx, downloaded);
}

KELVARA_EXPORT(exportResourceConfig)
{
    if (ScriptBridge *bridge = ScriptBridgeExports::bridgeOf(ctx, thisObject))
        return ScriptValue::makeString(ctx, bridge->resourceConfig(ScriptValue::argumentString(ctx, argc, argv, 0)));
    return JSValueMakeUndefined(ctx);
}

KELVARA_EXPORT(exportPromptConfig)
{
    if (ScriptBridge *bridge = ScriptBridgeExports::bridgeOf(ctx, thisObject))
        return ScriptValue::makeString(ctx, bridge->promptConfig(ScriptValue::argumentString(ctx, argc, argv, 0)));
    return JSValueMakeUndefined(ctx);
}

// Output names left out (or undefined, or null) fall back to the globals shell() fills.
QString outputName(JSContextRef ctx, size_t argc, const JSValueRef argv[], size_t i, const QString &fallback)
{
    const QString name = ScriptValue::optionalArgumentString(ctx, argc, argv, i);
    return name.isNull() ? fallback : name;
}

KELVARA_EXPORT(exportProcess)
{
    bool succeeded = false;
    if (ScriptBridge *bridge = ScriptBridgeExports::bridgeOf(ctx, thisObject)) {
        succeeded = bridge->process(ScriptValue::argumentString(ctx, argc, argv, 0),
                                    ScriptValue::argumentArray(ctx, argc, argv, 1),
                                    outputName(ctx, argc, argv, 2, QStringLiteral("stdOut")),
                                    outputName(ctx, argc, argv, 3, QStringLiteral("stdErr")));
    }
    return JSValueMakeBoolean(ctx, succeeded);
}

KELVARA_EXPORT(exportShell)
{
    bool succeeded = false;
    if (ScriptBridge *bridge = ScriptBridgeExports::bridgeOf(ctx, thisObject))
        succeeded = bridge->shell(ScriptValue::argumentString(ctx, argc, argv, 0));
    return JSValueMakeBoolean(ctx, succeeded);
}

#undef KELVARA_EXPORT

constexpr JSPropertyAttributes kMethod = kJSPropertyAttributeReadOnly | kJSPropertyAttributeDontDelete;

// The exported interface, in its order.
const JSStaticFunction kExports[] = {
    {"log", exportLog, kMethod},
    {"openFile", exportOpenFile, kMethod},
    {"saveFile", exportSaveFile, kMethod},
    {"readFile", exportReadFile, kMethod},
    {"readFileBase64", exportReadFileBase64, kMethod},
    {"setToolResult", exportSetToolResult, kMethod},
    {"fileExists", exportFileExists, kMethod},
    {"listDirectory", exportListDirectory, kMethod},
    {"createDirectory", exportCreateDirectory, kMethod},
    {"deleteFile", exportDeleteFile, kMethod},
    {"getDocumentsPath", exportGetDocumentsPath, kMethod},
    {"getTempPath", exportGetTempPath, kMethod},
    {"httpGet", exportHttpGet, kMethod},
    {"httpRequest", exportHttpRequest, kMethod},
    {"httpPost", exportHttpPost, kMethod},
    {"downloadFile", exportDownloadFile, kMethod},
    {"resourceConfig", exportResourceConfig, kMethod},
    {"promptConfig", exportPromptConfig, kMethod},
    {"process", exportProcess, kMethod},
    {"shell", exportShell, kMethod},
    {"progress", exportProgress, kMethod},
    {"closeStream", exportCloseStream, kMethod},
    {"elicit", exportElicit, kMethod},
    {"sample", exportSample, kMethod},
    {nullptr, nullptr, 0},
};

void finalizeHostObject(JSObjectRef object)
{
    delete static_cast<BridgeHolder *>(JSObjectGetPrivate(object));
}

}  // namespace

JSClassRef ScriptBridgeExports::hostClass()
{
    static JSClassRef cls = nullptr;
    static std::once_flag once;
    std::call_once(once, [] {
        JSClassDefinition definition = kJSClassDefinitionEmpty;
        definition.className = "ScriptBridge";
        definition.staticFunctions = kExports;
        definition.finalize = finalizeHostObject;
        cls = JSClassCreate(&definition);
    });
    return cls;
}

JSObjectRef ScriptBridgeExports::makeHostObject(JSContextRef ctx, const std::shared_ptr<ScriptBridge> &bridge)
{
    return JSObjectMake(ctx, hostClass(), new BridgeHolder(bridge));
}

ScriptBridge *ScriptBridgeExports::bridgeOf(JSContextRef ctx, JSObjectRef object)
{
    if (!object || !JSValueIsObjectOfClass(ctx, object, hostClass()))
        return nullptr;
    auto *holder = static_cast<BridgeHolder *>(JSObjectGetPrivate(object));
    return holder ? holder->get() : nullptr;
}
