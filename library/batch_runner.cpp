#include "library/batch_runner.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <system_error>

#include "cache/memory_cache.h"
#include "vantor/cover_util.h"

namespace vqfe {
namespace {

using VQFeature::CacheAdapter;
using VQFeature::Extractor;

bool isSingleKindRequest(const AnalysisSetup& setup) {
    return setup.kinds.size() == 1 && setup.kinds.front().stringType.empty();
}

// A several-kind request of the setup's kinds over these pictures.
std::shared_ptr<VQFeature::MultiAlgorithmInput> multiInput(const AnalysisSetup& setup,
                                                          const VQFeature::ResourceList& resources,
                                                          const std::string& graph) {
    std::vector<Vantor::AlgorithmType> types;
    std::vector<std::string> stringTypes;
    for (const Kind& kind : setup.kinds) {
        if (kind.stringType.empty()) types.push_back(static_cast<Vantor::AlgorithmType>(kind.number));
        else stringTypes.push_back(kind.stringType);
    }
    return std::make_shared<VQFeature::MultiAlgorithmInput>(resources, graph, types, stringTypes);
}

std::shared_ptr<VQFeature::Input> singleInput(const AnalysisSetup& setup, const VQFeature::ResourceList& resources,
                                              const std::string& graph) {
    return std::make_shared<VQFeature::Input>(resources, graph, VQFeature::IntParams{},
                                              static_cast<Vantor::AlgorithmType>(setup.kinds.front().number));
}

}  // namespace

std::vector<std::string> BatchRunner::keysFor(const std::string& graph) const {
    if (isSingleKindRequest(setup_)) return {singleInput(setup_, {}, graph)->algorithmKey()};
    std::vector<std::string> keys;
    auto input = multiInput(setup_, {}, graph);
    for (const Kind& kind : setup_.kinds) {
        keys.push_back(kind.stringType.empty() ? input->algorithmKey(static_cast<Vantor::AlgorithmType>(kind.number))
                                               : input->algorithmKey(kind.stringType));
    }
    return keys;
}

BatchRunner::BatchRunner(const AnalysisSetup& setup, const std::string& graph, std::shared_ptr<CacheAdapter> store)
    : setup_(setup), graph_(graph), keys_(keysFor(graph)), store_(store) {
    auto config = std::make_shared<VQFeature::Config>();
    std::shared_ptr<CacheAdapter> inner = store ? store : std::make_shared<VQFeature::MemoryCache>(256);
    batchStore_ = std::make_shared<BatchStore>(inner, dynamic_cast<VQFeature::StoreIndex*>(store.get()));
    // Requests after the graph has loaded carry no graph text, so the extractor files their
    // results under the keys of the empty text; the store keeps them under the full graph's.
    batchStore_->setKeyAliases(VQFeature::KeptGraph::keyAliases(keysFor(""), keys_));
    // The batch store is the only cache: it passes new results on to the store.
    std::shared_ptr<CacheAdapter> cache = batchStore_;
    std::shared_ptr<CacheAdapter> none;
    extractor_ = Extractor::makeInstance(config, cache, none, setup.modelDir, setup.frameworkConfig, false);
    initCode_ = extractor_->init();
}

void BatchRunner::run(std::vector<ImageOutcome*>& batch) {
    // Within one request a second file of the same content came back without results, and
    // the timing by each asset's first look-up ran from the first file's.
    std::vector<ImageOutcome*> distinct;
    std::vector<std::pair<ImageOutcome*, const ImageOutcome*>> copies;
    std::map<std::string, const ImageOutcome*> firstOfAsset;
    for (ImageOutcome* outcome : batch) {
        auto [first, added] = firstOfAsset.emplace(outcome->image.assetId, outcome);
        if (added) distinct.push_back(outcome);
        else copies.emplace_back(outcome, first->second);
    }
    // Every file's record, copies too: the index keeps each path of a content.
    std::vector<VQFeature::ImageRecord> records;
    for (ImageOutcome* outcome : batch) {
        const LoadedImage& image = outcome->image;
        std::error_code ec;
        const auto bytes = std::filesystem::file_size(image.path, ec);
        const bool sized = !ec;
        const std::string path = std::filesystem::absolute(image.path, ec).lexically_normal().string();
        VQFeature::ImageRecord record{image.assetId, ec ? image.path : path, sized ? static_cast<long long>(bytes) : 0,
                                      image.buffer ? image.buffer->width : 0, image.buffer ? image.buffer->height : 0,
                                      0};
        records.push_back(std::move(record));
    }
    batchStore_->begin(records);
    runDistinct(distinct);
    for (auto& [copy, original] : copies) {
        copy->blobs = original->blobs;
        copy->keepAlive = original->keepAlive;
        copy->error = original->error;
        copy->produced = original->produced;
        copy->fromStore = original->fromStore;
        copy->milliseconds = 0;
    }
}

void BatchRunner::runDistinct(std::vector<ImageOutcome*>& batch) {
    VQFeature::ErrorPair error{0, ""};
    runRequest(batch, &error);
    const auto end = std::chrono::steady_clock::now();
    const auto firstSeen = batchStore_->firstSeen();
    // Each image the extractor took from its first look-up to the next image's; the
    // extractor takes them in order. The store's answers were timed as they were read.
    for (size_t i = 0; i < batch.size(); ++i) {
        if (batch[i]->fromStore) continue;
        auto from = firstSeen.find(batch[i]->image.assetId);
        auto to = end;
        for (size_t j = i + 1; j < batch.size(); ++j) {
            auto next = firstSeen.find(batch[j]->image.assetId);
            if (from != firstSeen.end() && next != firstSeen.end() && next->second > from->second) {
                to = next->second;
                break;
            }
        }
        batch[i]->milliseconds =
            from == firstSeen.end() ? 0 : std::chrono::duration<double, std::milli>(to - from->second).count();
    }
    std::vector<ImageOutcome*> failed;
    for (ImageOutcome* outcome : batch) {
        if (!outcome->produced) failed.push_back(outcome);
    }
    if (failed.size() == 1) failed.front()->error = error;
    if (failed.size() < 2) {
        finishBatch(batch);
        return;
    }
    for (ImageOutcome* outcome : failed) {
        std::vector<ImageOutcome*> alone{outcome};
        runRequest(alone, &outcome->error);
    }
    finishBatch(batch);
}

void BatchRunner::finishBatch(const std::vector<ImageOutcome*>& batch) {
    for (const ImageOutcome* outcome : batch) {
        if (!outcome->produced) batchStore_->forget(outcome->image.assetId);
    }
    batchStore_->finish();
}

void BatchRunner::runRequest(std::vector<ImageOutcome*>& batch, VQFeature::ErrorPair* error) {
    std::vector<ImageOutcome*> missing;
    for (ImageOutcome* outcome : batch) {
        outcome->blobs.clear();
        outcome->keepAlive.clear();
        outcome->fromStore = answerFromStore(*outcome);
        if (!outcome->fromStore) missing.push_back(outcome);
    }
    if (!missing.empty()) extract(missing, error);
}

bool BatchRunner::answerFromStore(ImageOutcome& outcome) {
    if (!store_) return false;
    const auto start = std::chrono::steady_clock::now();
    std::vector<std::shared_ptr<VQFeature::Result>> hits;
    for (const std::string& key : keys_) {
        hits.push_back(store_->query(outcome.image.assetId, key));
        if (!hits.back()) return false;
    }
    // What the extractor would make of the same hits.
    outcome.produced = true;
    for (size_t k = 0; k < hits.size(); ++k) {
        outcome.keepAlive.push_back(hits[k]);
        outcome.blobs[setup_.kinds[k].name] = {hits[k]->result, hits[k]->resultLength};
    }
    if (isSingleKindRequest(setup_)) {
        outcome.produced = hits.front()->result != nullptr || setup_.kinds.front().number == 9;
    }
    outcome.milliseconds = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    return true;
}

void BatchRunner::extract(std::vector<ImageOutcome*>& batch, VQFeature::ErrorPair* error) {
    VQFeature::ResourceList resources;
    for (ImageOutcome* outcome : batch) {
        resources.push_back(std::make_shared<VQFeature::Resource>(outcome->image.assetId, outcome->image.path,
                                                                  outcome->image.buffer));
    }
    // Only a framework run saves a result (answers from the cache do not): a save proves
    // the graph.
    const std::string graph = keptGraph_.requestText(graph_);
    const size_t savedBefore = batchStore_->resultsSaved();
    if (isSingleKindRequest(setup_)) {
        const Kind& kind = setup_.kinds.front();
        auto results = extractor_->extractFeatures(singleInput(setup_, resources, graph), true, error);
        for (size_t i = 0; i < batch.size() && i < results.size(); ++i) {
            // Handed back under the key a request carrying the graph gives it, as stored.
            results[i]->algorithmKey = keys_.front();
            batch[i]->keepAlive.push_back(results[i]);
            batch[i]->blobs[kind.name] = {results[i]->result, results[i]->resultLength};
            batch[i]->produced = results[i]->result != nullptr || kind.number == 9;
        }
        if (batchStore_->resultsSaved() > savedBefore) keptGraph_.ran(graph_);
        return;
    }
    auto results = extractor_->extractFeatures(multiInput(setup_, resources, graph), true, error);
    for (size_t i = 0; i < batch.size() && i < results.size(); ++i) {
        auto multi = results[i];
        batch[i]->keepAlive.push_back(multi);
        batch[i]->produced = multi->resultCount() > 0;
        for (const Kind& kind : setup_.kinds) {
            auto item = kind.stringType.empty()
                            ? multi->getResultItem(static_cast<Vantor::AlgorithmType>(kind.number))
                            : multi->getResultItem(kind.stringType);
            if (item) batch[i]->blobs[kind.name] = {item->data, item->size};
        }
    }
    if (batchStore_->resultsSaved() > savedBefore) keptGraph_.ran(graph_);
}

}  // namespace vqfe
