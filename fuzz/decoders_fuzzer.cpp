// Fuzz target: the fifteen exported <name>_alloc decoders with untrusted blobs (an app's
// own database). The first byte picks the decoder (see decoder_table.h), the rest is the
// blob. A decoded message must be complete (every required field present), every field
// must be readable to its end, <name>_free must release everything (LeakSanitizer), and
// re-packing must be stable: decode(pack(m)) succeeds and packs to the same bytes.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "decoder_table.h"

namespace {

using vqfe_fuzz::Decoder;

volatile size_t gSink;  // keeps the field reads from being optimised away

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
    for (unsigned u = 0; u < message->n_unknown_fields; ++u) sum += message->unknown_fields[u].len;
    return sum;
}

std::vector<uint8_t> pack(const Decoder& d, const ProtobufCMessage* message) {
    std::vector<uint8_t> out(protobuf_c_message_get_packed_size(message));
    if (protobuf_c_message_pack(message, out.data()) != out.size()) fail(d, "packed size differs from its measure");
    return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const Decoder& d = vqfe_fuzz::kDecoders[data[0] % vqfe_fuzz::kDecoderCount];
    ProtobufCMessage* message = d.decode(data + 1, size - 1);
    if (message == nullptr) return 0;
    if (message->descriptor != d.descriptor) fail(d, "message of another type");
    if (!protobuf_c_message_check(message)) fail(d, "decoded message misses a required field");
    gSink = walk(d, message);

    std::vector<uint8_t> first = pack(d, message);
    d.release(message);
    static const uint8_t kEmpty[1] = {0};  // an empty blob is still a blob, not null
    ProtobufCMessage* again = d.decode(first.empty() ? kEmpty : first.data(), first.size());
    if (again == nullptr) fail(d, "a re-packed message does not decode");
    std::vector<uint8_t> second = pack(d, again);
    d.release(again);
    if (first != second) fail(d, "re-packing is not stable");
    return 0;
}
