// kv::JsonValue and parseJson: the framework's JSON dialect, used for graphs and for the
// configuration. Standard JSON plus three liberties found in real graph texts:
// hexadecimal integers ("0x40000"), a trailing comma before "}" or "]", and nothing
// else. Integers must fit a signed 64-bit value; nesting depth and element count are
// bounded, so hostile text fails cleanly instead of exhausting the stack.
//
// Values are plain data; parseJson is reentrant.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "Vantor/VantorErrorCode.h"

namespace kv {

struct JsonValue {
    enum class Kind { Null, Bool, Int, Float, String, Array, Object };
    Kind kind = Kind::Null;
    bool boolean = false;
    int64_t integer = 0;
    double real = 0.0;
    std::string text;
    std::vector<JsonValue> items;                              // Array
    std::vector<std::pair<std::string, JsonValue>> members;    // Object, in text order

    bool isObject() const { return kind == Kind::Object; }
    bool isArray() const { return kind == Kind::Array; }
    bool isString() const { return kind == Kind::String; }
    bool isInt() const { return kind == Kind::Int; }
    bool isNumber() const { return kind == Kind::Int || kind == Kind::Float; }
    double number() const { return kind == Kind::Int ? static_cast<double>(integer) : real; }
    // The member named key of an object, or null (first one wins on duplicates).
    const JsonValue* find(const std::string& key) const;
};

constexpr size_t kMaxJsonDepth = 64;
constexpr size_t kMaxJsonBytes = 8u << 20;
constexpr size_t kMaxJsonValues = 1u << 20;

// Parses text[0, length), the text of what (a graph, the configuration). Throws
// Error(code, "<what>: <the first problem> at offset <byte offset>") when it is not JSON.
JsonValue parseJson(const char* text, size_t length, Vantor::VantorErrorCode code, const std::string& what);

}  // namespace kv
