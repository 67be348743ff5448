// Test support for the encoding tests: an owning blob, a decoded-message holder, its
// JSON, and framework values with recognisable contents.
#pragma once

#include <cstdlib>
#include <memory>
#include <string>

#include "Glintcore/Geometry.h"
#include "Glintcore/PrimitiveVector.h"
#include "encoding/blob_encoders.h"
#include "encoding/decode_helpers.h"
#include "encoding/message_json.h"

namespace VQFeature {
namespace testing_support {

struct Blob {
    void* data = nullptr;
    unsigned long size = 0;
    Blob() = default;
    Blob(Blob&& other) noexcept : data(other.data), size(other.size) { other.data = nullptr; }
    Blob(const Blob&) = delete;
    ~Blob() { std::free(data); }
    const uint8_t* bytes() const { return static_cast<const uint8_t*>(data); }
};

template <typename Buffer>
Blob encode(Buffer* buffer) {
    Blob blob;
    blob.data = convertToBlob(buffer, &blob.size);
    return blob;
}

template <typename Message>
using Decoded = std::unique_ptr<Message, void (*)(Message*)>;

template <typename Message>
Decoded<Message> decode(const Blob& blob, Message* (*alloc)(const uint8_t*, size_t), void (*release)(Message*)) {
    return Decoded<Message>(alloc(blob.bytes(), blob.size), release);
}

// The blob decoded with the given helper pair, as JSON (every field by name), or
// "<undecodable>".
template <typename Message>
std::string json(const Blob& blob, Message* (*alloc)(const uint8_t*, size_t), void (*release)(Message*)) {
    auto message = decode(blob, alloc, release);
    return message ? messageToJson(message->base) : "<undecodable>";
}

// n points (base + i, base - i).
inline Glintcore::PrimitiveVector<Glintcore::Vector2f> points(size_t n, float base) {
    Glintcore::PrimitiveVector<Glintcore::Vector2f> out;
    for (size_t i = 0; i < n; ++i) out.push_back({base + static_cast<float>(i), base - static_cast<float>(i)});
    return out;
}

// The rectangle mapping's expected flipped y, in the same single precision.
inline float flippedY(const Glintcore::Rect& rect) { return (1.0f - rect.y) - rect.height; }

}  // namespace testing_support
}  // namespace VQFeature
