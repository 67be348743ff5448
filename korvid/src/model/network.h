// Pretrained networks of the open framework: ONNX files (converted at build time from the
// networks' TF.js graph models) read from the bytes the resource finder delivers, checked
// against what the reading node expects, and kept per framework system by content so that
// a graph reloaded with the same model bytes reuses its networks. Every system of a process
// that loads the same bytes for the same shape gets the same network: a process running
// several systems side by side holds each network's weights and buffers once.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <opencv2/dnn.hpp>

#include "model/content_digest.h"
#include "model/error.h"
#include "model/model_blob.h"
#include "model/network_input.h"
#include "model/model_reference.h"
#include "model/model_source.h"
#include "model/dnnl_executor.h"
#include "model/xnn_executor.h"

namespace kv {

// What a node needs of a network: the input shape (NCHW) and each output by name with its
// element count.
struct NetworkShape {
    std::vector<int> inputShape;
    std::vector<std::pair<std::string, size_t>> outputs;
    bool xnnpackFirst = false;  // as declared (NetworkInput::xnnpackFirst)
};

// The shape of a declared network: its input size and its runtime from the declaration,
// with the outputs the reading node expects. Every wrapper builds its shape here, so none
// can leave out part of the declaration.
NetworkShape declaredShape(const NetworkInput& in, std::vector<std::pair<std::string, size_t>> outputs);

// A loaded network, the shape it passed and the digest of the bytes it was read from (the
// bytes themselves go back with the graph). forward() runs it
// on an NCHW float blob and returns the outputs in the shape's order, through oneDNN or
// XNNPACK where they run every operator of the network (see NetworkRuntime), through OpenCV
// DNN otherwise. Thread-safe: a network may be shared by the systems of several threads.
// oneDNN runs on several threads at once, each run with buffers of its own; XNNPACK and
// OpenCV keep the buffers of a run inside themselves, so their runs take the network's lock.
// forward() returns copies of the outputs, which the next run would otherwise overwrite.
class Network {
public:
    // net has passed its check; with dnnl or xnn (checked against net) the network runs
    // there and net is dropped.
    Network(cv::dnn::Net net, NetworkShape shape, const ContentDigest& digest, std::unique_ptr<XnnExecutor> xnn,
            std::unique_ptr<DnnlExecutor> dnnl = nullptr);
    std::vector<cv::Mat> forward(const cv::Mat& blob);
    const NetworkShape& shape() const { return shape_; }
    const ContentDigest& digest() const { return digest_; }
    bool accelerated() const { return xnn_ != nullptr || dnnl_ != nullptr; }
    // "oneDNN", "XNNPACK" or "OpenCV DNN".
    const char* runtimeName() const;
    // Bytes of the weights the runtime holds: oneDNN's or XNNPACK's, or what OpenCV reports
    // (0 when it cannot tell). OpenCV's figure for the layer buffers counts every buffer apart (tens of
    // MB for the face detector) while they are shared in fact, so it is left out.
    size_t weightBytes() const { return weightBytes_; }

private:
    std::mutex mutex_;  // guards the runs of net_ and xnn_
    cv::dnn::Net net_;  // empty when xnn_ or dnnl_ runs the network
    const NetworkShape shape_;
    const std::vector<std::string> names_;
    const ContentDigest digest_;
    const std::unique_ptr<XnnExecutor> xnn_;
    const std::unique_ptr<DnnlExecutor> dnnl_;
    const size_t weightBytes_;
};

// Which runtime readNetwork may choose: the fastest that runs the network, or OpenCV DNN,
// the reference, always. Fastest: the network's declared runtime (oneDNN, or XNNPACK where
// the shape says xnnpackFirst), else the other one, where it runs every operator and gives
// OpenCV DNN's outputs on the load's input (within the parity bound); OpenCV DNN where
// neither does. The choice never depends on timing, so a network always gives the same
// outputs.
// The environment variable KORVID_NETWORK_RUNTIME forces one for every read: "opencv"
// (OpenCV DNN), "xnnpack" or "dnnl" (that one where it runs the network, else OpenCV DNN).
enum class NetworkRuntime { Fastest, OpenCv };

// Opened around work that reads networks (a graph's load, a network a node fetches while its
// graph runs). Reading a network frees OpenCV's copy of it in the middle of the heap, which
// glibc keeps (80 MB over the default networks): when the last scope open in the process
// closes, that heap goes back to the system. Once per outermost scope, not per network:
// trimming after each network made the next one fault the same pages in again.
class NetworkReadScope {
public:
    NetworkReadScope();
    ~NetworkReadScope();
    NetworkReadScope(const NetworkReadScope&) = delete;
    NetworkReadScope& operator=(const NetworkReadScope&) = delete;
};

// Reads blob as an ONNX network and checks it: one forward pass on fixed noise must give
// every output of shape with its element count. Throws Error(INVALID_MODEL) otherwise.
std::shared_ptr<Network> readNetwork(const ModelBlob& blob, const NetworkShape& shape,
                                     NetworkRuntime runtime = NetworkRuntime::Fastest);
// The same with the digest of blob's bytes already taken.
std::shared_ptr<Network> readNetwork(const ModelBlob& blob, const ContentDigest& digest, const NetworkShape& shape,
                                     NetworkRuntime runtime = NetworkRuntime::Fastest);

// Networks by content (and shape: the same bytes read for another shape are checked again).
// A lookup digests the whole bytes (ContentDigest: size and a keyed 128-bit hash, at memory
// speed), so a different network never passes for a cached one and no copy of the bytes is
// kept. Networks stay after a graph that did not use them is loaded, so that an app
// alternating kinds reads none again; trim() drops the least recently used ones beyond the
// budget (each counted as the weights its runtime holds, or its file's size when the runtime
// cannot tell). A network not in the cache is taken from the process's networks
// (sharedNetwork) before it is read.
// One system, one thread: the cache itself takes no lock.
class NetworkCache {
public:
    // Holds every default network at once with room to spare.
    static constexpr size_t kDefaultBudget = size_t{256} << 20;

    // source: where references (model_reference.h) are fetched from; none resolves without it.
    explicit NetworkCache(size_t budget = kDefaultBudget, ModelSource* source = nullptr) : budget_(budget), source_(source) {}
    std::shared_ptr<Network> get(const ModelBlob& blob, const NetworkShape& shape);
    // The network of the part another model carries: the one the current graph already
    // read from that model's part (at its load or a former resolve), else the model fetched
    // from the source, its part read (or found by digest) and the model handed back. Throws
    // Error(INVALID_MODEL) when there is no source, the model is not delivered, is no
    // bundle, lacks the part or holds a reference there, or the part is no network of shape.
    std::shared_ptr<Network> resolve(const ModelReference& reference, const NetworkShape& shape);
    void startLoad() {
        ++generation_;
        named_.clear();
    }
    // Drops networks the latest load did not use, least recently used first, while the
    // kept ones exceed the budget.
    void trim();
    size_t size() const { return entries_.size(); }

private:
    struct Entry {
        std::shared_ptr<Network> network;
        size_t cost = 0;
        uint64_t generation = 0;
    };
    using Key = std::pair<ContentDigest, std::string>;  // (digest, shape)
    std::map<Key, Entry> entries_;
    // (model or part name, shape) -> what get() read under that name since the latest load
    // began: the bytes the current graph's finder delivered under it.
    std::map<std::pair<std::string, std::string>, Key> named_;
    uint64_t generation_ = 0;
    size_t budget_;
    size_t cost_ = 0;
    ModelSource* source_ = nullptr;
};

// The network of blob's bytes for shape that a system of this process already holds, or
// else blob read anew. Thread-safe; the process keeps no network that no system holds. A
// system wanting a network that another is reading waits for that read; networks of other
// bytes are read meanwhile.
std::shared_ptr<Network> sharedNetwork(const ModelBlob& blob, const NetworkShape& shape);
std::shared_ptr<Network> sharedNetwork(const ModelBlob& blob, const ContentDigest& digest, const NetworkShape& shape);
// Networks the process holds (for tests).
size_t sharedNetworkCount();

// The network of model key for a node: through the blob's cache when it has one.
std::shared_ptr<Network> loadNetwork(const ModelSet& models, const std::string& key, const NetworkShape& shape);

}  // namespace kv
