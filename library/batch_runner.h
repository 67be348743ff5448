// BatchRunner: one extractor with its own framework system, running a set of kinds over
// batches of images, one request per batch. The graph is loaded once per runner (KeptGraph):
// requests carry the graph text until one has run, later ones keep the loaded graph and the
// batch store files their results under the full graph's keys. Images whose every kind is in the store are answered by the store
// alone: the extractor loads its graph before it looks anything up, so a batch the store
// answers whole loads no graph at all. Shared by `vqfe extract` and `vqfe work`. A store that keeps an
// index gets each image's results with the image's path and size in one transaction.
// One thread at a time per object.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "extractor/cache_adapter.h"
#include "extractor/extractor.h"
#include "extractor/kept_graph.h"
#include "library/batch_store.h"
#include "library/image_io.h"
#include "library/kinds.h"

namespace vqfe {

// What a runner runs, and where the framework finds its files.
struct AnalysisSetup {
    std::vector<Kind> kinds;  // one kind: a single-kind request; several: one graph
    std::string modelDir;
    std::string frameworkConfig;
};

// One blob per kind for one image, however it was obtained.
struct ImageOutcome {
    LoadedImage image;
    std::map<std::string, std::pair<const void*, unsigned long>> blobs;  // by kind name
    std::vector<std::shared_ptr<void>> keepAlive;                        // owners of the blobs
    VQFeature::ErrorPair error{0, ""};
    bool produced = false;   // the framework or the store gave something
    bool fromStore = false;
    double milliseconds = 0;  // this image's own time (the graph load of the batch not included)
};

class BatchRunner {
public:
    // store, when set, is consulted first and receives every new result; graph is the
    // request's graph text for setup.kinds.
    BatchRunner(const AnalysisSetup& setup, const std::string& graph, std::shared_ptr<VQFeature::CacheAdapter> store);
    int initCode() const { return initCode_; }

    // Fills every outcome of the batch. The error pair of a request holds only its last
    // failure, so when several images of a batch fail, each is run again alone to get
    // its own error. Files of one content (one asset id) are analysed once: the copies
    // get the first one's results and error, and no time of their own (0 ms).
    void run(std::vector<ImageOutcome*>& batch);

private:
    void runDistinct(std::vector<ImageOutcome*>& batch);
    void runRequest(std::vector<ImageOutcome*>& batch, VQFeature::ErrorPair* error);
    // Fills the outcome from the store when it holds every kind of the image; false otherwise.
    bool answerFromStore(ImageOutcome& outcome);
    void extract(std::vector<ImageOutcome*>& batch, VQFeature::ErrorPair* error);
    // Writes what the batch store holds, without records of images that produced nothing.
    void finishBatch(const std::vector<ImageOutcome*>& batch);
    // The algorithm key of each of setup_.kinds for requests carrying this graph text.
    std::vector<std::string> keysFor(const std::string& graph) const;

    AnalysisSetup setup_;
    std::string graph_;
    std::vector<std::string> keys_;  // the algorithm key of each of setup_.kinds with graph_, as stored
    std::shared_ptr<VQFeature::CacheAdapter> store_;
    std::shared_ptr<BatchStore> batchStore_;
    std::shared_ptr<VQFeature::Extractor> extractor_;
    int initCode_ = 0;
    VQFeature::KeptGraph keptGraph_;  // whether requests still carry graph_
};

}  // namespace vqfe
