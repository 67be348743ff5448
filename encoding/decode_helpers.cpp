#include "encoding/decode_helpers.h"

#include "encoding/message_unpack.h"

namespace {

// protobuf-c accepts a field number 0 when its tag is written in more than one byte
// (0x80 0x00 ...) and keeps it as an unknown field; every other reader rejects such a
// blob, and protobuf-c itself rejects it once re-packed. Found by fuzz/decoders_fuzzer.
bool hasFieldNumberZero(const ProtobufCMessage* message) {
    for (unsigned u = 0; u < message->n_unknown_fields; ++u) {
        if (message->unknown_fields[u].tag == 0) return true;
    }
    const ProtobufCMessageDescriptor* desc = message->descriptor;
    const char* base = reinterpret_cast<const char*>(message);
    for (unsigned f = 0; f < desc->n_fields; ++f) {
        const ProtobufCFieldDescriptor& field = desc->fields[f];
        if (field.type != PROTOBUF_C_TYPE_MESSAGE) continue;
        const auto* slot = reinterpret_cast<const ProtobufCMessage* const*>(base + field.offset);
        size_t count = 1;
        if (field.label == PROTOBUF_C_LABEL_REPEATED) {
            count = *reinterpret_cast<const size_t*>(base + field.quantifier_offset);
            slot = *reinterpret_cast<const ProtobufCMessage* const* const*>(slot);
        }
        for (size_t i = 0; i < count; ++i) {
            if (slot[i] != NULL && hasFieldNumberZero(slot[i])) return true;
        }
    }
    return false;
}

}  // namespace

// Each pair unpacks with the default allocator (in one pass, see message_unpack.h) and
// frees with the generated free_unpacked. A null blob is no blob: its _alloc gives
// null without reading; a blob naming field number 0 is malformed and gives null too.
#define VQFE_RESULT_KIND(kind, number, cliName, Buffer, Message, name)                                          \
    Message* name##_alloc(const uint8_t* data, size_t length) {                                                 \
        if (data == NULL) return NULL;                                                                          \
        Message* message = reinterpret_cast<Message*>(VQFeature::unpackMessage(&c__##name##__descriptor, length, data)); \
        if (message != NULL && hasFieldNumberZero(&message->base)) {                                            \
            c__##name##__free_unpacked(message, NULL);                                                          \
            return NULL;                                                                                        \
        }                                                                                                       \
        return message;                                                                                         \
    }                                                                                                           \
    void name##_free(Message* message) { c__##name##__free_unpacked(message, NULL); }
#define VQFE_RESULT_KIND_ALIAS(...)
#include "encoding/result_kinds.def"
