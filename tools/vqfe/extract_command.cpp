#include "tools/vqfe/extract_command.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <mutex>
#include <sstream>
#include <thread>

#include "cache/memory_cache.h"
#include "cache/sqlite_cache.h"
#include "encoding/message_json.h"
#include "extractor/extractor.h"
#include "tools/vqfe/annotate.h"
#include "tools/vqfe/graph_merge.h"
#include "tools/vqfe/image_io.h"
#include "tools/vqfe/progress.h"
#include "tools/vqfe/summary.h"
#include "vantor/cover_util.h"
#include "vantor/vantor_system.h"

namespace vqfe {
namespace {

// Images per request: one graph load serves the whole batch.
constexpr size_t kBatchSize = 16;

using VQFeature::CacheAdapter;
using VQFeature::Extractor;

// The graph of one kind: its built-in template, with the post-processor renamed to the
// output-node name for a string kind.
std::string graphOfKind(const Kind& kind) {
    std::string graph = VQFeature::CoverUtil::getAlgorithmConf(static_cast<Vantor::AlgorithmType>(kind.templateKind));
    if (!kind.stringType.empty()) graph = renameNode(graph, "ClassificationPostProcess", kind.stringType);
    return graph;
}

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
    return graphs.size() == 1 ? graphs.front() : mergeGraphs(graphs);
}

bool isSingleKindRequest(const ExtractOptions& options) {
    return options.kinds.size() == 1 && options.kinds.front().stringType.empty();
}

// One blob per kind for one image, however it was obtained.
struct ImageOutcome {
    LoadedImage image;
    std::map<std::string, std::pair<const void*, unsigned long>> blobs;  // by kind name
    std::vector<std::shared_ptr<void>> keepAlive;                        // owners of the blobs
    VQFeature::ErrorPair error{0, ""};
    bool produced = false;   // the framework or the store gave something
    bool fromStore = false;
    double milliseconds = 0;  // the batch's time, shared out
};

// One extractor with its own framework system. Images go through in batches, one
// request per batch, so the graph is loaded once per batch rather than once per image.
class Worker {
public:
    Worker(const ExtractOptions& options, const std::string& graph, std::shared_ptr<CacheAdapter> store)
        : options_(options), graph_(graph), store_(store) {
        auto config = std::make_shared<VQFeature::Config>();
        std::shared_ptr<CacheAdapter> first = store ? store : std::make_shared<VQFeature::MemoryCache>(256);
        extractor_ = Extractor::makeInstance(config, first, store_, options.modelDir, options.frameworkConfig, false);
        initCode_ = extractor_->init();
    }
    int initCode() const { return initCode_; }

    // Fills every outcome of the batch. The error pair of a request holds only its last
    // failure, so when several images of a batch fail, each is run again alone to get
    // its own error.
    void run(std::vector<ImageOutcome*>& batch) {
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

private:
    void runRequest(std::vector<ImageOutcome*>& batch, VQFeature::ErrorPair* error) {
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

    const ExtractOptions& options_;
    std::string graph_;
    std::shared_ptr<CacheAdapter> store_;
    std::shared_ptr<Extractor> extractor_;
    int initCode_ = 0;
};

void printOutcome(const ExtractOptions& options, const ImageOutcome& outcome, std::ostream& out) {
    const std::string head = "{\"image\":" + VQFeature::jsonQuoted(outcome.image.path) +
                             ",\"asset\":" + VQFeature::jsonQuoted(outcome.image.assetId);
    char timing[64];
    std::snprintf(timing, sizeof timing, ",\"store\":%s,\"ms\":%.2f", outcome.fromStore ? "true" : "false",
                  outcome.milliseconds);
    for (const Kind& kind : options.kinds) {
        std::string line = head + ",\"kind\":" + std::to_string(kind.number) + ",\"name\":" + VQFeature::jsonQuoted(kind.name) + timing;
        auto found = outcome.blobs.find(kind.name);
        std::string error;
        std::string json;
        if (found != outcome.blobs.end() && found->second.first != nullptr) {
            const int blobKind = kind.stringType.empty() ? kind.number : 121;
            json = VQFeature::blobToJson(blobKind, found->second.first, found->second.second, &error);
        }
        if (!json.empty()) line += ",\"result\":" + json;
        else line += ",\"result\":null";
        if (outcome.error.first != 0 || !outcome.error.second.empty()) {
            line += ",\"error\":{\"code\":" + std::to_string(outcome.error.first) +
                    ",\"message\":" + VQFeature::jsonQuoted(outcome.error.second) + "}";
        } else if (!error.empty()) {
            line += ",\"error\":{\"code\":0,\"message\":" + VQFeature::jsonQuoted(error) + "}";
        } else if (json.empty() && kind.number == 9) {
            line += ",\"note\":\"kind 9 has no blob format\"";
        }
        out << line << "}\n";
    }
}

void printFailure(const std::string& path, const std::string& message, std::ostream& out) {
    out << "{\"image\":" << VQFeature::jsonQuoted(path) << ",\"error\":{\"code\":-1,\"message\":" << VQFeature::jsonQuoted(message) << "}}\n";
}

}  // namespace

int runExtract(const ExtractOptions& options, std::ostream& out, std::ostream& err) {
    std::vector<std::string> problems;
    const std::vector<std::string> files = collectImages(options.inputs, &problems);
    for (const auto& problem : problems) err << "vqfe extract: " << problem << "\n";
    if (files.empty()) {
        err << "vqfe extract: no images to analyse\n";
        return 1;
    }
    std::shared_ptr<CacheAdapter> store;
    std::string graph;
    try {
        if (!options.storePath.empty()) store = std::make_shared<VQFeature::SqliteCache>(options.storePath);
        graph = requestGraph(options);
    } catch (const std::exception& e) {
        err << "vqfe extract: " << e.what() << "\n";
        return 1;
    }

    const int jobs = std::max(1, std::min<int>(options.jobs, static_cast<int>(files.size())));
    std::vector<std::unique_ptr<Worker>> workers;
    for (int j = 0; j < jobs; ++j) {
        workers.push_back(std::make_unique<Worker>(options, graph, store));
        if (workers.back()->initCode() != 0) {
            err << "vqfe extract: the framework did not initialise (code " << workers.back()->initCode() << ", "
                << VQFeature::VantorSystem::code2Error(static_cast<Vantor::VantorErrorCode>(workers.back()->initCode()))
                << "); check --models and --framework-config\n";
            return 1;
        }
    }

    Progress progress(files.size());
    Summary summary;
    std::mutex outputMutex;
    std::atomic<size_t> next{0};
    auto work = [&](Worker& worker) {
        for (size_t first = next.fetch_add(kBatchSize); first < files.size(); first = next.fetch_add(kBatchSize)) {
            const size_t last = std::min(files.size(), first + kBatchSize);
            std::vector<ImageOutcome> outcomes;
            outcomes.reserve(last - first);
            for (size_t i = first; i < last; ++i) {
                std::string error;
                auto image = loadImage(files[i], &error);
                if (!image) {
                    std::lock_guard<std::mutex> lock(outputMutex);
                    printFailure(files[i], error, out);
                    summary.addFailure(files[i], error);
                    progress.advance();
                    continue;
                }
                outcomes.emplace_back();
                outcomes.back().image = std::move(*image);
            }
            if (outcomes.empty()) continue;
            std::vector<ImageOutcome*> batch;
            for (auto& outcome : outcomes) batch.push_back(&outcome);
            try {
                worker.run(batch);
            } catch (const std::exception& e) {
                for (auto& outcome : outcomes) outcome.error = {-1, e.what()};
            }
            for (auto& outcome : outcomes) {
                std::string drawError;
                if (!options.drawDir.empty()) drawAnnotations(outcome.image, outcome.blobs, options.drawDir, &drawError);
                std::lock_guard<std::mutex> lock(outputMutex);
                printOutcome(options, outcome, out);
                if (!drawError.empty()) err << "vqfe extract: " << drawError << "\n";
                summary.add(outcome.image.path, outcome.blobs, outcome.fromStore, outcome.milliseconds,
                            outcome.error.second);
                progress.advance();
            }
        }
    };
    const auto start = std::chrono::steady_clock::now();
    std::vector<std::thread> threads;
    for (int j = 1; j < jobs; ++j) threads.emplace_back(work, std::ref(*workers[j]));
    work(*workers[0]);
    for (auto& thread : threads) thread.join();
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    out.flush();
    if (options.summary) summary.print(err, seconds);
    return 0;
}

}  // namespace vqfe
