// StagingCache: the store a `vqfe work` extractor saves into while a batch runs. It
// keeps a copy of every saved result (the extractor hands some blobs on after saving)
// until the job's results are taken and written with the job's "done" in one
// transaction. Answers no query, so everything claimed is really computed. One thread.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "extractor/cache_adapter.h"

namespace vqfe {

class StagingCache : public VQFeature::CacheAdapter {
public:
    std::vector<std::shared_ptr<VQFeature::Result>> query(const std::shared_ptr<VQFeature::Input>&) override {
        return {};
    }
    std::shared_ptr<VQFeature::Result> query(const std::string&, const std::string&) override { return nullptr; }
    void save(const std::vector<std::shared_ptr<VQFeature::Result>>& results) override;
    void save(const std::shared_ptr<VQFeature::Result>& result) override;
    void clear(const std::vector<std::string>&) override {}
    void clearTypes(const std::vector<Vantor::AlgorithmType>&) override {}
    void clearTypes(const std::vector<std::string>&) override {}
    void clearAll() override { staged_.clear(); }

    // The staged results of one asset, removed from the stage.
    std::vector<std::shared_ptr<VQFeature::Result>> take(const std::string& assetId);

private:
    std::map<std::pair<std::string, std::string>, std::shared_ptr<VQFeature::Result>> staged_;
};

}  // namespace vqfe
