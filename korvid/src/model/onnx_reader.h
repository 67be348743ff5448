// The parts of an ONNX model an executor needs: nodes with their attributes, and the
// initializers as floats or integers. Read from untrusted bytes: every length, count and
// data size is checked against the buffer, and a tensor's data against its dims, so that a
// damaged file is refused with a reason and never read past.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace kv {

struct OnnxTensor {
    std::vector<int64_t> dims;
    std::vector<float> floats;  // FLOAT tensors
    std::vector<int64_t> ints;  // INT64 and INT32 tensors
    bool isFloat = false;
    size_t count() const { return isFloat ? floats.size() : ints.size(); }
};

struct OnnxAttribute {
    float f = 0;
    int64_t i = 0;
    std::string s;
    std::vector<float> floats;
    std::vector<int64_t> ints;
};

struct OnnxNode {
    std::string op;
    std::vector<std::string> inputs;  // "" for an omitted optional input
    std::vector<std::string> outputs;
    std::map<std::string, OnnxAttribute> attributes;

    const OnnxAttribute* attribute(const std::string& name) const;
    int64_t intOr(const std::string& name, int64_t fallback) const;
    float floatOr(const std::string& name, float fallback) const;
    std::vector<int64_t> intsOr(const std::string& name, std::vector<int64_t> fallback) const;
    std::string textOr(const std::string& name, const std::string& fallback) const;
};

struct OnnxGraph {
    std::vector<OnnxNode> nodes;                  // in the file's (topological) order
    std::map<std::string, OnnxTensor> constants;  // initializers and Constant nodes' values
    std::vector<std::string> inputs;              // graph inputs that are not initializers
    std::vector<std::string> outputs;
};

// Reads data as an ONNX model. Empty when it could; otherwise why not (graph left partial).
std::string readOnnxGraph(const uint8_t* data, size_t size, OnnxGraph& graph);

}  // namespace kv
