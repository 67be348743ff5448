#include "model/content_digest.h"

#include <array>
#include <random>

#include <xxhash.h>

namespace kv {

namespace {

// XXH3's secret, random per process: no file can be built ahead to collide with another.
const std::array<unsigned char, XXH3_SECRET_SIZE_MIN * 2>& processSecret() {
    static const auto secret = [] {
        std::array<unsigned char, XXH3_SECRET_SIZE_MIN * 2> bytes{};
        std::random_device random;
        for (unsigned char& b : bytes) b = static_cast<unsigned char>(random());
        return bytes;
    }();
    return secret;
}

}  // namespace

ContentDigest digestOf(const uint8_t* data, size_t size) {
    const auto& secret = processSecret();
    const XXH128_hash_t h = XXH3_128bits_withSecret(data, size, secret.data(), secret.size());
    return ContentDigest{size, h.high64, h.low64};
}

}  // namespace kv
