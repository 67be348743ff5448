// The fifteen exported decode helpers as one table, in the order of
// encoding/result_kinds.def. The decoders fuzz target dispatches on an input's first byte
// (index = byte % count); the seed maker writes each real blob behind its index byte.
// Plain data, read-only, safe from any thread.
#pragma once

#include <cstddef>
#include <cstdint>

#include "encoding/decode_helpers.h"

namespace vqfe_fuzz {

struct Decoder {
    const char* name;                          // "<name>" of <name>_alloc / <name>_free
    int kind;                                  // algorithm kind whose encoder packs it
    const ProtobufCMessageDescriptor* descriptor;
    ProtobufCMessage* (*decode)(const uint8_t* data, size_t length);
    void (*release)(ProtobufCMessage* message);
};

// Typed adapters: every message starts with its ProtobufCMessage base, so the pointers
// convert both ways without calling a function through a foreign signature.
template <typename T, T* (*Alloc)(const uint8_t*, size_t)>
ProtobufCMessage* decodeAs(const uint8_t* data, size_t length) {
    T* message = Alloc(data, length);
    return message == nullptr ? nullptr : &message->base;
}

template <typename T, void (*Free)(T*)>
void releaseAs(ProtobufCMessage* message) {
    Free(reinterpret_cast<T*>(message));
}

inline constexpr Decoder kDecoders[] = {
#define VQFE_RESULT_KIND(kind, number, cliName, Buffer, Message, name) \
    {#name, number, &c__##name##__descriptor, decodeAs<Message, name##_alloc>, releaseAs<Message, name##_free>},
#define VQFE_RESULT_KIND_ALIAS(...)
#include "encoding/result_kinds.def"
};

inline constexpr size_t kDecoderCount = sizeof kDecoders / sizeof kDecoders[0];

}  // namespace vqfe_fuzz
