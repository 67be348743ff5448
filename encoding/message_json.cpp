#include "encoding/message_json.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <memory>

#include "Vantor/AlgorithmType.h"
#include "encoding/message_unpack.h"
#include "vqfe_results.pb-c.h"

namespace VQFeature {
namespace {

void appendEscaped(std::string& out, const char* text) {
    out += '"';
    for (const unsigned char* p = reinterpret_cast<const unsigned char*>(text); *p; ++p) {
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

// Numbers go through std::to_chars: a mask is hundreds of thousands of them, and printf's
// format parsing cost more than the rest of the JSON together.
template <typename Integer>
void appendInteger(std::string& out, Integer value) {
    char text[24];
    out.append(text, std::to_chars(text, text + sizeof text, value).ptr);
}

// The text of printf's "%.9g" (to_chars with a precision is defined as printf's).
void appendFloating(std::string& out, double value) {
    if (!std::isfinite(value)) {
        out += "null";
        return;
    }
    char text[32];
    out.append(text, std::to_chars(text, text + sizeof text, value, std::chars_format::general, 9).ptr);
}

void appendMessage(std::string& out, const ProtobufCMessage& message);

// Appends the value of one field element; member points at the element's storage.
void appendValue(std::string& out, const ProtobufCFieldDescriptor& field, const void* member) {
    switch (field.type) {
        case PROTOBUF_C_TYPE_INT32:
        case PROTOBUF_C_TYPE_SINT32:
        case PROTOBUF_C_TYPE_SFIXED32:
        case PROTOBUF_C_TYPE_ENUM: appendInteger(out, *static_cast<const int32_t*>(member)); break;
        case PROTOBUF_C_TYPE_UINT32:
        case PROTOBUF_C_TYPE_FIXED32: appendInteger(out, *static_cast<const uint32_t*>(member)); break;
        case PROTOBUF_C_TYPE_INT64:
        case PROTOBUF_C_TYPE_SINT64:
        case PROTOBUF_C_TYPE_SFIXED64: appendInteger(out, *static_cast<const int64_t*>(member)); break;
        case PROTOBUF_C_TYPE_UINT64:
        case PROTOBUF_C_TYPE_FIXED64: appendInteger(out, *static_cast<const uint64_t*>(member)); break;
        case PROTOBUF_C_TYPE_FLOAT: appendFloating(out, *static_cast<const float*>(member)); break;
        case PROTOBUF_C_TYPE_DOUBLE: appendFloating(out, *static_cast<const double*>(member)); break;
        case PROTOBUF_C_TYPE_BOOL: out += *static_cast<const protobuf_c_boolean*>(member) ? "true" : "false"; break;
        case PROTOBUF_C_TYPE_STRING: {
            const char* value = *static_cast<char* const*>(member);
            if (value) appendEscaped(out, value); else out += "null";
            break;
        }
        case PROTOBUF_C_TYPE_BYTES: {
            const auto* bytes = static_cast<const ProtobufCBinaryData*>(member);
            out += '[';
            for (size_t i = 0; i < bytes->len; ++i) {
                if (i) out += ',';
                appendInteger(out, unsigned{bytes->data[i]});
            }
            out += ']';
            break;
        }
        case PROTOBUF_C_TYPE_MESSAGE: {
            const auto* nested = *static_cast<ProtobufCMessage* const*>(member);
            if (nested) appendMessage(out, *nested); else out += "null";
            break;
        }
    }
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
            out += '[';
            for (size_t k = 0; k < count; ++k) {
                if (k) out += ',';
                appendValue(out, field, items + k * elementSize(field.type));
            }
            out += ']';
        } else {
            appendValue(out, field, base + field.offset);
        }
    }
    out += '}';
}

}  // namespace

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
