#pragma once

#include "engine/JSONTypeError.h"

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>
#include <vector>

namespace MCP {

// The engine's JSON document value. Objects are kept in a sorted map, so every Object
// on the wire comes out in ascending byte order of its keys.
class JSONValue {
public:
    // The order is the tag value.
    enum class Type : int { Null = 0, Bool = 1, Number = 2, String = 3, Array = 4, Object = 5 };

    using ArrayType = std::vector<JSONValue>;
    using ObjectType = std::map<std::string, JSONValue, std::less<>>;

    JSONValue() = default;
    JSONValue(std::nullptr_t) {}
    JSONValue(bool value) : m_value(value) {}
    JSONValue(double value) : m_value(value) {}
    JSONValue(int value) : m_value(static_cast<double>(value)) {}
    JSONValue(long value) : m_value(static_cast<double>(value)) {}
    JSONValue(long long value) : m_value(static_cast<double>(value)) {}
    JSONValue(unsigned value) : m_value(static_cast<double>(value)) {}
    JSONValue(unsigned long value) : m_value(static_cast<double>(value)) {}
    JSONValue(unsigned long long value) : m_value(static_cast<double>(value)) {}
    JSONValue(const char *value) : m_value(std::string(value)) {}
    JSONValue(std::string_view value) : m_value(std::string(value)) {}
    JSONValue(std::string value) : m_value(std::move(value)) {}
    JSONValue(ArrayType value) : m_value(std::move(value)) {}
    JSONValue(ObjectType value) : m_value(std::move(value)) {}

    JSONValue(const JSONValue &) = default;
    JSONValue &operator=(const JSONValue &) = default;
    // A moved-from value is Null, not a hollow string or container.
    JSONValue(JSONValue &&other) noexcept;
    JSONValue &operator=(JSONValue &&other) noexcept;
    ~JSONValue() = default;

    Type type() const { return static_cast<Type>(m_value.index()); }
    bool isNull() const { return type() == Type::Null; }
    bool isBool() const { return type() == Type::Bool; }
    bool isNumber() const { return type() == Type::Number; }
    bool isString() const { return type() == Type::String; }
    bool isArray() const { return type() == Type::Array; }
    bool isObject() const { return type() == Type::Object; }

    // Typed access; asking for a kind the value does not hold throws JSONTypeError, which
    // the route dispatcher answers as an internal error.
    bool asBool() const { return held<bool>(); }
    double asNumber() const { return held<double>(); }
    const std::string &asString() const { return held<std::string>(); }
    std::string &asString() { return const_cast<std::string &>(held<std::string>()); }
    const ArrayType &asArray() const { return held<ArrayType>(); }
    ArrayType &asArray() { return const_cast<ArrayType &>(held<ArrayType>()); }
    const ObjectType &asObject() const { return held<ObjectType>(); }
    ObjectType &asObject() { return const_cast<ObjectType &>(held<ObjectType>()); }
    // "Null", "Bool", "Number", "String", "Array" or "Object".
    static const char *typeName(Type type);

    // False for anything that is not an Object.
    bool contains(std::string_view key) const;
    // Throws JSONTypeError for a non-Object and std::out_of_range("map::at:  key not found")
    // for a missing key.
    const JSONValue &at(std::string_view key) const;
    JSONValue &at(std::string_view key);
    // Turns a non-Object into an empty Object, inserts a Null member when the key is
    // absent, and returns the member.
    JSONValue &operator[](std::string_view key);

    // Null and Bool are always empty; String, Array and Object when they hold nothing;
    // a Number never is.
    bool isEmpty() const;

    // The serial form at the given indentation level; the engine always uses level 2.
    std::string toString(int level = 2) const;
    void appendTo(std::string &out, int level) const;

    bool operator==(const JSONValue &other) const { return m_value == other.m_value; }

    // Writes text with the engine's string escapes (byte-wise; UTF-8 passes through).
    static void appendEscaped(std::string &out, std::string_view text);
    // The number printing rule: integral values that survive a saturating round trip
    // through a signed 32-bit integer print as digits, all others in general format
    // with six significant digits.
    static void appendNumber(std::string &out, double value);

private:
    template <class T>
    const T &held() const
    {
        if (const T *value = std::get_if<T>(&m_value))
            return *value;
        throw JSONTypeError(typeName(typeOf<T>()), typeName(type()));
    }
    template <class T>
    static constexpr Type typeOf()
    {
        if constexpr (std::is_same_v<T, bool>)
            return Type::Bool;
        else if constexpr (std::is_same_v<T, double>)
            return Type::Number;
        else if constexpr (std::is_same_v<T, std::string>)
            return Type::String;
        else if constexpr (std::is_same_v<T, ArrayType>)
            return Type::Array;
        else
            return Type::Object;
    }

    std::variant<std::monostate, bool, double, std::string, ArrayType, ObjectType> m_value;
};

}  // namespace MCP
