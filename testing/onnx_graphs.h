// Small ONNX graphs written in a test: nodes, float constants (given or seeded noise) and
// integer constants (shapes, pads), as the reader would have parsed them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "model/onnx_reader.h"

namespace vqfe_testing {

inline kv::OnnxNode onnxNode(const std::string& op, std::vector<std::string> inputs, std::vector<std::string> outputs) {
    kv::OnnxNode n;
    n.op = op;
    n.inputs = std::move(inputs);
    n.outputs = std::move(outputs);
    return n;
}

inline kv::OnnxTensor floatTensor(std::vector<int64_t> dims, std::vector<float> values) {
    kv::OnnxTensor t;
    t.dims = std::move(dims);
    t.floats = std::move(values);
    t.isFloat = true;
    return t;
}

// A float constant of dims filled with noise in [-0.5, 0.5) from seed.
inline kv::OnnxTensor noiseTensor(std::vector<int64_t> dims, uint64_t seed) {
    size_t count = 1;
    for (int64_t d : dims) count *= size_t(d);
    std::vector<float> values;
    cv::RNG rng(seed);
    for (size_t i = 0; i < count; ++i) values.push_back(rng.uniform(-0.5f, 0.5f));
    return floatTensor(std::move(dims), std::move(values));
}

// A one-dimensional integer constant (a shape, pads, sizes).
inline kv::OnnxTensor intTensor(std::vector<int64_t> values) {
    kv::OnnxTensor t;
    t.dims = {int64_t(values.size())};
    t.ints = std::move(values);
    return t;
}

}  // namespace vqfe_testing
