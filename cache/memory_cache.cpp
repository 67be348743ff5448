#include "cache/memory_cache.h"

namespace VQFeature {

MemoryCache::MemoryCache(int capacity) : cache_(capacity) {}

std::vector<std::shared_ptr<Result>> MemoryCache::query(const std::shared_ptr<Input>& input) {
    std::vector<std::shared_ptr<Result>> hits;
    if (!input || input->resList.empty()) {
        return hits;
    }
    const std::string key = input->algorithmKey(Vantor::AlgorithmType::AllNodes);
    for (const auto& resource : input->resList) {
        if (!resource) {
            continue;
        }
        if (auto hit = cache_.get(lookupKey(resource->assetId, key))) {
            hits.push_back(std::move(hit));
        }
    }
    return hits;
}

std::shared_ptr<Result> MemoryCache::query(const std::string& assetId, const std::string& algorithmKey) {
    return cache_.get(lookupKey(assetId, algorithmKey));
}

const std::string& MemoryCache::lookupKey(const std::string& assetId, const std::string& algorithmKey) {
    // One buffer for every key built: after the first few calls no key costs an allocation.
    lookupKey_.assign(assetId);
    lookupKey_ += algorithmKey;
    return lookupKey_;
}

void MemoryCache::save(const std::vector<std::shared_ptr<Result>>& results) {
    // Through the virtual single form, so an override of it governs the bulk form too.
    for (const auto& result : results) {
        save(result);
    }
}

void MemoryCache::save(const std::shared_ptr<Result>& result) {
    if (!result) {
        return;  // nothing to key it by
    }
    cache_.set(lookupKey(result->assetId, result->algorithmKey), result);
}

// Selective clears mean something only for host caches; this cache keeps its entries.
void MemoryCache::clear(const std::vector<std::string>&) {}
void MemoryCache::clearTypes(const std::vector<Vantor::AlgorithmType>&) {}
void MemoryCache::clearTypes(const std::vector<std::string>&) {}

void MemoryCache::clearAll() { cache_.clear(); }

}  // namespace VQFeature
