// The cache baseline: the textbook least-recently-used map, a std::list of (key, value)
// in recency order and a std::unordered_map from key to list position, used through the
// same (asset id + algorithm key) keys as MemoryCache. Benchmark-only; not synchronised.
#pragma once

#include <list>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>

#include "extractor/result.h"

namespace VQFeature {
namespace bench {

class TextbookLru {
public:
    explicit TextbookLru(size_t capacity) : capacity_(capacity) {}

    std::shared_ptr<Result> query(const std::string& assetId, const std::string& algorithmKey) {
        auto found = index_.find(assetId + algorithmKey);
        if (found == index_.end()) return nullptr;
        order_.splice(order_.begin(), order_, found->second);
        return found->second->second;
    }

    void save(const std::shared_ptr<Result>& result) {
        std::string key = result->assetId + result->algorithmKey;
        auto found = index_.find(key);
        if (found != index_.end()) {
            found->second->second = result;
            order_.splice(order_.begin(), order_, found->second);
            return;
        }
        if (index_.size() >= capacity_) {
            index_.erase(order_.back().first);
            order_.pop_back();
        }
        order_.emplace_front(key, result);
        index_.emplace(std::move(key), order_.begin());
    }

    size_t size() const { return index_.size(); }

private:
    using Entry = std::pair<std::string, std::shared_ptr<Result>>;
    size_t capacity_;
    std::list<Entry> order_;
    std::unordered_map<std::string, std::list<Entry>::iterator> index_;
};

}  // namespace bench
}  // namespace VQFeature
