#include "model/network.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#ifdef __GLIBC__
#include <malloc.h>
#endif
#include <set>

#include "model/model_bundle.h"
#include "model/network_reads.h"
#include "model/onnx_check.h"
#include "model/onnx_clip_form.h"
#include "model/onnx_reader.h"
#include "model/process_store.h"

namespace kv {

namespace {

std::string shapeKey(const NetworkShape& shape) {
    std::string key;
    for (int d : shape.inputShape) key += std::to_string(d) + ",";
    for (const auto& [name, count] : shape.outputs) key += name + "=" + std::to_string(count) + ";";
    return key;
}

[[noreturn]] void refuse(const ModelBlob& blob, const std::string& why) {
    throw Error(Vantor::INVALID_MODEL, "model \"" + blob.name + "\" " + why);
}

}  // namespace

namespace {

std::vector<std::string> outputNames(const NetworkShape& shape) {
    std::vector<std::string> names;
    for (const auto& output : shape.outputs) names.push_back(output.first);
    return names;
}

size_t weightsOf(const cv::dnn::Net& net, const NetworkShape& shape) {
    size_t weights = 0, blobs = 0;
    try {
        net.getMemoryConsumption(shape.inputShape, weights, blobs);
    } catch (const cv::Exception&) {
        return 0;
    }
    return weights;
}

}  // namespace

Network::Network(cv::dnn::Net net, NetworkShape shape, const ContentDigest& digest, std::unique_ptr<XnnExecutor> xnn,
                 std::unique_ptr<DnnlExecutor> dnnl)
    : shape_(std::move(shape)),
      names_(outputNames(shape_)),
      digest_(digest),
      xnn_(dnnl == nullptr ? std::move(xnn) : nullptr),
      dnnl_(std::move(dnnl)),
      weightBytes_(dnnl_ != nullptr  ? dnnl_->weightBytes()
                   : xnn_ != nullptr ? xnn_->weightBytes()
                                     : weightsOf(net, shape_)) {
    // Without an executor OpenCV runs the network; with one OpenCV's copy only served the
    // check at load, and kept as a fallback it would hold its weights and buffers twice over.
    if (!accelerated()) net_ = std::move(net);
}

const char* Network::runtimeName() const { return dnnl_ != nullptr ? "oneDNN" : xnn_ != nullptr ? "XNNPACK" : "OpenCV DNN"; }

std::vector<cv::Mat> Network::forward(const cv::Mat& blob) {
    if (dnnl_ != nullptr) return dnnl_->forward(blob);  // thread-safe, fresh outputs
    std::lock_guard<std::mutex> lock(mutex_);
    if (xnn_ != nullptr) return xnn_->forward(blob);
    net_.setInput(blob);
    std::vector<cv::Mat> outs;
    net_.forward(outs, names_);
    for (cv::Mat& out : outs) out = out.clone();
    return outs;
}

namespace {

bool agree(const std::vector<cv::Mat>& a, const std::vector<cv::Mat>& b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i) {
        if (a[i].total() != b[i].total()) return false;
        const float* x = a[i].ptr<float>();
        const float* y = b[i].ptr<float>();
        for (size_t k = 0; k < a[i].total(); ++k) {
            if (!(std::fabs(x[k] - y[k]) <= std::max(1e-3f, 2e-5f * std::fabs(y[k])))) return false;
        }
    }
    return true;
}

// Once per model name, on standard error: which networks stay with OpenCV DNN, and why.
void noteFallback(const std::string& model, const std::string& why) {
    static std::mutex mutex;
    static std::set<std::string> noted;
    const std::lock_guard<std::mutex> lock(mutex);
    if (noted.insert(model).second) std::fprintf(stderr, "korvid: network \"%s\" runs in OpenCV DNN: %s\n", model.c_str(), why.c_str());
}

// The input of the check at load: fixed noise in [0, 1), which, unlike zeros, tries every
// weight.
cv::Mat checkInput(const std::vector<int>& shape) {
    cv::Mat noise(shape, CV_32F);
    cv::RNG rng(0x5eed);
    rng.fill(noise, cv::RNG::UNIFORM, 0.0f, 1.0f);
    return noise;
}

// The executor (built by build from the graph) when it gives OpenCV's outputs (reference,
// on input) within the parity bound; otherwise null and why says why not.
template <typename Executor, typename Build>
std::unique_ptr<Executor> checked(const char* runtime, Build build, const cv::Mat& input, const std::vector<cv::Mat>& reference,
                                  std::string& why) {
    std::unique_ptr<Executor> executor = build(why);
    try {
        if (executor != nullptr && !agree(executor->forward(input), reference)) {
            executor.reset();
            why = std::string(runtime) + "'s outputs differ from OpenCV's";
        }
    } catch (const cv::Exception& e) {
        executor.reset();
        why = std::string(runtime) + "'s check does not run: " + e.what();
    }
    if (executor == nullptr && !why.empty()) why = std::string(runtime) + ": " + why;
    return executor;
}

struct Accelerated {
    std::unique_ptr<XnnExecutor> xnn;
    std::unique_ptr<DnnlExecutor> dnnl;
};

// The network in oneDNN or XNNPACK as NetworkRuntime says: the declared runtime first, the
// other where the first does not run it; both empty when it stays with OpenCV.
Accelerated accelerated(const ModelBlob& blob, const NetworkShape& shape, const cv::Mat& input, const std::vector<cv::Mat>& reference) {
    const char* env = std::getenv("KORVID_NETWORK_RUNTIME");
    const std::string forced = env != nullptr ? env : "";
    Accelerated out;
    if (forced == "opencv") return out;
    std::string why, dnnlWhy, xnnWhy;
    {
        OnnxGraph graph;  // its tensors go once the weights are packed
        why = readOnnxGraph(blob.data, blob.size, graph);
        auto tryDnnl = [&] {
            out.dnnl = checked<DnnlExecutor>(
                "oneDNN", [&](std::string& w) { return DnnlExecutor::build(graph, shape.inputShape, outputNames(shape), w); }, input,
                reference, dnnlWhy);
        };
        auto tryXnn = [&] {
            out.xnn = checked<XnnExecutor>(
                "XNNPACK", [&](std::string& w) { return XnnExecutor::build(graph, shape.inputShape, outputNames(shape), w); }, input,
                reference, xnnWhy);
        };
        const bool xnnFirst = forced == "xnnpack" || (forced != "dnnl" && shape.xnnpackFirst);
        if (why.empty()) {
            if (xnnFirst) tryXnn();
            else tryDnnl();
        }
        // The other runtime only when the first cannot run the network, and never when one is forced.
        if (why.empty() && out.dnnl == nullptr && out.xnn == nullptr && forced != "dnnl" && forced != "xnnpack") {
            if (xnnFirst) tryDnnl();
            else tryXnn();
        }
    }
    if (out.dnnl == nullptr && out.xnn == nullptr) {
        if (why.empty()) why = dnnlWhy.empty() ? xnnWhy : xnnWhy.empty() ? dnnlWhy : dnnlWhy + "; " + xnnWhy;
        noteFallback(blob.name, why);
    }
    return out;
}

}  // namespace

NetworkShape declaredShape(const NetworkInput& in, std::vector<std::pair<std::string, size_t>> outputs) {
    return NetworkShape{inputShape(in), std::move(outputs), in.xnnpackFirst};
}

namespace {

// Whether a network read since the heap was last trimmed freed OpenCV's copy of itself.
std::atomic<bool> leftoversToRelease{false};
std::atomic<int> openReadScopes{0};

}  // namespace

std::shared_ptr<Network> readNetwork(const ModelBlob& blob, const NetworkShape& shape, NetworkRuntime runtime) {
    return readNetwork(blob, digestOf(blob.data, blob.size), shape, runtime);
}

std::shared_ptr<Network> readNetwork(const ModelBlob& blob, const ContentDigest& digest, const NetworkShape& shape,
                                     NetworkRuntime runtime) {
    // An ONNX model starts with its IR version (field 1, varint); anything else (cascade
    // XML, parameter files, text) is refused before OpenCV's parser sees it.
    if (blob.data == nullptr || blob.size < 16 || blob.data[0] != 0x08) refuse(blob, "is not an ONNX network");
    if (const std::string fault = onnxStructureFault(blob.data, blob.size); !fault.empty()) refuse(blob, "is not a sound ONNX network: " + fault);
    ++networkReads;
    cv::dnn::Net net;
    try {
        const std::vector<uint8_t> clips = clipBoundsAsAttributes(blob.data, blob.size);
        net = clips.empty() ? cv::dnn::readNetFromONNX(reinterpret_cast<const char*>(blob.data), blob.size)
                            : cv::dnn::readNetFromONNX(reinterpret_cast<const char*>(clips.data()), clips.size());
    } catch (const cv::Exception& e) {
        refuse(blob, std::string("is not a readable network: ") + e.what());
    }
    if (net.empty()) refuse(blob, "is an empty network");
    net.setPreferableBackend(cv::dnn::DNN_BACKEND_OPENCV);
    net.setPreferableTarget(cv::dnn::DNN_TARGET_CPU);
    const cv::Mat input = checkInput(shape.inputShape);
    std::vector<cv::Mat> outs;
    try {
        net.setInput(input);
        net.forward(outs, outputNames(shape));
    } catch (const cv::Exception& e) {
        refuse(blob, std::string("does not run: ") + e.what());
    }
    if (outs.size() != shape.outputs.size()) refuse(blob, "lacks an output");
    for (size_t i = 0; i < outs.size(); ++i) {
        if (outs[i].type() != CV_32F || outs[i].total() != shape.outputs[i].second) {
            refuse(blob, "gives output \"" + shape.outputs[i].first + "\" of another shape");
        }
    }
    Accelerated fast = runtime == NetworkRuntime::Fastest ? accelerated(blob, shape, input, outs) : Accelerated{};
    const bool moved = fast.xnn != nullptr || fast.dnnl != nullptr;
    auto network = std::make_shared<Network>(std::move(net), shape, digest, std::move(fast.xnn), std::move(fast.dnnl));
    // OpenCV's copy of the network, its buffers and the reader's tensors were freed in the
    // middle of the heap: the next network of the load reuses them, and the end of the
    // outermost NetworkReadScope gives them back.
    if (moved) leftoversToRelease.store(true);
    return network;
}

NetworkReadScope::NetworkReadScope() { ++openReadScopes; }

NetworkReadScope::~NetworkReadScope() {
    if (--openReadScopes > 0) return;
#ifdef __GLIBC__
    if (leftoversToRelease.exchange(false)) malloc_trim(0);
#endif
}

namespace {

// The networks systems of the process hold, by digest and shape.
ProcessStore<std::pair<ContentDigest, std::string>, Network>& processNetworks() {
    static ProcessStore<std::pair<ContentDigest, std::string>, Network> networks;
    return networks;
}

}  // namespace

std::shared_ptr<Network> sharedNetwork(const ModelBlob& blob, const NetworkShape& shape) {
    if (blob.data == nullptr) refuse(blob, "is empty");
    return sharedNetwork(blob, digestOf(blob.data, blob.size), shape);
}

std::shared_ptr<Network> sharedNetwork(const ModelBlob& blob, const ContentDigest& digest, const NetworkShape& shape) {
    if (blob.data == nullptr) refuse(blob, "is empty");
    return processNetworks().get({digest, shapeKey(shape)}, [&] { return readNetwork(blob, digest, shape); });
}

size_t sharedNetworkCount() { return processNetworks().count(); }

std::shared_ptr<Network> NetworkCache::get(const ModelBlob& blob, const NetworkShape& shape) {
    if (blob.data == nullptr) refuse(blob, "is empty");
    const ContentDigest digest = digestOf(blob.data, blob.size);
    auto key = std::make_pair(digest, shapeKey(shape));
    auto it = entries_.find(key);
    if (it == entries_.end()) {
        Entry entry{sharedNetwork(blob, digest, shape), 0, 0};
        // Without a figure from the runtime the weights count as much as the file.
        const size_t weights = entry.network->weightBytes();
        entry.cost = weights != 0 ? weights : blob.size;
        it = entries_.emplace(std::move(key), std::move(entry)).first;
        cost_ += it->second.cost;
    }
    it->second.generation = generation_;
    named_[{blob.name, it->first.second}] = it->first;
    return it->second.network;
}

std::shared_ptr<Network> NetworkCache::resolve(const ModelReference& reference, const NetworkShape& shape) {
    const std::string name = reference.text();
    if (auto named = named_.find({name, shapeKey(shape)}); named != named_.end()) {
        if (auto it = entries_.find(named->second); it != entries_.end()) {
            it->second.generation = generation_;
            return it->second.network;
        }
    }
    if (source_ == nullptr) throw Error(Vantor::INVALID_MODEL, "no model source to fetch \"" + reference.model + "\" from");
    std::shared_ptr<Network> network;
    const bool delivered = source_->withModel(reference.model, [&](const ModelBlob& model) {
        ModelBlob whole = model;
        whole.networks = this;
        const auto parts = bundleParts(whole);
        const auto part = parts.find(reference.part);
        if (part == parts.end()) throw Error(Vantor::INVALID_MODEL, "model \"" + reference.model + "\" has no part \"" + reference.part + "\"");
        if (modelReference(part->second)) throw Error(Vantor::INVALID_MODEL, "model \"" + name + "\" is a reference itself");
        network = get(part->second, shape);
    });
    if (!delivered) throw Error(Vantor::INVALID_MODEL, "model \"" + reference.model + "\" is not delivered");
    return network;
}

void NetworkCache::trim() {
    while (cost_ > budget_) {
        auto oldest = entries_.end();
        for (auto it = entries_.begin(); it != entries_.end(); ++it) {
            if (it->second.generation != generation_ && (oldest == entries_.end() || it->second.generation < oldest->second.generation)) {
                oldest = it;
            }
        }
        if (oldest == entries_.end()) return;  // the latest load's networks stay, whatever they cost
        cost_ -= oldest->second.cost;
        entries_.erase(oldest);
    }
}

std::shared_ptr<Network> loadNetwork(const ModelSet& models, const std::string& key, const NetworkShape& shape) {
    const ModelBlob& blob = requireModel(models, key);
    return blob.networks != nullptr ? blob.networks->get(blob, shape) : readNetwork(blob, shape);
}

}  // namespace kv
