// BatchStore: the cache a BatchRunner's extractor sees. It forwards to the real store and
//  - writes each image's results together with the image's record (path, size) and the
//    index rows in one transaction, when the store keeps an index; an image the store
//    already answered (or a byte-identical copy) gets its record written on its own;
//  - notes when the extractor first looks an image up, so each image gets its own time:
//    from its first look-up to the next image's (the extractor takes them in order);
//  - files results of requests that kept the loaded graph (empty graph text, so other
//    algorithm keys) under the keys of the full graph text, as every store knows them.
// One batch at a time, one thread.
#pragma once

#include <chrono>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "cache/store_index.h"
#include "extractor/cache_adapter.h"

namespace vqfe {

class BatchStore : public VQFeature::CacheAdapter {
public:
    using Clock = std::chrono::steady_clock;

    // inner: the store or memory cache; index: inner's index, or null.
    BatchStore(std::shared_ptr<VQFeature::CacheAdapter> inner, VQFeature::StoreIndex* index);

    // Algorithm keys the extractor uses -> the keys the store files them under. A result
    // saved under an alias is stored as a copy under the stored key; the saved object
    // keeps its own key.
    void setKeyAliases(std::map<std::string, std::string> aliases) { aliases_ = std::move(aliases); }
    // A new batch of these images.
    void begin(const std::vector<VQFeature::ImageRecord>& records);
    // When each asset was first looked up so far.
    const std::map<std::string, Clock::time_point>& firstSeen() const { return firstSeen_; }
    // Drops the records of an image that produced nothing: it is not recorded.
    void forget(const std::string& assetId) { records_.erase(assetId); }
    // How many results the extractor has saved so far: each comes from a framework run.
    size_t resultsSaved() const { return saved_; }
    // Writes what is pending and the records not yet written.
    void finish();

    std::vector<std::shared_ptr<VQFeature::Result>> query(const std::shared_ptr<VQFeature::Input>& input) override;
    std::shared_ptr<VQFeature::Result> query(const std::string& assetId, const std::string& algorithmKey) override;
    void save(const std::vector<std::shared_ptr<VQFeature::Result>>& results) override;
    void save(const std::shared_ptr<VQFeature::Result>& result) override;
    void clear(const std::vector<std::string>& assetIds) override { inner_->clear(assetIds); }
    void clearTypes(const std::vector<Vantor::AlgorithmType>& types) override { inner_->clearTypes(types); }
    void clearTypes(const std::vector<std::string>& types) override { inner_->clearTypes(types); }
    void clearAll() override { inner_->clearAll(); }

private:
    const std::string& storedKey(const std::string& algorithmKey) const;
    void touch(const std::string& assetId);
    void flush();

    std::shared_ptr<VQFeature::CacheAdapter> inner_;
    VQFeature::StoreIndex* index_;
    std::map<std::string, std::string> aliases_;
    size_t saved_ = 0;
    std::multimap<std::string, VQFeature::ImageRecord> records_;  // by asset id; written ones removed
    std::map<std::string, Clock::time_point> firstSeen_;
    std::string current_;
    std::vector<std::shared_ptr<VQFeature::Result>> pending_;  // copies of current_'s new results
};

}  // namespace vqfe
