// JsonValue: a value of JSON with its members in order, numbers as they were written: whole ones and others.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct JsonValue {
    enum class Type { kNull, kBool, kInt, kUint, kDouble, kString, kArray, kObject };
    Type type = Type::kNull;
    union {
        std::int64_t intValue = 0;  // below 0; of kBool 0 or 1
        std::uint64_t uintValue;
        double doubleValue;
    };
    std::string text;               // of a string; the digits of a number with a point or an exponent
    std::vector<std::string> keys;  // of an object, one for each item; no two are the same
    std::vector<JsonValue> items;
};

// Reads a text; FaultError, by the name of the file, when it is no JSON, nests deeper than 1,010 arrays and objects, or
// has a name twice in an object.
JsonValue ParseJson(const std::string& file, const std::string& text);
