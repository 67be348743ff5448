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

#include "model/xnn_executor.h"
#include "node.h"

namespace kv {

// What a node needs of a network: the input shape (NCHW) and each output by name with its
// element count.
struct NetworkShape {
    std::vector<int> inputShape;
    std::vector<std::pair<std::string, size_t>> outputs;
};

// A loaded network and the shape it passed. forward() runs it on an NCHW float blob and
// returns the outputs in the shape's order, through XNNPACK where it runs every operator of
// the network, through OpenCV DNN otherwise. Not thread-safe (one system, one thread).
class Network {
public:
    Network(cv::dnn::Net net, NetworkShape shape) : net_(std::move(net)), shape_(std::move(shape)) {}
    std::vector<cv::Mat> forward(const cv::Mat& blob);
    const NetworkShape& shape() const { return shape_; }
    // Runs the network through xnn from now on; OpenCV's copy is dropped.
    void accelerate(std::unique_ptr<XnnExecutor> xnn);
    bool accelerated() const { return xnn_ != nullptr; }
    // Bytes of the weights OpenCV holds (0 when it cannot tell). Its figure for the layer
    // buffers counts every buffer apart (tens of MB for the face detector) while they are
    // shared in fact, so it is left out.
    size_t weightBytes() const;

private:
    cv::dnn::Net net_;
    NetworkShape shape_;
    std::vector<std::string> names_;
    std::unique_ptr<XnnExecutor> xnn_;
};

// Which runtime readNetwork may choose: the fastest that runs the network (XNNPACK, checked
// against OpenCV DNN on the load's input), or OpenCV DNN, the reference, always. The
// environment variable KORVID_NETWORK_RUNTIME=opencv makes every read take OpenCV DNN.
enum class NetworkRuntime { Fastest, OpenCv };

// Reads blob as an ONNX network and checks it: one forward pass on fixed noise must give
// every output of shape with its element count. Throws NodeFailure(INVALID_MODEL) otherwise.
std::shared_ptr<Network> readNetwork(const ModelBlob& blob, const NetworkShape& shape,
                                     NetworkRuntime runtime = NetworkRuntime::Fastest);

// Networks by content (and shape: the same bytes read for another shape are checked again).
// A lookup hashes the size and both ends of the bytes, then compares the whole content with
// a copy kept of each network's bytes: a different network never passes for a cached one,
// and a reload costs a comparison of the bytes (memory speed) instead of a cryptographic
// digest of them. Networks stay after a graph that did not use them is loaded, so that an
// app alternating kinds reads none again; trim() drops the least recently used ones beyond
// the budget (each counted as its kept bytes plus the weights OpenCV holds).
class NetworkCache {
public:
    // Holds every default network at once (ten networks, 146 MB counted so) with room to spare.
    static constexpr size_t kDefaultBudget = size_t{256} << 20;

    explicit NetworkCache(size_t budget = kDefaultBudget) : budget_(budget) {}
    std::shared_ptr<Network> get(const ModelBlob& blob, const NetworkShape& shape);
    void startLoad() { ++generation_; }
    // Drops networks the latest load did not use, least recently used first, while the
    // kept ones exceed the budget.
    void trim();
    size_t size() const { return entries_.size(); }

private:
    struct Entry {
        std::vector<uint8_t> bytes;
        std::shared_ptr<Network> network;
        size_t cost = 0;
        uint64_t generation = 0;
    };
    // (fingerprint, shape) -> the entries of equal fingerprint
    std::multimap<std::pair<uint64_t, std::string>, Entry> entries_;
    uint64_t generation_ = 0;
    size_t budget_;
    size_t cost_ = 0;
};

// The network of model key for a node: through the blob's cache when it has one.
std::shared_ptr<Network> loadNetwork(const ModelSet& models, const std::string& key, const NetworkShape& shape);

}  // namespace kv
