#include "model/network.h"

#include <algorithm>
#include <cstring>

#include "model/network_reads.h"
#include "model/onnx_check.h"
#include "model/onnx_clip_form.h"

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

Network::Network(cv::dnn::Net net, NetworkShape shape, const uint8_t* bytes, size_t size, size_t weightBytes)
    : net_(std::move(net)),
      shape_(std::move(shape)),
      names_(outputNames(shape_)),
      bytes_(bytes, bytes + size),
      weightBytes_(weightBytes) {}

std::vector<cv::Mat> Network::forward(const cv::Mat& blob) {
    std::lock_guard<std::mutex> lock(mutex_);
    net_.setInput(blob);
    std::vector<cv::Mat> outs;
    net_.forward(outs, names_);
    for (cv::Mat& out : outs) out = out.clone();
    return outs;
}

std::shared_ptr<Network> readNetwork(const ModelBlob& blob, const NetworkShape& shape) {
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
    std::vector<cv::Mat> outs;
    try {
        net.setInput(cv::Mat(shape.inputShape, CV_32F, cv::Scalar(0)));
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
    const size_t weights = weightsOf(net, shape);
    return std::make_shared<Network>(std::move(net), shape, blob.data, blob.size, weights);
}

namespace {

// FNV-1a over the size and the first and last kEnd bytes: cheap, and it tells different
// networks apart in practice; equal fingerprints are settled by comparing the bytes.
uint64_t fingerprint(const uint8_t* data, size_t size) {
    constexpr size_t kEnd = 4096;
    uint64_t h = 0xcbf29ce484222325ULL;
    auto mix = [&h](const uint8_t* p, size_t n) {
        for (size_t i = 0; i < n; ++i) h = (h ^ p[i]) * 0x100000001b3ULL;
    };
    const uint64_t length = size;
    mix(reinterpret_cast<const uint8_t*>(&length), sizeof length);
    const size_t head = std::min(size, kEnd);
    mix(data, head);
    const size_t tail = std::min(size - head, kEnd);
    mix(data + size - tail, tail);
    return h;
}

bool sameBytes(const Network& network, const ModelBlob& blob) {
    const std::vector<uint8_t>& bytes = network.bytes();
    return bytes.size() == blob.size && std::memcmp(bytes.data(), blob.data, blob.size) == 0;
}

// The networks systems of the process hold, by fingerprint and shape; expired ones are
// dropped whenever a network is added.
struct ProcessNetworks {
    std::mutex mutex;
    std::multimap<std::pair<uint64_t, std::string>, std::weak_ptr<Network>> entries;
};

ProcessNetworks& processNetworks() {
    static ProcessNetworks networks;
    return networks;
}

}  // namespace

std::shared_ptr<Network> sharedNetwork(const ModelBlob& blob, const NetworkShape& shape) {
    if (blob.data == nullptr) refuse(blob, "is empty");
    ProcessNetworks& shared = processNetworks();
    auto key = std::make_pair(fingerprint(blob.data, blob.size), shapeKey(shape));
    // Held while a network is read, so that systems loading the same graph at once read it once.
    std::lock_guard<std::mutex> lock(shared.mutex);
    auto [first, last] = shared.entries.equal_range(key);
    for (auto it = first; it != last; ++it) {
        if (auto network = it->second.lock(); network && sameBytes(*network, blob)) return network;
    }
    auto network = readNetwork(blob, shape);
    for (auto it = shared.entries.begin(); it != shared.entries.end();) {
        it = it->second.expired() ? shared.entries.erase(it) : std::next(it);
    }
    shared.entries.emplace(std::move(key), network);
    return network;
}

size_t sharedNetworkCount() {
    ProcessNetworks& shared = processNetworks();
    std::lock_guard<std::mutex> lock(shared.mutex);
    size_t count = 0;
    for (const auto& entry : shared.entries) count += entry.second.expired() ? 0 : 1;
    return count;
}

std::shared_ptr<Network> NetworkCache::get(const ModelBlob& blob, const NetworkShape& shape) {
    if (blob.data == nullptr) refuse(blob, "is empty");
    auto key = std::make_pair(fingerprint(blob.data, blob.size), shapeKey(shape));
    auto [first, last] = entries_.equal_range(key);
    auto it = std::find_if(first, last, [&blob](const auto& e) { return sameBytes(*e.second.network, blob); });
    if (it == last) {
        Entry entry{sharedNetwork(blob, shape), 0, 0};
        // Without a figure from OpenCV the weights count as much as the bytes again.
        const size_t bytes = entry.network->bytes().size();
        const size_t weights = entry.network->weightBytes();
        entry.cost = bytes + (weights != 0 ? weights : bytes);
        it = entries_.emplace(std::move(key), std::move(entry));
        cost_ += it->second.cost;
    }
    it->second.generation = generation_;
    return it->second.network;
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
