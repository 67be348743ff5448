// kv::Node: one analysis step of a processing graph, and the description of a node type.
//
// A node is built when its graph is loaded, receives the models its parameters name
// (load), and then runs once per execute on the outputs of the nodes linked to its input
// slots (run). Outputs live until the next execute; result buffers inside them are what
// getResult hands out. Nodes are used by one thread at a time (the system's caller).
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "Vantor/VantorBuffer.h"
#include "Vantor/VantorErrorCode.h"
#include "graph/graph_definition.h"
#include "model/error.h"
#include "model/model_blob.h"

namespace kv {

// What travels along a link; an input slot accepts one kind.
enum class Port { None, Image, Faces, FaceFeatures, FaceAttributes, Transformed, Tensor, Scores };

// Result of one node for one execute.
class NodeOutput {
public:
    virtual ~NodeOutput() = default;
    // The buffer served for an algorithm type, or null when this output has none.
    virtual void* result(int32_t type) { (void)type; return nullptr; }
    // The node's own result buffer, served by node name; null for pure intermediates.
    virtual void* mainResult() { return nullptr; }
};

// An output holding one framework buffer B, served for the listed algorithm types.
template <typename B>
class BufferOutput : public NodeOutput {
public:
    explicit BufferOutput(std::vector<int32_t> types, std::unique_ptr<B> buffer = std::make_unique<B>())
        : buffer(std::move(buffer)), types_(std::move(types)) {}
    void* result(int32_t type) override {
        for (int32_t t : types_) {
            if (t == type) return static_cast<void*>(buffer.get());
        }
        return nullptr;
    }
    void* mainResult() override { return static_cast<void*>(buffer.get()); }
    std::unique_ptr<B> buffer;

private:
    std::vector<int32_t> types_;
};

// The upright 8-bit BGR image every analysis starts from.
class ImageOutput : public NodeOutput {
public:
    cv::Mat bgr;
};

class ExecuteMemo;

class Node {
public:
    virtual ~Node() = default;
    // Reads the models named by the parameters. Throws Error(INVALID_MODEL) when a
    // model's content is unusable and Error(INVALID_GRAPH) when a required one is
    // not named at all.
    virtual void load(const NodeParams& params, const ModelSet& models) { (void)params; (void)models; }
    // inputs[i] is the output linked to slot i, null for an unlinked optional slot.
    // Throws Error (INVALID_NODE for unusable parameters or data).
    virtual std::unique_ptr<NodeOutput> run(const NodeParams& params, const std::vector<NodeOutput*>& inputs) = 0;
    // Models the node loads by itself under a key its graph leaves unnamed (key -> model
    // name), as the vendor's nodes load their own default models. They are optional: without
    // a finder, or when the finder cannot deliver one, the node runs without it; a delivered
    // one is loaded (and refused when damaged) like a named model.
    virtual std::map<std::string, std::string> defaultModels() const { return {}; }
    // Algorithm types this node serves; upstream lists the types of the nodes feeding it.
    virtual std::vector<int32_t> producedTypes(const NodeParams& params, const std::vector<std::string>& upstream) const {
        (void)params;
        (void)upstream;
        return {};
    }

    // Types of the nodes linked to this node's input slots; set when the graph is built.
    std::vector<std::string> upstreamTypes;
    // The system's memo of the current execute (execute_memo.h); null outside a system.
    ExecuteMemo* memo = nullptr;
};

struct SlotSpec {
    Port accepts;
    bool required;
};

struct NodeType {
    const char* name;
    std::vector<SlotSpec> inputs;
    Port output;
    std::function<std::unique_ptr<Node>()> create;
};

// The input of slot i as T; throws Error(INVALID_NODE) when missing or of another kind.
template <typename T>
T& inputAs(const std::vector<NodeOutput*>& inputs, size_t i) {
    T* p = i < inputs.size() ? dynamic_cast<T*>(inputs[i]) : nullptr;
    if (p == nullptr) throw Error(Vantor::INVALID_NODE, "input slot " + std::to_string(i) + " is missing");
    return *p;
}

}  // namespace kv
