// What stands for a network file's bytes once they are gone: their size and a 128-bit hash
// of all of them, keyed by a secret drawn at random once per process. Equal bytes always give
// equal digests; different bytes of a file not made with the process's secret in hand give
// equal ones with a chance of about 2^-128. The hash runs at memory speed (XXH3), so a
// lookup costs less than the comparison with a kept copy it replaces; a cryptographic digest
// (SHA-256 at 1.6 GB/s with the processor's SHA instructions) would multiply a reload's time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <tuple>

namespace kv {

struct ContentDigest {
    uint64_t size = 0;
    uint64_t high = 0, low = 0;

    friend bool operator==(const ContentDigest& a, const ContentDigest& b) {
        return std::tie(a.size, a.high, a.low) == std::tie(b.size, b.high, b.low);
    }
    friend bool operator<(const ContentDigest& a, const ContentDigest& b) {
        return std::tie(a.size, a.high, a.low) < std::tie(b.size, b.high, b.low);
    }
};

ContentDigest digestOf(const uint8_t* data, size_t size);

}  // namespace kv
