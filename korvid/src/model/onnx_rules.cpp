#include "model/onnx_rules.h"

#include <map>

namespace kv::onnx {

void unsupported(const std::string& why) { throw Unsupported{why}; }

Op operatorOf(const OnnxNode& n) {
    static const std::map<std::string, Op> kOperators = {
        {"Conv", Op::Conv}, {"ConvTranspose", Op::ConvTranspose}, {"Relu", Op::Relu}, {"LeakyRelu", Op::LeakyRelu},
        {"Clip", Op::Clip}, {"Sigmoid", Op::Sigmoid}, {"HardSigmoid", Op::HardSigmoid}, {"PRelu", Op::PRelu},
        {"Add", Op::Add}, {"Sub", Op::Sub}, {"Mul", Op::Mul}, {"Div", Op::Div}, {"Concat", Op::Concat},
        {"MaxPool", Op::MaxPool}, {"AveragePool", Op::AveragePool}, {"GlobalAveragePool", Op::GlobalAveragePool},
        {"Pad", Op::Pad}, {"Transpose", Op::Transpose}, {"Reshape", Op::Reshape}, {"Flatten", Op::Flatten},
        {"Identity", Op::Identity}, {"Softmax", Op::Softmax}, {"MatMul", Op::MatMul}, {"Gemm", Op::Gemm},
        {"Resize", Op::Resize},
    };
    if (n.outputs.empty() || n.inputs.empty()) unsupported(n.op + " without inputs or outputs");
    const auto it = kOperators.find(n.op);
    if (it == kOperators.end()) unsupported("operator " + n.op);
    return it->second;
}

int64_t checkedDim(int64_t d) {
    if (d <= 0 || d > kMaxDim) unsupported("a dimension of " + std::to_string(d));
    return d;
}

const OnnxTensor* findConstant(const OnnxGraph& graph, const std::string& name) {
    const auto it = graph.constants.find(name);
    return it == graph.constants.end() ? nullptr : &it->second;
}

const OnnxTensor& floatConstant(const OnnxGraph& graph, const std::string& name) {
    const OnnxTensor* t = findConstant(graph, name);
    if (t == nullptr || !t->isFloat) unsupported("\"" + name + "\" that is not a float constant");
    return *t;
}

const std::vector<int64_t>& intConstant(const OnnxGraph& graph, const std::string& name) {
    const OnnxTensor* t = findConstant(graph, name);
    if (t == nullptr || t->isFloat) unsupported("\"" + name + "\" that is not an integer constant");
    return t->ints;
}

std::vector<int64_t> attributeInts(const OnnxNode& n, const std::string& name, size_t count, int64_t fallback, int64_t low) {
    const std::vector<int64_t> v = n.intsOr(name, std::vector<int64_t>(count, fallback));
    if (v.size() != count) unsupported(n.op + " with " + name + " of " + std::to_string(v.size()) + " values");
    for (int64_t x : v) {
        if (x < low || x > kMaxDim) unsupported(n.op + " with " + name + " " + std::to_string(x));
    }
    return v;
}

void requireExplicitPadding(const OnnxNode& n) {
    const std::string autoPad = n.textOr("auto_pad", "NOTSET");
    if (autoPad != "NOTSET" && autoPad != "VALID") unsupported(n.op + " with auto_pad " + autoPad);
}

}  // namespace kv::onnx
