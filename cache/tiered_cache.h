/// TieredCache: a bounded memory tier in front of a persistent store, read through.
///
/// A query is answered from memory when it can; otherwise from the store, and a store hit
/// is copied into memory so the next query for it stays in memory. save writes both
/// tiers. The clears go to the store; any clear empties the whole memory tier (it is only
/// a copy of the store, so nothing stale can survive a selective clear).
///
/// Each tier keeps its own copy of a blob and every query hands out a new Result owning a
/// fresh copy: the engine moves blobs out of the Results a cache gives it, and callers
/// consume blobs by decoding them, so a shared object would lose its answer.
/// Synchronised: any thread may call any operation (the store is called under the same
/// lock, so it need not be safe on its own).
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "cache/lru_cache.h"
#include "extractor/cache_adapter.h"

namespace VQFeature {

class TieredCache : public CacheAdapter {
public:
    /// Where a query was answered.
    enum Tier {
        MISS = 0,    ///< in neither tier
        MEMORY = 1,  ///< in the memory tier
        STORE = 2,   ///< only in the persistent store (copied into memory by the lookup)
    };

    /// memoryEntries: results kept in memory (least recently used ones go first); a
    /// negative count never evicts. store: the persistent tier, or null for memory only.
    /// Throws std::invalid_argument (IllegalArgumentException in Java) for memoryEntries 0.
    TieredCache(int memoryEntries, std::shared_ptr<CacheAdapter> store);
    TieredCache(const TieredCache&) = delete;
    TieredCache& operator=(const TieredCache&) = delete;
    ~TieredCache() override;

    std::vector<std::shared_ptr<Result>> query(const std::shared_ptr<Input>& input) override;
    std::shared_ptr<Result> query(const std::string& assetId, const std::string& algorithmKey) override;
    void save(const std::vector<std::shared_ptr<Result>>& results) override;
    void save(const std::shared_ptr<Result>& result) override;
    void clear(const std::vector<std::string>& assetIds) override;
    void clearTypes(const std::vector<Vantor::AlgorithmType>& types) override;
    void clearTypes(const std::vector<std::string>& types) override;
    void clearAll() override;

    /// The tier that holds the result of assetId + algorithmKey (MEMORY before STORE), or
    /// MISS; like query, a store hit is copied into memory.
    Tier find(const std::string& assetId, const std::string& algorithmKey);
    /// Results in the memory tier.
    int memoryCount();

private:
    std::shared_ptr<Result> lookup(const std::string& assetId, const std::string& algorithmKey, Tier* tier);
    void remember(const Result& result);

    std::mutex mutex_;
    LRUCache<std::string, std::shared_ptr<const Result>> memory_;  // copies owning their blobs
    std::shared_ptr<CacheAdapter> store_;
};

}  // namespace VQFeature
