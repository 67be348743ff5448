// Pretrained networks of the open framework: ONNX files (converted at build time from the
// networks' TF.js graph models) read from the bytes the resource finder delivers, checked
// against what the reading node expects, and kept per framework system by content digest so
// that a graph reloaded with the same model bytes reuses its networks.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <opencv2/dnn.hpp>

#include "node.h"

namespace kv {

// What a node needs of a network: the input shape (NCHW) and each output by name with its
// element count.
struct NetworkShape {
    std::vector<int> inputShape;
    std::vector<std::pair<std::string, size_t>> outputs;
};

// A loaded network and the shape it passed. forward() runs it on an NCHW float blob and
// returns the outputs in the shape's order. Not thread-safe (one system, one thread).
class Network {
public:
    Network(cv::dnn::Net net, NetworkShape shape) : net_(std::move(net)), shape_(std::move(shape)) {}
    std::vector<cv::Mat> forward(const cv::Mat& blob);
    const NetworkShape& shape() const { return shape_; }
    // The per-execute memo of the system that read this network (null outside a system):
    // nodes that analyse the same image with this network share the result through it.
    ExecuteMemo* memo() const { return memo_; }

private:
    friend class NetworkCache;
    cv::dnn::Net net_;
    NetworkShape shape_;
    std::vector<std::string> names_;
    ExecuteMemo* memo_ = nullptr;
};

// Reads blob as an ONNX network and checks it: one forward pass on a zero input must give
// every output of shape with its element count. Throws NodeFailure(INVALID_MODEL) otherwise.
std::shared_ptr<Network> readNetwork(const ModelBlob& blob, const NetworkShape& shape);

// Networks by content (and shape: the same bytes read for another shape are checked again).
// A lookup hashes the size and both ends of the bytes, then compares the whole content with
// a copy kept of each network's bytes: a different network never passes for a cached one,
// and a reload costs a comparison of the bytes (memory speed) instead of a cryptographic
// digest of them. Entries not used by the latest graph load are dropped when it completes.
class NetworkCache {
public:
    // memo: the system's per-execute memo, handed to every network read (may be null).
    explicit NetworkCache(ExecuteMemo* memo = nullptr) : memo_(memo) {}
    std::shared_ptr<Network> get(const ModelBlob& blob, const NetworkShape& shape);
    void startLoad() { ++generation_; }
    void dropUnused();
    size_t size() const { return entries_.size(); }

private:
    struct Entry {
        std::vector<uint8_t> bytes;
        std::shared_ptr<Network> network;
        uint64_t generation = 0;
    };
    // (fingerprint, shape) -> the entries of equal fingerprint
    std::multimap<std::pair<uint64_t, std::string>, Entry> entries_;
    uint64_t generation_ = 0;
    ExecuteMemo* memo_;
};

// The network of model key for a node: through the blob's cache when it has one.
std::shared_ptr<Network> loadNetwork(const ModelSet& models, const std::string& key, const NetworkShape& shape);

}  // namespace kv
