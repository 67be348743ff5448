/// MemoryCache: the library's bounded least-recently-used cache of Results, in memory.
///
/// Keys are asset id + algorithm key. Only clearAll clears; the selective clears are
/// no-ops here (they mean something only for host caches). Results are shared, never
/// copied. Not synchronised: even a query reorders the recency list, so callers that
/// share one instance across threads serialise their calls.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "extractor/cache_adapter.h"
#include "cache/lru_cache.h"

namespace VQFeature {

class MemoryCache : public CacheAdapter {
public:
    /// capacity: the most entries kept. A negative capacity never evicts.
    /// Throws std::invalid_argument (IllegalArgumentException in Java) for capacity 0 (a cache that can hold nothing).
    explicit MemoryCache(int capacity);

    std::vector<std::shared_ptr<Result>> query(const std::shared_ptr<Input>& input) override;
    std::shared_ptr<Result> query(const std::string& assetId, const std::string& algorithmKey) override;
    void save(const std::vector<std::shared_ptr<Result>>& results) override;
    void save(const std::shared_ptr<Result>& result) override;
    /// Does nothing: this cache is cleared only as a whole, by clearAll.
    void clear(const std::vector<std::string>& assetIds) override;
    /// Does nothing: this cache is cleared only as a whole, by clearAll.
    void clearTypes(const std::vector<Vantor::AlgorithmType>& types) override;
    /// Does nothing: this cache is cleared only as a whole, by clearAll.
    void clearTypes(const std::vector<std::string>& types) override;
    /// Forgets every entry.
    void clearAll() override;

private:
    /// asset id + algorithm key in a buffer kept between calls.
    const std::string& lookupKey(const std::string& assetId, const std::string& algorithmKey);

    LRUCache<std::string, std::shared_ptr<Result>> cache_;
    std::string lookupKey_;
};

}  // namespace VQFeature
