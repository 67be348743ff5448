// Inputs shared by the benchmarks: deterministic payloads and the long graph text of a
// classification request (kind 121), the longest text the library digests in practice.
#pragma once

#include <cstdint>
#include <string>

#include "vantor/cover_util.h"

namespace VQFeature {
namespace bench {

// n bytes of a fixed pseudo-random pattern (the same in every run).
inline std::string payload(size_t n) {
    std::string out(n, '\0');
    uint32_t x = 2463534242u;
    for (auto& c : out) {
        x ^= x << 13;
        x ^= x >> 17;
        x ^= x << 5;
        c = static_cast<char>(x);
    }
    return out;
}

// The built-in graph of the classification kind (121), about ten kilobytes of JSON.
inline std::string classificationGraph() { return CoverUtil::getAlgorithmConf(Vantor::AlgorithmType::NHClassification); }

}  // namespace bench
}  // namespace VQFeature
