#pragma once

#include "engine/JSONValue.h"

#include <JavaScriptCore/JavaScript.h>

#include <QString>
#include <QStringList>
#include <QVariantList>
#include <optional>
#include <utility>

// Conversions between JavaScriptCore values and Qt strings, shared by the runtime and the
// host object's methods. None of them lets a JavaScript exception escape: a thrown
// exception is handed back through `exception` where the caller asks for it.
class ScriptValue {
public:
    // Owns one JSStringRef.
    class String {
    public:
        explicit String(const QString &text);
        // Takes over one reference.
        explicit String(JSStringRef adopted) : m_ref(adopted) {}
        ~String();
        String(const String &) = delete;
        String &operator=(const String &) = delete;
        String(String &&other) noexcept : m_ref(std::exchange(other.m_ref, nullptr)) {}
        JSStringRef get() const { return m_ref; }

    private:
        JSStringRef m_ref = nullptr;
    };

    static QString toQString(JSStringRef string);
    // The value's string form, as String(value) gives it; nothing when converting throws.
    static std::optional<QString> stringForm(JSContextRef ctx, JSValueRef value, JSValueRef *exception = nullptr);
    // The string form of argument i, as String() gives it ("undefined" when missing).
    static QString argumentString(JSContextRef ctx, size_t argc, const JSValueRef argv[], size_t i);
    // As argumentString, but a missing, undefined or null argument gives a null QString:
    // an absent value, for the optional arguments of the host API.
    static QString optionalArgumentString(JSContextRef ctx, size_t argc, const JSValueRef argv[], size_t i);
    // The elements of an array argument: strings as QString, every other element as an
    // invalid QVariant. Anything but an array gives an empty list.
    static QVariantList argumentArray(JSContextRef ctx, size_t argc, const JSValueRef argv[], size_t i);
    // Argument i as an integer: NaN and missing give 0, out of range is clamped.
    static int argumentInt(JSContextRef ctx, size_t argc, const JSValueRef argv[], size_t i);

    // The value as JSON.stringify sees it (toJSON and all); nothing for what it leaves out (a
    // function, undefined) or when it throws (a cycle), the exception then in `exception`.
    static std::optional<MCP::JSONValue> toJSON(JSContextRef ctx, JSValueRef value, JSValueRef *exception = nullptr);

    static JSValueRef makeString(JSContextRef ctx, const QString &text);
    static JSObjectRef makeStringArray(JSContextRef ctx, const QStringList &items);

    // Reads a property by name; undefined when the value is no object or the read throws.
    static JSValueRef property(JSContextRef ctx, JSValueRef object, const QString &name);
};
