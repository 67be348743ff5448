// A result message packed into bytes, as a blob holds it. Test-only.
#pragma once

#include <cstdint>
#include <vector>

#include <protobuf-c/protobuf-c.h>

namespace vqfe_testing {

// Message: a generated message structure (its first member is `base`).
template <typename Message>
std::vector<uint8_t> packed(const Message& message) {
    std::vector<uint8_t> bytes(protobuf_c_message_get_packed_size(&message.base));
    bytes.resize(protobuf_c_message_pack(&message.base, bytes.data()));
    return bytes;
}

}  // namespace vqfe_testing
