#include "encoding/message_json.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>

#include "Vantor/AlgorithmType.h"
#include "encoding/message_unpack.h"
#include "vqfe_results.pb-c.h"

namespace VQFeature {
namespace {

// The length of the well-formed UTF-8 sequence at p (1 to 4), or 0 when p starts none.
size_t utf8Length(const unsigned char* p) {
    const auto continues = [](unsigned char c, unsigned char low = 0x80, unsigned char high = 0xBF) {
        return c >= low && c <= high;
    };
    if (p[0] < 0x80) return 1;
    if (p[0] >= 0xC2 && p[0] <= 0xDF) return continues(p[1]) ? 2 : 0;
    if (p[0] >= 0xE0 && p[0] <= 0xEF) {
        const unsigned char low = p[0] == 0xE0 ? 0xA0 : 0x80, high = p[0] == 0xED ? 0x9F : 0xBF;
        return continues(p[1], low, high) && continues(p[2]) ? 3 : 0;
    }
    if (p[0] >= 0xF0 && p[0] <= 0xF4) {
        const unsigned char low = p[0] == 0xF0 ? 0x90 : 0x80, high = p[0] == 0xF4 ? 0x8F : 0xBF;
        return continues(p[1], low, high) && continues(p[2]) && continues(p[3]) ? 4 : 0;
    }
    return 0;
}

// A byte that is not UTF-8 (a file name in another encoding) becomes \udcXX, the lone
// surrogate by which Python's surrogateescape (os.fsencode) gives the byte back; raw, it
// would make the whole line invalid JSON. The checks stop at the terminating NUL, which no
// continuation byte matches.
void appendEscaped(std::string& out, const char* text) {
    out += '"';
    for (const unsigned char* p = reinterpret_cast<const unsigned char*>(text); *p; ++p) {
        if (*p >= 0x80) {
            const size_t length = utf8Length(p);
            if (length == 0) {
                char escaped[8];
                std::snprintf(escaped, sizeof escaped, "\\udc%02x", *p);
                out += escaped;
            } else {
                out.append(reinterpret_cast<const char*>(p), length);
                p += length - 1;
            }
            continue;
        }
        switch (*p) {
            case '"': out += "\\\""; break;
            case '\\': out += "\\\\"; break;
            case '\n': out += "\\n"; break;
            case '\r': out += "\\r"; break;
            case '\t': out += "\\t"; break;
            default:
                if (*p < 0x20) {
                    char escaped[8];
                    std::snprintf(escaped, sizeof escaped, "\\u%04x", *p);
                    out += escaped;
                } else {
                    out += static_cast<char>(*p);
                }
        }
    }
    out += '"';
}

// Room for any one number, bool or null that writeScalar writes.
constexpr size_t kScalarRoom = 32;

// Numbers go through std::to_chars: a mask is hundreds of thousands of them, and printf's
// format parsing cost more than the rest of the JSON together.
template <typename Integer>
char* writeInteger(char* at, Integer value) {
    return std::to_chars(at, at + kScalarRoom, value).ptr;
}

// The text of printf's "%.9g" (to_chars with a precision is defined as printf's).
char* writeFloating(char* at, double value) {
    if (!std::isfinite(value)) {
        std::memcpy(at, "null", 4);
        return at + 4;
    }
    return std::to_chars(at, at + kScalarRoom, value, std::chars_format::general, 9).ptr;
}

bool isScalar(ProtobufCType type) {
    return type != PROTOBUF_C_TYPE_STRING && type != PROTOBUF_C_TYPE_BYTES && type != PROTOBUF_C_TYPE_MESSAGE;
}

// Writes one number or bool field element (member points at its storage) at at, which has
// kScalarRoom bytes; returns the end of what was written.
char* writeScalar(char* at, ProtobufCType type, const void* member) {
    switch (type) {
        case PROTOBUF_C_TYPE_INT32:
        case PROTOBUF_C_TYPE_SINT32:
        case PROTOBUF_C_TYPE_SFIXED32:
        case PROTOBUF_C_TYPE_ENUM: return writeInteger(at, *static_cast<const int32_t*>(member));
        case PROTOBUF_C_TYPE_UINT32:
        case PROTOBUF_C_TYPE_FIXED32: return writeInteger(at, *static_cast<const uint32_t*>(member));
        case PROTOBUF_C_TYPE_INT64:
        case PROTOBUF_C_TYPE_SINT64:
        case PROTOBUF_C_TYPE_SFIXED64: return writeInteger(at, *static_cast<const int64_t*>(member));
        case PROTOBUF_C_TYPE_UINT64:
        case PROTOBUF_C_TYPE_FIXED64: return writeInteger(at, *static_cast<const uint64_t*>(member));
        case PROTOBUF_C_TYPE_FLOAT: return writeFloating(at, *static_cast<const float*>(member));
        case PROTOBUF_C_TYPE_DOUBLE: return writeFloating(at, *static_cast<const double*>(member));
        case PROTOBUF_C_TYPE_BOOL: {
            const bool value = *static_cast<const protobuf_c_boolean*>(member);
            std::memcpy(at, value ? "true" : "false", value ? 4 : 5);
            return at + (value ? 4 : 5);
        }
        default: return at;  // not a scalar: isScalar keeps these out
    }
}

// A JSON array of count elements, element k written by write(at, k) (at most kScalarRoom
// bytes). The elements go through a stack buffer a few kilobytes at a time: the masks are
// hundreds of thousands of numbers, and appending each to the string cost more than
// formatting it.
template <typename Write>
void appendScalarList(std::string& out, size_t count, Write write) {
    char chunk[8192];
    size_t used = 0;
    out += '[';
    for (size_t k = 0; k < count; ++k) {
        if (used + kScalarRoom + 1 > sizeof chunk) {
            out.append(chunk, used);
            used = 0;
        }
        if (k) chunk[used++] = ',';
        used = static_cast<size_t>(write(chunk + used, k) - chunk);
    }
    out.append(chunk, used);
    out += ']';
}

size_t elementSize(ProtobufCType type) {
    switch (type) {
        case PROTOBUF_C_TYPE_INT64: case PROTOBUF_C_TYPE_SINT64: case PROTOBUF_C_TYPE_SFIXED64:
        case PROTOBUF_C_TYPE_UINT64: case PROTOBUF_C_TYPE_FIXED64: return 8;
        case PROTOBUF_C_TYPE_DOUBLE: return sizeof(double);
        case PROTOBUF_C_TYPE_BOOL: return sizeof(protobuf_c_boolean);
        case PROTOBUF_C_TYPE_STRING: return sizeof(char*);
        case PROTOBUF_C_TYPE_BYTES: return sizeof(ProtobufCBinaryData);
        case PROTOBUF_C_TYPE_MESSAGE: return sizeof(ProtobufCMessage*);
        default: return 4;
    }
}

// The repeated field's count elements of type T at items as a JSON array: one dispatch on
// the field's type for the whole array, so that the loop formats numbers and nothing else.
template <typename T, typename Write>
void appendArrayOf(std::string& out, const void* items, size_t count, Write write) {
    const T* values = static_cast<const T*>(items);
    appendScalarList(out, count, [values, write](char* at, size_t k) { return write(at, values[k]); });
}

void appendScalarArray(std::string& out, ProtobufCType type, const void* items, size_t count) {
    switch (type) {
        case PROTOBUF_C_TYPE_INT32:
        case PROTOBUF_C_TYPE_SINT32:
        case PROTOBUF_C_TYPE_SFIXED32:
        case PROTOBUF_C_TYPE_ENUM: return
            appendArrayOf<int32_t>(out, items, count, [](char* at, int32_t v) { return writeInteger(at, v); });
        case PROTOBUF_C_TYPE_UINT32:
        case PROTOBUF_C_TYPE_FIXED32: return
            appendArrayOf<uint32_t>(out, items, count, [](char* at, uint32_t v) { return writeInteger(at, v); });
        case PROTOBUF_C_TYPE_INT64:
        case PROTOBUF_C_TYPE_SINT64:
        case PROTOBUF_C_TYPE_SFIXED64: return
            appendArrayOf<int64_t>(out, items, count, [](char* at, int64_t v) { return writeInteger(at, v); });
        case PROTOBUF_C_TYPE_UINT64:
        case PROTOBUF_C_TYPE_FIXED64: return
            appendArrayOf<uint64_t>(out, items, count, [](char* at, uint64_t v) { return writeInteger(at, v); });
        case PROTOBUF_C_TYPE_FLOAT: return
            appendArrayOf<float>(out, items, count, [](char* at, double v) { return writeFloating(at, v); });
        case PROTOBUF_C_TYPE_DOUBLE: return
            appendArrayOf<double>(out, items, count, [](char* at, double v) { return writeFloating(at, v); });
        default: {
            const size_t size = elementSize(type);
            const char* bytes = static_cast<const char*>(items);
            appendScalarList(out, count, [=](char* at, size_t k) { return writeScalar(at, type, bytes + k * size); });
        }
    }
}

void appendMessage(std::string& out, const ProtobufCMessage& message);

// Appends the value of one field element; member points at the element's storage.
void appendValue(std::string& out, const ProtobufCFieldDescriptor& field, const void* member) {
    switch (field.type) {
        case PROTOBUF_C_TYPE_STRING: {
            const char* value = *static_cast<char* const*>(member);
            if (value) appendEscaped(out, value); else out += "null";
            break;
        }
        case PROTOBUF_C_TYPE_BYTES: {
            const auto* bytes = static_cast<const ProtobufCBinaryData*>(member);
            appendScalarList(out, bytes->len,
                             [bytes](char* at, size_t i) { return writeInteger(at, unsigned{bytes->data[i]}); });
            break;
        }
        case PROTOBUF_C_TYPE_MESSAGE: {
            const auto* nested = *static_cast<ProtobufCMessage* const*>(member);
            if (nested) appendMessage(out, *nested); else out += "null";
            break;
        }
        default: {
            char text[kScalarRoom];
            out.append(text, writeScalar(text, field.type, member));
        }
    }
}

void appendMessage(std::string& out, const ProtobufCMessage& message) {
    const ProtobufCMessageDescriptor& descriptor = *message.descriptor;
    const char* base = reinterpret_cast<const char*>(&message);
    out += '{';
    for (unsigned i = 0; i < descriptor.n_fields; ++i) {
        const ProtobufCFieldDescriptor& field = descriptor.fields[i];
        if (i) out += ',';
        appendEscaped(out, field.name);
        out += ':';
        if (field.label == PROTOBUF_C_LABEL_REPEATED) {
            const size_t count = *reinterpret_cast<const size_t*>(base + field.quantifier_offset);
            const char* items = *reinterpret_cast<char* const*>(base + field.offset);
            const size_t size = elementSize(field.type);
            if (isScalar(field.type)) {
                appendScalarArray(out, field.type, items, count);
                continue;
            }
            out += '[';
            for (size_t k = 0; k < count; ++k) {
                if (k) out += ',';
                appendValue(out, field, items + k * size);
            }
            out += ']';
        } else {
            appendValue(out, field, base + field.offset);
        }
    }
    out += '}';
}

}  // namespace

bool isUtf8(const std::string& text) {
    const auto* p = reinterpret_cast<const unsigned char*>(text.c_str());
    const auto* end = p + text.size();
    while (p < end) {
        const size_t length = *p == 0 ? 1 : utf8Length(p);
        if (length == 0) return false;
        p += length;
    }
    return true;
}

std::string jsonQuoted(const std::string& text) {
    std::string out;
    appendEscaped(out, text.c_str());
    return out;
}

std::string messageToJson(const ProtobufCMessage& message) {
    std::string out;
    appendMessage(out, message);
    return out;
}

const ProtobufCMessageDescriptor* blobDescriptorForKind(int kind) {
    switch (static_cast<Vantor::AlgorithmType>(kind)) {
#define VQFE_RESULT_KIND(kind, number, cliName, Buffer, Message, name) \
    case Vantor::AlgorithmType::kind: return &c__##name##__descriptor;
#include "encoding/result_kinds.def"
        default: return nullptr;
    }
}

bool appendBlobJson(std::string& out, int kind, const void* data, size_t length, std::string* error) {
    const ProtobufCMessageDescriptor* descriptor = blobDescriptorForKind(kind);
    if (descriptor == nullptr) {
        if (error) *error = "no blob format for kind " + std::to_string(kind);
        return false;
    }
    std::unique_ptr<ProtobufCMessage, void (*)(ProtobufCMessage*)> message(
        unpackMessage(descriptor, length, static_cast<const uint8_t*>(data)),
        [](ProtobufCMessage* m) { protobuf_c_message_free_unpacked(m, nullptr); });
    if (!message) {
        if (error) *error = "malformed blob for kind " + std::to_string(kind);
        return false;
    }
    appendMessage(out, *message);
    return true;
}

std::string blobToJson(int kind, const void* data, size_t length, std::string* error) {
    std::string out;
    appendBlobJson(out, kind, data, length, error);
    return out;
}

}  // namespace VQFeature
