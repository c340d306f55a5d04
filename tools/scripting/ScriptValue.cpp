#include "tools/scripting/ScriptValue.h"

#include "engine/JSONParser.h"

#include <QList>
#include <algorithm>
#include <cmath>
#include <limits>

namespace {

bool isPlainAscii(const QString &text)
{
    for (const QChar c : text) {
        if (c.unicode() == 0 || c.unicode() > 0x7f)
            return false;
    }
    return true;
}

}  // namespace

ScriptValue::String::String(const QString &text)
{
    // ASCII text (most sources) becomes an 8-bit engine string: half the memory per copy,
    // and the parser reads it faster.
    if (isPlainAscii(text))
        m_ref = JSStringCreateWithUTF8CString(text.toLatin1().constData());
    else
        m_ref = JSStringCreateWithCharacters(reinterpret_cast<const JSChar *>(text.utf16()), size_t(text.size()));
}

ScriptValue::String::~String()
{
    if (m_ref)
        JSStringRelease(m_ref);
}

QString ScriptValue::toQString(JSStringRef string)
{
    if (!string)
        return QString();
    return QString(reinterpret_cast<const QChar *>(JSStringGetCharactersPtr(string)), qsizetype(JSStringGetLength(string)));
}

std::optional<QString> ScriptValue::stringForm(JSContextRef ctx, JSValueRef value, JSValueRef *exception)
{
    if (!value)
        return std::nullopt;
    JSValueRef thrown = nullptr;
    JSStringRef string = JSValueToStringCopy(ctx, value, &thrown);
    if (exception)
        *exception = thrown;
    if (!string || thrown) {
        if (string)
            JSStringRelease(string);
        return std::nullopt;
    }
    String holder(string);
    return toQString(string);
}

QString ScriptValue::argumentString(JSContextRef ctx, size_t argc, const JSValueRef argv[], size_t i)
{
    if (i >= argc)
        return QStringLiteral("undefined");
    return stringForm(ctx, argv[i]).value_or(QString());
}

QString ScriptValue::optionalArgumentString(JSContextRef ctx, size_t argc, const JSValueRef argv[], size_t i)
{
    if (i >= argc || JSValueIsUndefined(ctx, argv[i]) || JSValueIsNull(ctx, argv[i]))
        return QString();
    return stringForm(ctx, argv[i]).value_or(QString());
}

QVariantList ScriptValue::argumentArray(JSContextRef ctx, size_t argc, const JSValueRef argv[], size_t i)
{
    if (i >= argc || !JSValueIsArray(ctx, argv[i]))
        return {};
    JSValueRef thrown = nullptr;
    JSObjectRef array = JSValueToObject(ctx, argv[i], &thrown);
    if (!array || thrown)
        return {};
    const double length = JSValueToNumber(ctx, property(ctx, array, QStringLiteral("length")), &thrown);
    if (thrown || std::isnan(length) || length < 0)
        return {};
    QVariantList items;
    const auto count = unsigned(std::min(length, double(std::numeric_limits<int>::max())));
    items.reserve(int(std::min(count, 4096u)));
    for (unsigned index = 0; index < count; ++index) {
        JSValueRef element = JSObjectGetPropertyAtIndex(ctx, array, index, &thrown);
        if (thrown)
            return {};
        if (element && JSValueIsString(ctx, element))
            items.append(stringForm(ctx, element).value_or(QString()));
        else
            items.append(QVariant());
    }
    return items;
}

int ScriptValue::argumentInt(JSContextRef ctx, size_t argc, const JSValueRef argv[], size_t i)
{
    if (i >= argc)
        return 0;
    JSValueRef thrown = nullptr;
    const double number = JSValueToNumber(ctx, argv[i], &thrown);
    if (thrown || std::isnan(number))
        return 0;
    if (number >= double(std::numeric_limits<int>::max()))
        return std::numeric_limits<int>::max();
    if (number <= double(std::numeric_limits<int>::min()))
        return std::numeric_limits<int>::min();
    return int(number);
}

std::optional<MCP::JSONValue> ScriptValue::toJSON(JSContextRef ctx, JSValueRef value, JSValueRef *exception)
{
    JSValueRef thrown = nullptr;
    JSStringRef serial = JSValueCreateJSONString(ctx, value, 0, &thrown);
    if (thrown || !serial) {
        if (serial)
            JSStringRelease(serial);
        if (exception)
            *exception = thrown;
        return std::nullopt;
    }
    const String owned(serial);
    // The engine's own serial form of a value it just made always parses.
    return MCP::JSONParser::parseDocument(toQString(owned.get()).toStdString());
}

JSValueRef ScriptValue::makeString(JSContextRef ctx, const QString &text)
{
    String string(text);
    return JSValueMakeString(ctx, string.get());
}

JSObjectRef ScriptValue::makeStringArray(JSContextRef ctx, const QStringList &items)
{
    // Each string goes into the array as soon as it is made: the collector scans the stack
    // but not the heap, so values parked in a heap buffer could be collected while the next
    // ones are made.
    JSObjectRef array = JSObjectMakeArray(ctx, 0, nullptr, nullptr);
    if (!array)
        return nullptr;
    for (qsizetype i = 0; i < items.size(); ++i)
        JSObjectSetPropertyAtIndex(ctx, array, unsigned(i), makeString(ctx, items[i]), nullptr);
    return array;
}

JSValueRef ScriptValue::property(JSContextRef ctx, JSValueRef object, const QString &name)
{
    if (!object || !JSValueIsObject(ctx, object))
        return JSValueMakeUndefined(ctx);
    JSValueRef thrown = nullptr;
    JSObjectRef target = JSValueToObject(ctx, object, &thrown);
    if (!target || thrown)
        return JSValueMakeUndefined(ctx);
    String key(name);
    JSValueRef value = JSObjectGetProperty(ctx, target, key.get(), &thrown);
    if (!value || thrown)
        return JSValueMakeUndefined(ctx);
    return value;
}
