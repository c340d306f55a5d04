#pragma once

#include "engine/JSONValue.h"

#include <optional>
#include <string>

namespace MCP {

// Checks a value against a JSON Schema (draft 2020-12) before a tool sees it. Covers the
// keywords tool authors use: type, enum, const, the numeric bounds and multipleOf, the
// string lengths and pattern, properties / patternProperties / additionalProperties /
// required / propertyNames / dependentRequired / min- and maxProperties, prefixItems /
// items / contains / min- and maxItems / uniqueItems, allOf / anyOf / oneOf / not,
// if / then / else, boolean schemas, and $ref to "#" or a JSON pointer inside the same
// document ($defs). `format` is an annotation only; keywords it does not know are ignored,
// as the draft says. A schema that refers to what it cannot resolve fails the value, never
// passes it silently.
class JSONSchemaValidator {
public:
    struct Failure {
        std::string path;     // JSON pointer to the failing part of the value; "" is the whole
        std::string message;  // what is wrong there
    };

    explicit JSONSchemaValidator(JSONValue schema) : m_root(std::move(schema)) {}

    // The first failure in document order, or nothing when the value is valid.
    std::optional<Failure> validate(const JSONValue &instance) const;

    // A JSON pointer token with "~" and "/" escaped.
    static std::string escapedToken(std::string_view token);

private:
    JSONValue m_root;

    bool check(const JSONValue &schema, const JSONValue &instance, const std::string &path, Failure *failure,
               int depth) const;
    bool checkObject(const JSONValue::ObjectType &schema, const JSONValue &instance, const std::string &path,
                     Failure *failure, int depth) const;
    const JSONValue *resolve(std::string_view reference) const;
};

}  // namespace MCP
