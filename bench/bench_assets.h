// Asset ids, cached results and operation mixes for the cache and engine benchmarks.
// Asset ids look like the app's media URIs; keys are a real algorithm key (32 hex digits).
#pragma once

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "extractor/result.h"

namespace VQFeature {
namespace bench {

// The ctest smoke run (VQFE_BENCH_SMOKE set) only checks that every benchmark runs:
// sizes shrink to n / 100 so that it stays quick under the sanitizers.
inline size_t scaled(size_t n) { return std::getenv("VQFE_BENCH_SMOKE") != nullptr ? n / 100 + 1 : n; }

inline std::string assetId(size_t i) { return "content://media/external/images/media/" + std::to_string(100000 + i); }

// The algorithm key of the classification request of the benchmarks.
inline const std::string& benchKey() {
    static const std::string key = "3f2a8c41d7e95b06c1a4f8e2d9b7c350";
    return key;
}

// n results of one algorithm key with a small blob each, asset i at index i.
inline std::vector<std::shared_ptr<Result>> makeResults(size_t n) {
    std::vector<std::shared_ptr<Result>> out;
    out.reserve(n);
    for (size_t i = 0; i < n; ++i) {
        out.push_back(std::make_shared<Result>(assetId(i), benchKey(), Vantor::AlgorithmType::PornCls));
    }
    return out;
}

// One cache operation: a query (90 in 100) or a save (10 in 100) of key index `key`.
struct CacheOp {
    bool save;
    uint32_t key;
};

// count operations over keys 0..keys-1, uniformly and in a fixed order.
inline std::vector<CacheOp> mixedOps(size_t count, size_t keys) {
    std::vector<CacheOp> ops;
    ops.reserve(count);
    uint64_t x = 88172645463325252ull;
    for (size_t i = 0; i < count; ++i) {
        x ^= x << 13;
        x ^= x >> 7;
        x ^= x << 17;
        ops.push_back({x % 100 < 10, static_cast<uint32_t>((x >> 8) % keys)});
    }
    return ops;
}

}  // namespace bench
}  // namespace VQFeature
