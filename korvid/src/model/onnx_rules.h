// What the executors read from an ONNX graph the same way: constants by name, integer
// attributes, the output size of a window and broadcasting, each within the bounds a
// damaged file may not pass. A graph outside them throws Unsupported with the reason, which
// an executor's build() turns into its refusal.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "model/onnx_reader.h"

namespace kv::onnx {

// The operators both executors run. Each executor dispatches with a switch over it and no
// default case, so the compiler names an operator one of them leaves out.
enum class Op {
    Conv, ConvTranspose, Relu, LeakyRelu, Clip, Sigmoid, HardSigmoid, PRelu,
    Add, Sub, Mul, Div, Concat, MaxPool, AveragePool, GlobalAveragePool,
    Pad, Transpose, Reshape, Flatten, Identity, Softmax, MatMul, Gemm, Resize,
};

// The operator of a node that has inputs and outputs; Unsupported otherwise.
Op operatorOf(const OnnxNode& n);

// No network of ours comes near these.
constexpr int64_t kMaxDim = int64_t(1) << 20;
constexpr int64_t kMaxElements = int64_t(1) << 28;

struct Unsupported {
    std::string why;
};

[[noreturn]] void unsupported(const std::string& why);

// d when it is a dimension in (0, kMaxDim].
int64_t checkedDim(int64_t d);

// The constant of that name, or null.
const OnnxTensor* findConstant(const OnnxGraph& graph, const std::string& name);
// The float (or integer) constant of that name.
const OnnxTensor& floatConstant(const OnnxGraph& graph, const std::string& name);
const std::vector<int64_t>& intConstant(const OnnxGraph& graph, const std::string& name);

// An attribute of count integers (strides, dilations: 2; pads: 4), fallback each when absent,
// each in [low, kMaxDim].
std::vector<int64_t> attributeInts(const OnnxNode& n, const std::string& name, size_t count, int64_t fallback, int64_t low);

// Refuses auto_pad other than NOTSET and VALID (the pads are then the attribute's).
void requireExplicitPadding(const OnnxNode& n);

// The output length of a window (kernel, stride, dilation) over in with the padding given.
template <typename Int>
Int windowOutput(Int in, Int before, Int after, Int kernel, Int stride, Int dilation) {
    const Int span = (kernel - 1) * dilation + 1;
    if (in + before + after < span) unsupported("a window larger than its padded input");
    return (in + before + after - span) / stride + 1;
}

// The shape of an element-wise result of a and b (numpy's broadcasting).
template <typename Int>
std::vector<Int> broadcast(std::vector<Int> a, std::vector<Int> b) {
    if (a.size() < b.size()) std::swap(a, b);
    b.insert(b.begin(), a.size() - b.size(), 1);
    for (size_t i = 0; i < a.size(); ++i) {
        if (a[i] != b[i] && a[i] != 1 && b[i] != 1) unsupported("operands that do not broadcast");
        a[i] = std::max(a[i], b[i]);
    }
    return a;
}

}  // namespace kv::onnx
