// Fuzz target: the fifteen exported <name>_alloc decoders with untrusted blobs (an app's
// own database). The first byte picks the decoder (see decoder_table.h), the rest is the
// blob. The decoders unpack in one pass of their own (encoding/message_unpack.h), which
// must build exactly what protobuf-c's unpack builds: both accept or both refuse a blob
// (besides field number 0, which the decoders refuse on purpose), and both messages pack
// to the same bytes. A decoded message must be complete (every required field present),
// every field must be readable to its end, and <name>_free must release everything
// (LeakSanitizer).
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "decoder_table.h"

namespace {

using vqfe_fuzz::Decoder;

volatile size_t gSink;  // keeps the field reads from being optimised away
bool gFieldZeroSeen;     // walk() met an unknown field numbered 0

size_t walk(const Decoder& d, const ProtobufCMessage* message);

[[noreturn]] void fail(const Decoder& d, const char* what) {
    std::fprintf(stderr, "decoder %s: %s\n", d.name, what);
    std::abort();
}

size_t scalarSize(ProtobufCType type) {
    switch (type) {
        case PROTOBUF_C_TYPE_INT64:
        case PROTOBUF_C_TYPE_SINT64:
        case PROTOBUF_C_TYPE_SFIXED64:
        case PROTOBUF_C_TYPE_UINT64:
        case PROTOBUF_C_TYPE_FIXED64:
        case PROTOBUF_C_TYPE_DOUBLE:
            return 8;
        case PROTOBUF_C_TYPE_BOOL:
            return sizeof(protobuf_c_boolean);
        case PROTOBUF_C_TYPE_STRING:
            return sizeof(char*);
        case PROTOBUF_C_TYPE_BYTES:
            return sizeof(ProtobufCBinaryData);
        case PROTOBUF_C_TYPE_MESSAGE:
            return sizeof(ProtobufCMessage*);
        default:
            return 4;
    }
}

// Reads one value of a field; sub-messages recursively.
size_t readValue(const Decoder& d, const ProtobufCFieldDescriptor& field, const char* at) {
    switch (field.type) {
        case PROTOBUF_C_TYPE_STRING: {
            const char* text = *reinterpret_cast<char* const*>(at);
            if (text == nullptr) fail(d, "null string");
            return std::strlen(text);
        }
        case PROTOBUF_C_TYPE_BYTES: {
            const auto& bytes = *reinterpret_cast<const ProtobufCBinaryData*>(at);
            size_t sum = 0;
            for (size_t i = 0; i < bytes.len; ++i) sum += bytes.data[i];
            return sum;
        }
        case PROTOBUF_C_TYPE_MESSAGE: {
            const auto* sub = *reinterpret_cast<const ProtobufCMessage* const*>(at);
            if (sub == nullptr) fail(d, "null sub-message");
            return walk(d, sub);
        }
        default: {
            unsigned char copy[8];
            std::memcpy(copy, at, scalarSize(field.type));
            return copy[0];
        }
    }
}

size_t walk(const Decoder& d, const ProtobufCMessage* message) {
    const ProtobufCMessageDescriptor* desc = message->descriptor;
    const char* base = reinterpret_cast<const char*>(message);
    size_t sum = 0;
    for (unsigned f = 0; f < desc->n_fields; ++f) {
        const ProtobufCFieldDescriptor& field = desc->fields[f];
        if (field.label == PROTOBUF_C_LABEL_REPEATED) {
            size_t count = *reinterpret_cast<const size_t*>(base + field.quantifier_offset);
            const char* items = *reinterpret_cast<char* const*>(base + field.offset);
            if (count != 0 && items == nullptr) fail(d, "repeated field with a count and no array");
            for (size_t i = 0; i < count; ++i) sum += readValue(d, field, items + i * scalarSize(field.type));
        } else {
            sum += readValue(d, field, base + field.offset);
        }
    }
    for (unsigned u = 0; u < message->n_unknown_fields; ++u) {
        sum += message->unknown_fields[u].len;
        gFieldZeroSeen = gFieldZeroSeen || message->unknown_fields[u].tag == 0;
    }
    return sum;
}

std::vector<uint8_t> pack(const Decoder& d, const ProtobufCMessage* message) {
    std::vector<uint8_t> out(protobuf_c_message_get_packed_size(message));
    if (protobuf_c_message_pack(message, out.data()) != out.size()) fail(d, "packed size differs from its measure");
    return out;
}

// protobuf-c's own unpack of the blob, packed. accepted: protobuf-c takes the blob and
// it names field number 0 nowhere (the decoders refuse those on purpose).
std::vector<uint8_t> reference(const Decoder& d, const uint8_t* data, size_t length, bool& accepted) {
    ProtobufCMessage* message = protobuf_c_message_unpack(d.descriptor, nullptr, length, data);
    std::vector<uint8_t> packed;
    accepted = false;
    if (message != nullptr) {
        gFieldZeroSeen = false;
        gSink = walk(d, message);
        accepted = !gFieldZeroSeen;
        packed = pack(d, message);
        protobuf_c_message_free_unpacked(message, nullptr);
    }
    return packed;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const Decoder& d = vqfe_fuzz::kDecoders[data[0] % vqfe_fuzz::kDecoderCount];
    static const uint8_t kNoBytes[1] = {0};  // an empty blob is still a blob, not null
    const uint8_t* blob = size > 1 ? data + 1 : kNoBytes;
    bool protobufAccepts = false;
    const std::vector<uint8_t> expected = reference(d, blob, size - 1, protobufAccepts);
    ProtobufCMessage* message = d.decode(blob, size - 1);
    if ((message != nullptr) != protobufAccepts) fail(d, "the decoder and protobuf-c disagree on whether the blob is valid");
    if (message == nullptr) return 0;
    if (message->descriptor != d.descriptor) fail(d, "message of another type");
    if (!protobuf_c_message_check(message)) fail(d, "decoded message misses a required field");
    gSink = walk(d, message);

    const std::vector<uint8_t> packed = pack(d, message);
    d.release(message);
    if (packed != expected) fail(d, "the decoder's message differs from protobuf-c's");
    return 0;
}
