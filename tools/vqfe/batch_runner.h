// BatchRunner: one extractor with its own framework system, running the kinds of an
// ExtractOptions over batches of images, one request per batch, so the graph is loaded
// once per batch rather than once per image. Shared by `vqfe extract` and `vqfe work`.
// One thread at a time per object.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "extractor/cache_adapter.h"
#include "extractor/extractor.h"
#include "tools/vqfe/extract_command.h"
#include "tools/vqfe/image_io.h"

namespace vqfe {

// The graph text of a request over options.kinds (or options.graphFile). Throws
// std::runtime_error when the graph file cannot be read.
std::string requestGraph(const ExtractOptions& options);

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

class BatchRunner {
public:
    // store, when set, is consulted first and receives every new result.
    BatchRunner(const ExtractOptions& options, const std::string& graph, std::shared_ptr<VQFeature::CacheAdapter> store);
    int initCode() const { return initCode_; }

    // Fills every outcome of the batch. The error pair of a request holds only its last
    // failure, so when several images of a batch fail, each is run again alone to get
    // its own error.
    void run(std::vector<ImageOutcome*>& batch);

private:
    void runRequest(std::vector<ImageOutcome*>& batch, VQFeature::ErrorPair* error);

    const ExtractOptions& options_;
    std::string graph_;
    std::shared_ptr<VQFeature::CacheAdapter> store_;
    std::shared_ptr<VQFeature::Extractor> extractor_;
    int initCode_ = 0;
};

}  // namespace vqfe
