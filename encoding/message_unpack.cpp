#include "encoding/message_unpack.h"

#include <cstdlib>
#include <cstring>

namespace VQFeature {
namespace {

// Deeper nesting than any result message has goes to protobuf-c.
constexpr int kMaxDepth = 32;
// Required fields are tracked in one 64-bit word; wider messages go to protobuf-c.
constexpr unsigned kMaxFields = 64;

struct Input {
    const uint8_t* p;
    const uint8_t* end;
};

// A varint of at most ten bytes. False if the input ends first or it is longer.
inline bool readVarint(Input& in, uint64_t& value) {
    if (in.p < in.end && *in.p < 0x80) {  // the common one-byte case
        value = *in.p++;
        return true;
    }
    if (in.end - in.p >= 2 && in.p[1] < 0x80) {  // two bytes: mask values 128..255
        value = uint64_t(in.p[0] & 0x7f) | (uint64_t(in.p[1]) << 7);
        in.p += 2;
        return true;
    }
    uint64_t v = 0;
    for (unsigned i = 0, shift = 0; i < 10; ++i, shift += 7) {
        if (in.p == in.end) return false;
        const uint8_t byte = *in.p++;
        v |= uint64_t(byte & 0x7f) << shift;  // bits past 63 drop, as protobuf-c drops them
        if ((byte & 0x80) == 0) {
            value = v;
            return true;
        }
    }
    return false;
}

// A bool varint is true when any of its payload bits is set, bits past 63 included.
inline bool readBool(Input& in, protobuf_c_boolean& value) {
    bool any = false;
    for (unsigned i = 0; i < 10; ++i) {
        if (in.p == in.end) return false;
        const uint8_t byte = *in.p++;
        any = any || (byte & 0x7f) != 0;
        if ((byte & 0x80) == 0) {
            value = any ? 1 : 0;
            return true;
        }
    }
    return false;
}

// n little-endian bytes into out (4 or 8 bytes of a fixed-width value).
inline bool readFixed(Input& in, void* out, size_t n) {
    if (static_cast<size_t>(in.end - in.p) < n) return false;
    if constexpr (__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__) {
        std::memcpy(out, in.p, n);
    } else {
        uint8_t* bytes = static_cast<uint8_t*>(out);
        for (size_t i = 0; i < n; ++i) bytes[i] = in.p[n - 1 - i];
    }
    in.p += n;
    return true;
}

// The wire type a single value of this type is written with; -1 for types left to
// protobuf-c (enum, bytes) and for the length-prefixed string and message.
int scalarWireType(ProtobufCType type) {
    switch (type) {
        case PROTOBUF_C_TYPE_INT32:
        case PROTOBUF_C_TYPE_SINT32:
        case PROTOBUF_C_TYPE_UINT32:
        case PROTOBUF_C_TYPE_INT64:
        case PROTOBUF_C_TYPE_SINT64:
        case PROTOBUF_C_TYPE_UINT64:
        case PROTOBUF_C_TYPE_BOOL: return PROTOBUF_C_WIRE_TYPE_VARINT;
        case PROTOBUF_C_TYPE_SFIXED32:
        case PROTOBUF_C_TYPE_FIXED32:
        case PROTOBUF_C_TYPE_FLOAT: return PROTOBUF_C_WIRE_TYPE_32BIT;
        case PROTOBUF_C_TYPE_SFIXED64:
        case PROTOBUF_C_TYPE_FIXED64:
        case PROTOBUF_C_TYPE_DOUBLE: return PROTOBUF_C_WIRE_TYPE_64BIT;
        default: return -1;
    }
}

// Bytes one element of the type takes in a message structure or array.
size_t elementSize(ProtobufCType type) {
    switch (type) {
        case PROTOBUF_C_TYPE_INT64:
        case PROTOBUF_C_TYPE_SINT64:
        case PROTOBUF_C_TYPE_UINT64:
        case PROTOBUF_C_TYPE_SFIXED64:
        case PROTOBUF_C_TYPE_FIXED64:
        case PROTOBUF_C_TYPE_DOUBLE: return 8;
        case PROTOBUF_C_TYPE_BOOL: return sizeof(protobuf_c_boolean);
        case PROTOBUF_C_TYPE_STRING: return sizeof(char*);
        case PROTOBUF_C_TYPE_MESSAGE: return sizeof(ProtobufCMessage*);
        default: return 4;
    }
}

// One scalar value (wire type already checked) into out.
bool readScalar(ProtobufCType type, Input& in, void* out) {
    uint64_t v = 0;
    switch (type) {
        case PROTOBUF_C_TYPE_INT32:
        case PROTOBUF_C_TYPE_UINT32: {
            if (!readVarint(in, v)) return false;
            const uint32_t low = static_cast<uint32_t>(v);  // int32 keeps the low 32 bits
            std::memcpy(out, &low, 4);
            return true;
        }
        case PROTOBUF_C_TYPE_SINT32: {
            if (!readVarint(in, v)) return false;
            const uint32_t z = static_cast<uint32_t>(v);
            const uint32_t value = (z >> 1) ^ (0u - (z & 1));
            std::memcpy(out, &value, 4);
            return true;
        }
        case PROTOBUF_C_TYPE_INT64:
        case PROTOBUF_C_TYPE_UINT64:
            if (!readVarint(in, v)) return false;
            std::memcpy(out, &v, 8);
            return true;
        case PROTOBUF_C_TYPE_SINT64: {
            if (!readVarint(in, v)) return false;
            const uint64_t value = (v >> 1) ^ (uint64_t(0) - (v & 1));
            std::memcpy(out, &value, 8);
            return true;
        }
        case PROTOBUF_C_TYPE_BOOL: return readBool(in, *static_cast<protobuf_c_boolean*>(out));
        case PROTOBUF_C_TYPE_SFIXED32:
        case PROTOBUF_C_TYPE_FIXED32:
        case PROTOBUF_C_TYPE_FLOAT: return readFixed(in, out, 4);
        case PROTOBUF_C_TYPE_SFIXED64:
        case PROTOBUF_C_TYPE_FIXED64:
        case PROTOBUF_C_TYPE_DOUBLE: return readFixed(in, out, 8);
        default: return false;
    }
}

// A length prefix and the bytes it covers.
bool readSection(Input& in, Input& section) {
    uint64_t length = 0;
    if (!readVarint(in, length) || length > static_cast<uint64_t>(in.end - in.p)) return false;
    section = {in.p, in.p + length};
    in.p += length;
    return true;
}

template <typename T>
T& at(ProtobufCMessage* message, unsigned offset) {
    return *reinterpret_cast<T*>(reinterpret_cast<char*>(message) + offset);
}

// The slot for element n of a repeated field's array, growing it first when full.
// Arrays hold 8 elements at first and double; only free() ever sees their size.
inline void* appendSlot(void*& array, size_t n, size_t size) {
    if (n == 0) {
        array = std::malloc(8 * size);
    } else if (n >= 8 && (n & (n - 1)) == 0) {
        void* grown = std::realloc(array, 2 * n * size);
        if (grown == nullptr) return nullptr;
        array = grown;
    }
    if (array == nullptr) return nullptr;
    return static_cast<char*>(array) + n * size;
}

ProtobufCMessage* parseMessage(const ProtobufCMessageDescriptor* descriptor, Input in, int depth);

// Releases a message that parseMessage gave up on: required strings and messages only
// where they were set (seen), every repeated element, the arrays, the message.
void releasePartial(ProtobufCMessage* message, uint64_t seen) {
    const ProtobufCMessageDescriptor* descriptor = message->descriptor;
    for (unsigned i = 0; i < descriptor->n_fields; ++i) {
        const ProtobufCFieldDescriptor& field = descriptor->fields[i];
        if (field.label == PROTOBUF_C_LABEL_REPEATED) {
            void* array = at<void*>(message, field.offset);
            const size_t n = at<size_t>(message, field.quantifier_offset);
            for (size_t k = 0; k < n; ++k) {
                if (field.type == PROTOBUF_C_TYPE_STRING) std::free(static_cast<char**>(array)[k]);
                if (field.type == PROTOBUF_C_TYPE_MESSAGE) {
                    protobuf_c_message_free_unpacked(static_cast<ProtobufCMessage**>(array)[k], nullptr);
                }
            }
            std::free(array);
        } else if ((seen >> i) & 1) {
            if (field.type == PROTOBUF_C_TYPE_STRING) std::free(at<char*>(message, field.offset));
            if (field.type == PROTOBUF_C_TYPE_MESSAGE) {
                protobuf_c_message_free_unpacked(at<ProtobufCMessage*>(message, field.offset), nullptr);
            }
        }
    }
    std::free(message);
}

// A string value: a malloc copy with a terminating NUL.
char* copyString(const Input& section) {
    const size_t n = static_cast<size_t>(section.end - section.p);
    char* out = static_cast<char*>(std::malloc(n + 1));
    if (out == nullptr) return nullptr;
    std::memcpy(out, section.p, n);
    out[n] = '\0';
    return out;
}

// The capacity appendSlot gave an array of n elements.
inline size_t capacityOf(size_t n) {
    if (n == 0) return 0;
    size_t capacity = 8;
    while (capacity < n) capacity *= 2;
    return capacity;
}

// Elements of one scalar field, of type T, read while the same tag (the bytes in tag)
// repeats. Works on local copies of the input and the array, which the element stores
// cannot alias, and writes them back at the end (also on failure: the array may have
// moved). The array grows as appendSlot grows it.
template <typename T, typename Read>
inline bool readRun(Input& in, const Input& tag, void*& arrayOut, size_t& countOut, Read read) {
    const size_t tagLength = static_cast<size_t>(tag.end - tag.p);
    const uint8_t first = *tag.p;
    Input run = in;
    T* array = static_cast<T*>(arrayOut);
    size_t count = countOut;
    size_t capacity = capacityOf(count);
    bool ok = true;
    for (;;) {
        if (count == capacity) {
            void* grown = array;
            if (appendSlot(grown, count, sizeof(T)) == nullptr) {
                ok = false;
                break;
            }
            array = static_cast<T*>(grown);
            capacity = count == 0 ? 8 : 2 * count;
        }
        if (!read(run, array[count])) {
            ok = false;
            break;
        }
        ++count;
        if (static_cast<size_t>(run.end - run.p) <= tagLength || *run.p != first ||
            (tagLength > 1 && std::memcmp(run.p, tag.p, tagLength) != 0)) {
            break;
        }
        run.p += tagLength;
    }
    in = run;
    arrayOut = array;
    countOut = count;
    return ok;
}

// One occurrence of a repeated field: a single element, or a packed run of scalars.
bool parseRepeated(const ProtobufCFieldDescriptor& field, unsigned wireType, const Input& tag, Input& in,
                   ProtobufCMessage* message, int depth) {
    void*& array = at<void*>(message, field.offset);
    size_t& count = at<size_t>(message, field.quantifier_offset);
    const size_t size = elementSize(field.type);
    const int scalarWire = scalarWireType(field.type);

    if (field.type == PROTOBUF_C_TYPE_STRING || field.type == PROTOBUF_C_TYPE_MESSAGE) {
        Input section{};
        if (wireType != PROTOBUF_C_WIRE_TYPE_LENGTH_PREFIXED || !readSection(in, section)) return false;
        void* element = nullptr;
        if (field.type == PROTOBUF_C_TYPE_STRING) {
            element = copyString(section);
        } else {
            element = parseMessage(static_cast<const ProtobufCMessageDescriptor*>(field.descriptor), section,
                                   depth + 1);
        }
        if (element == nullptr) return false;
        void* slot = appendSlot(array, count, size);
        if (slot == nullptr) {
            if (field.type == PROTOBUF_C_TYPE_STRING) std::free(element);
            else protobuf_c_message_free_unpacked(static_cast<ProtobufCMessage*>(element), nullptr);
            return false;
        }
        std::memcpy(slot, &element, sizeof element);
        ++count;
        return true;
    }
    if (scalarWire < 0) return false;
    if (static_cast<int>(wireType) == scalarWire) {
        // Unpacked lists come as runs of the same tag: read the whole run here.
        switch (field.type) {
            case PROTOBUF_C_TYPE_INT32:
            case PROTOBUF_C_TYPE_UINT32:
                return readRun<uint32_t>(in, tag, array, count, [](Input& run, uint32_t& out) {
                    uint64_t v = 0;
                    if (!readVarint(run, v)) return false;
                    out = static_cast<uint32_t>(v);  // int32 keeps the low 32 bits
                    return true;
                });
            case PROTOBUF_C_TYPE_FLOAT:
            case PROTOBUF_C_TYPE_FIXED32:
            case PROTOBUF_C_TYPE_SFIXED32:
                return readRun<uint32_t>(in, tag, array, count,
                                         [](Input& run, uint32_t& out) { return readFixed(run, &out, 4); });
            default: {
                // Other scalar types: element by element through the generic reader.
                void* slot = appendSlot(array, count, size);
                if (slot == nullptr || !readScalar(field.type, in, slot)) return false;
                ++count;
                return true;
            }
        }
    }
    if (wireType != PROTOBUF_C_WIRE_TYPE_LENGTH_PREFIXED) return false;
    // A packed run: values back to back, none crossing the end of the section.
    Input section{};
    if (!readSection(in, section)) return false;
    if (scalarWire != PROTOBUF_C_WIRE_TYPE_VARINT && (section.end - section.p) % size != 0) return false;
    while (section.p < section.end) {
        void* slot = appendSlot(array, count, size);
        if (slot == nullptr || !readScalar(field.type, section, slot)) return false;
        ++count;
    }
    return true;
}

// One occurrence of a required field; alreadySeen tells whether it came before.
bool parseRequired(const ProtobufCFieldDescriptor& field, unsigned wireType, Input& in, ProtobufCMessage* message,
                   bool alreadySeen, int depth) {
    if (field.type == PROTOBUF_C_TYPE_STRING || field.type == PROTOBUF_C_TYPE_MESSAGE) {
        // protobuf-c merges a repeated sub-message into the first one; that case is its own.
        if (field.type == PROTOBUF_C_TYPE_MESSAGE && alreadySeen) return false;
        Input section{};
        if (wireType != PROTOBUF_C_WIRE_TYPE_LENGTH_PREFIXED || !readSection(in, section)) return false;
        if (field.type == PROTOBUF_C_TYPE_STRING) {
            char* text = copyString(section);
            if (text == nullptr) return false;
            char*& member = at<char*>(message, field.offset);
            if (alreadySeen) std::free(member);  // the last occurrence wins
            member = text;
            return true;
        }
        ProtobufCMessage* sub =
            parseMessage(static_cast<const ProtobufCMessageDescriptor*>(field.descriptor), section, depth + 1);
        if (sub == nullptr) return false;
        at<ProtobufCMessage*>(message, field.offset) = sub;
        return true;
    }
    const int scalarWire = scalarWireType(field.type);
    if (scalarWire < 0 || static_cast<int>(wireType) != scalarWire) return false;
    return readScalar(field.type, in, &at<char>(message, field.offset));
}

const ProtobufCFieldDescriptor* findField(const ProtobufCMessageDescriptor* descriptor, uint64_t number) {
    // Result messages number their fields densely from 1.
    if (number >= 1 && number <= descriptor->n_fields && descriptor->fields[number - 1].id == number) {
        return &descriptor->fields[number - 1];
    }
    if (number == 0 || number > 0x1fffffff) return nullptr;
    return protobuf_c_message_descriptor_get_field(descriptor, static_cast<unsigned>(number));
}

// The message in the section, or null where protobuf-c must decide.
ProtobufCMessage* parseMessage(const ProtobufCMessageDescriptor* descriptor, Input in, int depth) {
    if (depth > kMaxDepth || descriptor == nullptr || descriptor->n_fields > kMaxFields ||
        descriptor->message_init == nullptr) {
        return nullptr;
    }
    auto* message = static_cast<ProtobufCMessage*>(std::malloc(descriptor->sizeof_message));
    if (message == nullptr) return nullptr;
    descriptor->message_init(message);
    uint64_t seen = 0;
    bool complete = true;
    while (complete && in.p < in.end) {
        uint64_t tag = 0;
        const uint8_t* tagStart = in.p;
        const ProtobufCFieldDescriptor* field = nullptr;
        if (readVarint(in, tag) && tag <= 0xffffffffu) field = findField(descriptor, tag >> 3);
        if (field == nullptr || (field->flags & PROTOBUF_C_FIELD_FLAG_ONEOF) != 0) {  // unknown, oneof or malformed
            complete = false;
            break;
        }
        const unsigned index = static_cast<unsigned>(field - descriptor->fields);
        const unsigned wireType = static_cast<unsigned>(tag & 7);
        bool ok = false;
        if (field->label == PROTOBUF_C_LABEL_REPEATED) {
            ok = parseRepeated(*field, wireType, Input{tagStart, in.p}, in, message, depth);
        } else if (field->label == PROTOBUF_C_LABEL_REQUIRED) {
            ok = parseRequired(*field, wireType, in, message, (seen >> index) & 1, depth);
            if (ok) seen |= uint64_t(1) << index;
        }
        complete = ok;
    }
    for (unsigned i = 0; complete && i < descriptor->n_fields; ++i) {
        if (descriptor->fields[i].label == PROTOBUF_C_LABEL_REQUIRED && ((seen >> i) & 1) == 0) complete = false;
    }
    if (!complete) {
        releasePartial(message, seen);
        return nullptr;
    }
    return message;
}

}  // namespace

ProtobufCMessage* unpackMessage(const ProtobufCMessageDescriptor* descriptor, size_t length, const uint8_t* data) {
    if (data != nullptr) {
        if (ProtobufCMessage* message = parseMessage(descriptor, Input{data, data + length}, 0)) return message;
    }
    return protobuf_c_message_unpack(descriptor, nullptr, length, data);
}

}  // namespace VQFeature
