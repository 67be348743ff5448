#include "tools/vqfe/batch_runner.h"

#include <algorithm>
#include <chrono>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "cache/memory_cache.h"
#include "vantor/cover_util.h"
#include "vantor/graph_merge.h"

namespace vqfe {
namespace {

using VQFeature::CacheAdapter;
using VQFeature::Extractor;

// The graph of one kind: its built-in template, with the post-processor renamed to the
// output-node name for a string kind.
std::string graphOfKind(const Kind& kind) {
    std::string graph = VQFeature::CoverUtil::getAlgorithmConf(static_cast<Vantor::AlgorithmType>(kind.templateKind));
    if (!kind.stringType.empty()) graph = VQFeature::renameNode(graph, "ClassificationPostProcess", kind.stringType);
    return graph;
}

bool isSingleKindRequest(const ExtractOptions& options) {
    return options.kinds.size() == 1 && options.kinds.front().stringType.empty();
}

}  // namespace

std::string requestGraph(const ExtractOptions& options) {
    if (!options.graphFile.empty()) {
        std::ifstream in(options.graphFile);
        if (!in) throw std::runtime_error("cannot read graph file " + options.graphFile);
        return std::string(std::istreambuf_iterator<char>(in), {});
    }
    std::vector<std::string> graphs;
    for (const Kind& kind : options.kinds) {
        std::string graph = graphOfKind(kind);
        if (std::find(graphs.begin(), graphs.end(), graph) == graphs.end()) graphs.push_back(graph);
    }
    return graphs.size() == 1 ? graphs.front() : VQFeature::mergeGraphs(graphs);
}

BatchRunner::BatchRunner(const ExtractOptions& options, const std::string& graph, std::shared_ptr<CacheAdapter> store)
    : options_(options), graph_(graph), store_(store) {
    auto config = std::make_shared<VQFeature::Config>();
    std::shared_ptr<CacheAdapter> first = store ? store : std::make_shared<VQFeature::MemoryCache>(256);
    extractor_ = Extractor::makeInstance(config, first, store_, options.modelDir, options.frameworkConfig, false);
    initCode_ = extractor_->init();
}

void BatchRunner::run(std::vector<ImageOutcome*>& batch) {
    const auto start = std::chrono::steady_clock::now();
    VQFeature::ErrorPair error{0, ""};
    runRequest(batch, &error);
    std::vector<ImageOutcome*> failed;
    for (ImageOutcome* outcome : batch) {
        if (!outcome->produced) failed.push_back(outcome);
    }
    if (failed.size() == 1) failed.front()->error = error;
    const double each =
        std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count() / batch.size();
    for (ImageOutcome* outcome : batch) outcome->milliseconds = each;
    if (failed.size() < 2) return;
    for (ImageOutcome* outcome : failed) {
        std::vector<ImageOutcome*> alone{outcome};
        runRequest(alone, &outcome->error);
    }
}

void BatchRunner::runRequest(std::vector<ImageOutcome*>& batch, VQFeature::ErrorPair* error) {
    VQFeature::ResourceList resources;
    for (ImageOutcome* outcome : batch) {
        outcome->blobs.clear();
        outcome->keepAlive.clear();
        resources.push_back(std::make_shared<VQFeature::Resource>(outcome->image.assetId, outcome->image.path,
                                                                  outcome->image.buffer));
    }
    if (isSingleKindRequest(options_)) {
        const Kind& kind = options_.kinds.front();
        auto input = std::make_shared<VQFeature::Input>(resources, graph_, VQFeature::IntParams{},
                                                        static_cast<Vantor::AlgorithmType>(kind.number));
        const std::string key = input->algorithmKey();
        for (ImageOutcome* outcome : batch) {
            outcome->fromStore = store_ && store_->query(outcome->image.assetId, key) != nullptr;
        }
        auto results = extractor_->extractFeatures(input, true, error);
        for (size_t i = 0; i < batch.size() && i < results.size(); ++i) {
            batch[i]->keepAlive.push_back(results[i]);
            batch[i]->blobs[kind.name] = {results[i]->result, results[i]->resultLength};
            batch[i]->produced = results[i]->result != nullptr || kind.number == 9;
        }
        return;
    }
    std::vector<Vantor::AlgorithmType> types;
    std::vector<std::string> stringTypes;
    for (const Kind& kind : options_.kinds) {
        if (kind.stringType.empty()) types.push_back(static_cast<Vantor::AlgorithmType>(kind.number));
        else stringTypes.push_back(kind.stringType);
    }
    auto input = std::make_shared<VQFeature::MultiAlgorithmInput>(resources, graph_, types, stringTypes);
    for (ImageOutcome* outcome : batch) {
        outcome->fromStore = store_ != nullptr;
        for (auto type : types) {
            outcome->fromStore = outcome->fromStore &&
                                 store_->query(outcome->image.assetId, input->algorithmKey(type)) != nullptr;
        }
        for (const auto& name : stringTypes) {
            outcome->fromStore = outcome->fromStore &&
                                 store_->query(outcome->image.assetId, input->algorithmKey(name)) != nullptr;
        }
    }
    auto results = extractor_->extractFeatures(input, true, error);
    for (size_t i = 0; i < batch.size() && i < results.size(); ++i) {
        auto multi = results[i];
        batch[i]->keepAlive.push_back(multi);
        batch[i]->produced = multi->resultCount() > 0;
        for (const Kind& kind : options_.kinds) {
            auto item = kind.stringType.empty()
                            ? multi->getResultItem(static_cast<Vantor::AlgorithmType>(kind.number))
                            : multi->getResultItem(kind.stringType);
            if (item) batch[i]->blobs[kind.name] = {item->data, item->size};
        }
    }
}

}  // namespace vqfe
