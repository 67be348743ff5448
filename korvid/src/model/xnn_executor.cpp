#include "model/xnn_executor.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <map>
#include <mutex>

#include <xnnpack.h>

#include "model/onnx_rules.h"

namespace kv {

namespace {

constexpr float kInf = std::numeric_limits<float>::infinity();
// Bounds on what a damaged file may ask for, in XNNPACK's unsigned sizes.
constexpr size_t kMaxDim = size_t(onnx::kMaxDim);
constexpr size_t kMaxElements = size_t(onnx::kMaxElements);
// XNNPACK may read this far past an input and write past an output.
constexpr size_t kPadFloats = XNN_EXTRA_BYTES / sizeof(float) + 1;

using onnx::Op;
using onnx::operatorOf;
using onnx::Unsupported;
using onnx::unsupported;

size_t product(const std::vector<size_t>& dims) {
    size_t n = 1;
    for (size_t d : dims) n *= d;
    return n;
}

// A tensor of the ONNX graph as the runtime holds it: dims in ONNX's order (NCHW for 4-D),
// stored channels last (NHWC, the convolutions' layout; N x L x C for N x C x L) when nhwc is
// set, in ONNX's order otherwise.
struct Value {
    uint32_t id = XNN_INVALID_VALUE_ID;
    std::vector<size_t> dims;
    bool nhwc = false;

    std::vector<size_t> stored() const {
        if (!nhwc) return dims;
        std::vector<size_t> out{dims[0]};
        out.insert(out.end(), dims.begin() + 2, dims.end());
        out.push_back(dims[1]);
        return out;
    }
    // The axis of ONNX's axis in the stored order.
    size_t storedAxis(size_t axis) const { return !nhwc || axis == 0 ? axis : axis == 1 ? dims.size() - 1 : axis - 1; }
    // Stored channels last but with the same memory order as ONNX's (one channel, or one pixel).
    bool plainOrder() const { return !nhwc || dims[1] == 1 || product(dims) == dims[0] * dims[1]; }
};

// Channel planes (channels x pixels) to pixels x channels, and back, in OpenCV's vectorised
// merge and split: three to four times the speed of a plain loop on a 416 x 416 x 3 input.
void planesToPixels(const float* src, float* dst, size_t channels, size_t pixels) {
    if (channels == 1 || pixels == 1 || channels > CV_CN_MAX) {
        for (size_t p = 0; p < pixels; ++p)
            for (size_t k = 0; k < channels; ++k) dst[p * channels + k] = src[k * pixels + p];
        return;
    }
    std::vector<cv::Mat> planes;
    for (size_t k = 0; k < channels; ++k) planes.emplace_back(1, int(pixels), CV_32F, const_cast<float*>(src + k * pixels));
    cv::Mat out(1, int(pixels), CV_32FC(int(channels)), dst);
    cv::merge(planes, out);
}

void pixelsToPlanes(const float* src, float* dst, size_t channels, size_t pixels) {
    if (channels == 1 || pixels == 1 || channels > CV_CN_MAX) {
        for (size_t p = 0; p < pixels; ++p)
            for (size_t k = 0; k < channels; ++k) dst[k * pixels + p] = src[p * channels + k];
        return;
    }
    std::vector<cv::Mat> planes;
    for (size_t k = 0; k < channels; ++k) planes.emplace_back(1, int(pixels), CV_32F, dst + k * pixels);
    cv::split(cv::Mat(1, int(pixels), CV_32FC(int(channels)), const_cast<float*>(src)), planes);
}

// NCHW data of dims (padded to 4-D) in NHWC order.
std::vector<float> toNhwc(const std::vector<float>& src, const std::vector<size_t>& d) {
    std::vector<float> out(src.size());
    const size_t c = d[1], pixels = d[2] * d[3];
    for (size_t i = 0; i < d[0]; ++i) planesToPixels(src.data() + i * c * pixels, out.data() + i * c * pixels, c, pixels);
    return out;
}

class Builder {
public:
    // statics: constants the runtime reads while it runs; packed: weights XNNPACK copies into
    // its own layout when it creates the runtime, free after that.
    Builder(const OnnxGraph& graph, xnn_subgraph_t subgraph, std::vector<std::vector<float>>& statics,
            std::vector<std::vector<float>>& packed, std::vector<XnnExecutor::InputStep>& inputSteps)
        : graph_(graph), sg_(subgraph), statics_(statics), packed_(packed), inputSteps_(inputSteps) {}

    size_t weightBytes = 0;

    // outputs: the values the caller reads, which must keep what the graph computes there.
    void input(const std::string& name, const std::vector<int>& shape, const std::vector<std::string>& outputs) {
        if (shape.size() != 4) unsupported("an input that is not 4-D");
        Value v;
        v.nhwc = true;
        for (int d : shape) v.dims.push_back(checkedDim(int64_t(d)));
        v.id = tensor(v.stored(), nullptr, 0, XNN_VALUE_FLAG_EXTERNAL_INPUT);
        values_[name] = v;
        inputHead_ = name;
        for (const OnnxNode& n : graph_.nodes)
            for (const std::string& in : n.inputs) ++uses_[in];
        for (const std::string& out : outputs) ++uses_[out];
    }

    void node(const OnnxNode& n) {
        const Op op = operatorOf(n);
        if (inputStep(n)) return;
        switch (op) {
        case Op::Conv: return conv(n);
        case Op::Relu: return clamp(n, 0, kInf);
        case Op::Clip: return clip(n);
        case Op::LeakyRelu: return unary(n, [&](uint32_t in, uint32_t out) { return xnn_define_leaky_relu(sg_, n.floatOr("alpha", 0.01f), in, out, 0); });
        case Op::Sigmoid: return unary(n, [&](uint32_t in, uint32_t out) { return xnn_define_sigmoid(sg_, in, out, 0); });
        case Op::HardSigmoid: return hardSigmoid(n);
        case Op::Concat: return concat(n);
        case Op::ConvTranspose: return deconv(n);
        case Op::PRelu: return prelu(n);
        case Op::Add: case Op::Sub: case Op::Mul: case Op::Div: return binary(n);
        case Op::MaxPool: case Op::AveragePool: return pool(n);
        case Op::GlobalAveragePool: return globalAverage(n);
        case Op::Pad: return pad(n);
        case Op::Transpose: return transpose(n);
        case Op::Reshape: case Op::Flatten: return reshape(n);
        case Op::Identity: values_[n.outputs[0]] = value(n.inputs[0]); return;
        case Op::Softmax: return softmax(n);
        case Op::MatMul: case Op::Gemm: return fullyConnected(n);
        case Op::Resize: return resize(n);
        }
    }

    // A copy of the value to the external output id, so that outputs that are aliases
    // (Identity, layout-only Transpose) or also feed other nodes are written where asked.
    Value output(const std::string& name, uint32_t externalId) {
        const Value v = value(name);
        Value out = v;
        const std::vector<size_t> dims = v.stored();
        out.id = tensor(dims, nullptr, externalId, XNN_VALUE_FLAG_EXTERNAL_OUTPUT);
        check(xnn_define_static_reshape(sg_, dims.size(), dims.data(), v.id, out.id, 0), "output copy");
        return out;
    }

private:
    // Add, Sub or Mul of a constant per channel (or one for all) on the network's input, or on
    // the result of such steps, read by this node only: XNNPACK broadcasts a per-channel
    // constant over a channels-last image three values at a time (8 % of MoveNet's time for
    // its three steps), forward() takes them on whole planes. True when taken.
    bool inputStep(const OnnxNode& n) {
        if (n.inputs.size() != 2 || n.outputs.size() != 1 || inputHead_.empty()) return false;
        if (n.op != "Add" && n.op != "Sub" && n.op != "Mul") return false;
        const bool headFirst = n.inputs[0] == inputHead_;
        if (!headFirst && n.inputs[1] != inputHead_) return false;
        if (uses_[inputHead_] != 1 || n.inputs[0] == n.inputs[1]) return false;
        const OnnxTensor* t = constant(n.inputs[headFirst ? 1 : 0]);
        if (t == nullptr || !t->isFloat || t->dims.size() > 4) return false;
        const Value input = value(inputHead_);
        const size_t c = input.dims[1];
        std::vector<int64_t> dims = t->dims;
        dims.insert(dims.begin(), 4 - dims.size(), 1);
        XnnExecutor::InputStep step;
        if (t->floats.size() == 1) step.values.assign(c, t->floats[0]);
        else if (t->floats.size() == c && dims == std::vector<int64_t>{1, int64_t(c), 1, 1}) step.values = t->floats;
        else return false;
        step.kind = n.op == "Add"   ? XnnExecutor::InputStep::Add
                    : n.op == "Mul" ? XnnExecutor::InputStep::Multiply
                    : headFirst     ? XnnExecutor::InputStep::Subtract
                                    : XnnExecutor::InputStep::SubtractFrom;
        inputSteps_.push_back(std::move(step));
        values_[n.outputs[0]] = input;
        inputHead_ = n.outputs[0];
        return true;
    }

    static size_t checkedDim(int64_t d) { return size_t(onnx::checkedDim(d)); }

    static void check(xnn_status status, const std::string& what) {
        if (status != xnn_status_success) unsupported(what + " refused by XNNPACK (status " + std::to_string(int(status)) + ")");
    }

    uint32_t tensor(const std::vector<size_t>& dims, const float* data, uint32_t externalId = XNN_INVALID_VALUE_ID, uint32_t flags = 0) {
        if (dims.empty() || dims.size() > XNN_MAX_TENSOR_DIMS) unsupported("a tensor of rank " + std::to_string(dims.size()));
        size_t total = 1;
        for (size_t d : dims) {
            if (d == 0 || d > kMaxDim) unsupported("a dimension of " + std::to_string(d));
            total *= d;
            if (total > kMaxElements) unsupported("a tensor of over 2^28 elements");
        }
        uint32_t id = XNN_INVALID_VALUE_ID;
        check(xnn_define_tensor_value(sg_, xnn_datatype_fp32, dims.size(), dims.data(), data, externalId, flags, &id), "a tensor");
        return id;
    }

    uint32_t staticTensor(std::vector<float> data, const std::vector<size_t>& dims, bool packed = false) {
        if (product(dims) != data.size()) unsupported("constant of another size than its shape");
        weightBytes += data.size() * sizeof(float);
        data.resize(data.size() + kPadFloats);
        std::vector<std::vector<float>>& store = packed ? packed_ : statics_;
        store.push_back(std::move(data));
        return tensor(dims, store.back().data());
    }

    Value define(const std::string& name, std::vector<size_t> dims, bool nhwc) {
        Value v;
        v.dims = std::move(dims);
        v.nhwc = nhwc;
        if (nhwc && v.dims.size() < 3) unsupported("a channels-last tensor of rank " + std::to_string(v.dims.size()));
        v.id = tensor(v.stored(), nullptr);
        values_[name] = v;
        return v;
    }

    const Value& value(const std::string& name) const {
        const auto it = values_.find(name);
        if (it == values_.end()) unsupported("input \"" + name + "\" that is not computed (a constant, or unknown)");
        return it->second;
    }

    const OnnxTensor* constant(const std::string& name) const { return onnx::findConstant(graph_, name); }

    const OnnxTensor& floats(const std::string& name) const { return onnx::floatConstant(graph_, name); }
    std::vector<int64_t> ints(const std::string& name) const { return onnx::intConstant(graph_, name); }

    const Value& nhwcInput(const OnnxNode& n) const {
        const Value& in = value(n.inputs[0]);
        if (!in.nhwc || in.dims.size() != 4) unsupported(n.op + " on a tensor that is not an image");
        return in;
    }

    // Attribute of two values (pads: four), each at least low.
    static std::vector<size_t> pair(const OnnxNode& n, const std::string& name, size_t count, int64_t fallback, int64_t low) {
        const std::vector<int64_t> v = onnx::attributeInts(n, name, count, fallback, low);
        return std::vector<size_t>(v.begin(), v.end());
    }

    void conv(const OnnxNode& n) {
        const Value in = nhwcInput(n);
        if (n.inputs.size() < 2) unsupported("Conv without weights");
        const OnnxTensor& w = floats(n.inputs[1]);
        if (w.dims.size() != 4) unsupported("Conv weights that are not 4-D");
        onnx::requireExplicitPadding(n);
        const size_t o = checkedDim(w.dims[0]), ig = checkedDim(w.dims[1]), kh = checkedDim(w.dims[2]), kw = checkedDim(w.dims[3]);
        const int64_t groupAttr = n.intOr("group", 1);
        if (groupAttr <= 0 || uint64_t(groupAttr) > kMaxDim) unsupported("Conv group " + std::to_string(groupAttr));
        const size_t group = size_t(groupAttr), c = in.dims[1];
        if (c % group != 0 || ig != c / group || o % group != 0) unsupported("Conv weights that do not fit its input");
        const std::vector<size_t> kernel = pair(n, "kernel_shape", 2, int64_t(kh), 1);
        if (kernel[0] != kh || kernel[1] != kw) unsupported("Conv kernel_shape other than its weights'");
        const std::vector<size_t> strides = pair(n, "strides", 2, 1, 1), dilations = pair(n, "dilations", 2, 1, 1);
        const std::vector<size_t> pads = pair(n, "pads", 4, 0, 0);  // top, left, bottom, right
        std::vector<float> bias(o, 0.0f);
        if (n.inputs.size() > 2 && !n.inputs[2].empty()) {
            const OnnxTensor& b = floats(n.inputs[2]);
            if (b.floats.size() != o) unsupported("Conv bias of another size than its outputs");
            bias = b.floats;
        }
        const size_t oh = onnx::windowOutput<size_t>(in.dims[2], pads[0], pads[2], kh, strides[0], dilations[0]);
        const size_t ow = onnx::windowOutput<size_t>(in.dims[3], pads[1], pads[3], kw, strides[1], dilations[1]);
        const Value out = define(n.outputs[0], {in.dims[0], o, oh, ow}, true);
        const uint32_t biasId = staticTensor(std::move(bias), {o}, true);
        std::vector<float> filter(w.floats.size());
        const bool depthwise = group == c && ig == 1 && group > 1;
        for (size_t k = 0; k < o; ++k)
            for (size_t i = 0; i < ig; ++i)
                for (size_t y = 0; y < kh; ++y)
                    for (size_t x = 0; x < kw; ++x) {
                        const float v = w.floats[((k * ig + i) * kh + y) * kw + x];
                        // depthwise: 1 x KH x KW x O; otherwise O x KH x KW x I
                        filter[depthwise ? (y * kw + x) * o + k : ((k * kh + y) * kw + x) * ig + i] = v;
                    }
        if (depthwise) {
            const uint32_t filterId = staticTensor(std::move(filter), {1, kh, kw, o}, true);
            check(xnn_define_depthwise_convolution_2d(sg_, uint32_t(pads[0]), uint32_t(pads[3]), uint32_t(pads[2]), uint32_t(pads[1]),
                                                      uint32_t(kh), uint32_t(kw), uint32_t(strides[0]), uint32_t(strides[1]),
                                                      uint32_t(dilations[0]), uint32_t(dilations[1]), uint32_t(o / c), c, -kInf, kInf,
                                                      in.id, filterId, biasId, out.id, 0),
                  "depthwise Conv");
        } else {
            const uint32_t filterId = staticTensor(std::move(filter), {o, kh, kw, ig}, true);
            check(xnn_define_convolution_2d(sg_, uint32_t(pads[0]), uint32_t(pads[3]), uint32_t(pads[2]), uint32_t(pads[1]),
                                            uint32_t(kh), uint32_t(kw), uint32_t(strides[0]), uint32_t(strides[1]),
                                            uint32_t(dilations[0]), uint32_t(dilations[1]), uint32_t(group), ig, o / group, -kInf,
                                            kInf, in.id, filterId, biasId, out.id, 0),
                  "Conv");
        }
    }

    template <typename Define>
    void unary(const OnnxNode& n, Define define_) {
        const Value in = value(n.inputs[0]);
        const Value out = define(n.outputs[0], in.dims, in.nhwc);
        check(define_(in.id, out.id), n.op);
    }

    void clamp(const OnnxNode& n, float low, float high) {
        unary(n, [&](uint32_t in, uint32_t out) { return xnn_define_clamp(sg_, low, high, in, out, 0); });
    }

    float scalar(const OnnxNode& n, size_t input, const std::string& attribute, float fallback) const {
        if (n.inputs.size() > input && !n.inputs[input].empty()) {
            const OnnxTensor& t = floats(n.inputs[input]);
            if (t.floats.size() != 1) unsupported(n.op + " bound that is not a scalar");
            return t.floats[0];
        }
        return n.floatOr(attribute, fallback);
    }

    void clip(const OnnxNode& n) { clamp(n, scalar(n, 1, "min", -kInf), scalar(n, 2, "max", kInf)); }

    void prelu(const OnnxNode& n) {
        const Value in = nhwcInput(n);
        if (n.inputs.size() < 2) unsupported("PRelu without slopes");
        std::vector<float> slope = floats(n.inputs[1]).floats;
        const size_t c = in.dims[1];
        if (slope.size() == 1) slope.assign(c, slope[0]);
        if (slope.size() != c) unsupported("PRelu slopes other than one per channel");
        const uint32_t slopeId = staticTensor(std::move(slope), {c}, true);
        const Value out = define(n.outputs[0], in.dims, true);
        check(xnn_define_prelu(sg_, in.id, slopeId, out.id, 0), "PRelu");
    }

    // A constant operand laid out as the other operand is stored.
    std::pair<uint32_t, std::vector<size_t>> constantOperand(const OnnxTensor& t, const Value& other) {
        std::vector<size_t> dims;
        for (int64_t d : t.dims) dims.push_back(checkedDim(d));
        if (dims.size() > other.dims.size()) unsupported("a constant operand of higher rank");
        if (!other.nhwc) {
            if (dims.empty()) dims.push_back(1);
            return {staticTensor(t.floats, dims), dims};
        }
        dims.insert(dims.begin(), other.dims.size() - dims.size(), 1);
        Value layout;
        layout.dims = dims;
        layout.nhwc = true;
        const size_t rest = product(dims) / (dims[0] * dims[1]);
        return {staticTensor(toNhwc(t.floats, {dims[0], dims[1], rest, 1}), layout.stored()), dims};
    }

    void binary(const OnnxNode& n) {
        if (n.inputs.size() != 2) unsupported(n.op + " of " + std::to_string(n.inputs.size()) + " operands");
        const OnnxTensor* c0 = constant(n.inputs[0]);
        const OnnxTensor* c1 = constant(n.inputs[1]);
        if ((c0 != nullptr && c1 != nullptr) || (c0 != nullptr && !c0->isFloat) || (c1 != nullptr && !c1->isFloat)) {
            unsupported(n.op + " of constants");
        }
        uint32_t ids[2];
        std::vector<size_t> dims[2];
        bool nhwc = false;
        if (c0 == nullptr && c1 == nullptr) {
            const Value a = value(n.inputs[0]), b = value(n.inputs[1]);
            if (a.nhwc != b.nhwc || (a.nhwc && a.dims.size() != b.dims.size())) unsupported(n.op + " of an image and a flat tensor");
            ids[0] = a.id, ids[1] = b.id, dims[0] = a.dims, dims[1] = b.dims, nhwc = a.nhwc;
        } else {
            const size_t k = c0 == nullptr ? 0 : 1;
            const Value v = value(n.inputs[k]);
            auto [id, d] = constantOperand(c0 == nullptr ? *c1 : *c0, v);
            ids[k] = v.id, dims[k] = v.dims, ids[1 - k] = id, dims[1 - k] = d, nhwc = v.nhwc;
        }
        const Value out = define(n.outputs[0], onnx::broadcast<size_t>(dims[0], dims[1]), nhwc);
        xnn_status status;
        if (n.op == "Add") status = xnn_define_add2(sg_, -kInf, kInf, ids[0], ids[1], out.id, 0);
        else if (n.op == "Sub") status = xnn_define_subtract(sg_, -kInf, kInf, ids[0], ids[1], out.id, 0);
        else if (n.op == "Mul") status = xnn_define_multiply2(sg_, -kInf, kInf, ids[0], ids[1], out.id, 0);
        else status = xnn_define_divide(sg_, -kInf, kInf, ids[0], ids[1], out.id, 0);
        check(status, n.op);
    }

    void pool(const OnnxNode& n) {
        const Value in = nhwcInput(n);
        onnx::requireExplicitPadding(n);
        if (n.intOr("ceil_mode", 0) != 0 || n.intOr("storage_order", 0) != 0) unsupported(n.op + " with ceil_mode or storage_order");
        const std::vector<size_t> kernel = pair(n, "kernel_shape", 2, 0, 1), strides = pair(n, "strides", 2, 1, 1);
        const std::vector<size_t> pads = pair(n, "pads", 4, 0, 0), dilations = pair(n, "dilations", 2, 1, 1);
        const bool average = n.op == "AveragePool";
        // XNNPACK's average leaves padding out; ONNX's count_include_pad counts it.
        if (average && (pads != std::vector<size_t>(4, 0) || dilations != std::vector<size_t>{1, 1})) {
            unsupported("AveragePool with padding or dilation");
        }
        const size_t oh = onnx::windowOutput<size_t>(in.dims[2], pads[0], pads[2], kernel[0], strides[0], dilations[0]);
        const size_t ow = onnx::windowOutput<size_t>(in.dims[3], pads[1], pads[3], kernel[1], strides[1], dilations[1]);
        const Value out = define(n.outputs[0], {in.dims[0], in.dims[1], oh, ow}, true);
        if (average) {
            check(xnn_define_average_pooling_2d(sg_, 0, 0, 0, 0, uint32_t(kernel[0]), uint32_t(kernel[1]), uint32_t(strides[0]),
                                                uint32_t(strides[1]), -kInf, kInf, in.id, out.id, 0),
                  n.op);
        } else {
            check(xnn_define_max_pooling_2d(sg_, uint32_t(pads[0]), uint32_t(pads[3]), uint32_t(pads[2]), uint32_t(pads[1]),
                                            uint32_t(kernel[0]), uint32_t(kernel[1]), uint32_t(strides[0]), uint32_t(strides[1]),
                                            uint32_t(dilations[0]), uint32_t(dilations[1]), -kInf, kInf, in.id, out.id, 0),
                  n.op);
        }
    }

    void globalAverage(const OnnxNode& n) {
        const Value in = nhwcInput(n);
        const Value out = define(n.outputs[0], {in.dims[0], in.dims[1], 1, 1}, true);
        check(xnn_define_global_average_pooling_2d(sg_, -kInf, kInf, in.id, out.id, 0), n.op);
    }

    void pad(const OnnxNode& n) {
        const Value in = value(n.inputs[0]);
        if (n.textOr("mode", "constant") != "constant") unsupported("Pad mode " + n.textOr("mode", ""));
        const std::vector<int64_t> pads = n.inputs.size() > 1 ? ints(n.inputs[1]) : n.intsOr("pads", {});
        const size_t rank = in.dims.size();
        if (pads.size() != 2 * rank) unsupported("Pad with pads of another rank");
        const float fill = scalar(n, 2, "value", 0.0f);
        std::vector<size_t> before(rank), after(rank), dims(rank);
        for (size_t i = 0; i < rank; ++i) {
            if (pads[i] < 0 || pads[rank + i] < 0 || uint64_t(pads[i]) > kMaxDim || uint64_t(pads[rank + i]) > kMaxDim) {
                unsupported("Pad with negative or huge pads");
            }
            before[i] = size_t(pads[i]);
            after[i] = size_t(pads[rank + i]);
            dims[i] = in.dims[i] + before[i] + after[i];
        }
        std::vector<size_t> storedBefore(rank), storedAfter(rank);
        for (size_t i = 0; i < rank; ++i) {
            storedBefore[in.storedAxis(i)] = before[i];
            storedAfter[in.storedAxis(i)] = after[i];
        }
        before = storedBefore;
        after = storedAfter;
        const Value out = define(n.outputs[0], dims, in.nhwc);
        check(xnn_define_static_constant_pad(sg_, before.data(), after.data(), fill, in.id, out.id, 0), n.op);
    }

    // Only the transposes between the two layouts, which cost nothing here: channels first
    // to channels last is a channels-last tensor's stored order, and back.
    void transpose(const OnnxNode& n) {
        Value v = value(n.inputs[0]);
        const std::vector<int64_t> perm = n.intsOr("perm", {});
        const size_t rank = v.dims.size();
        std::vector<int64_t> toLast{0}, toFirst{0, int64_t(rank) - 1};
        for (size_t i = 2; i < rank; ++i) toLast.push_back(int64_t(i));
        toLast.push_back(1);
        for (size_t i = 1; i + 1 < rank; ++i) toFirst.push_back(int64_t(i));
        if (rank >= 3 && v.nhwc && perm == toLast) {
            v.dims = v.stored();
            v.nhwc = false;
        } else if (rank >= 3 && !v.nhwc && perm == toFirst) {
            Value first = v;
            first.dims = {v.dims[0], v.dims[rank - 1]};
            first.dims.insert(first.dims.end(), v.dims.begin() + 1, v.dims.end() - 1);
            first.nhwc = true;
            v = first;
        } else {
            unsupported("a Transpose other than between channels first and last");
        }
        values_[n.outputs[0]] = v;
    }

    // Along one axis, as the sum of the inputs each padded with zeros to the output's extent
    // there: this XNNPACK has no concatenation, and x + 0 is x exactly.
    void concat(const OnnxNode& n) {
        std::vector<Value> parts;
        for (const std::string& name : n.inputs) parts.push_back(value(name));
        const Value& first = parts.front();
        const size_t rank = first.dims.size();
        int64_t axisAttr = n.intOr("axis", 0);
        if (axisAttr < 0) axisAttr += int64_t(rank);
        if (axisAttr < 0 || size_t(axisAttr) >= rank) unsupported("Concat axis");
        const size_t axis = size_t(axisAttr);
        std::vector<size_t> dims = first.dims;
        dims[axis] = 0;
        for (const Value& p : parts) {
            if (p.nhwc != first.nhwc || p.dims.size() != rank) unsupported("Concat of tensors of other layouts");
            for (size_t i = 0; i < rank; ++i) {
                if (i != axis && p.dims[i] != first.dims[i]) unsupported("Concat of tensors of other shapes");
            }
            dims[axis] += p.dims[axis];
        }
        if (parts.size() == 1) {
            values_[n.outputs[0]] = first;
            return;
        }
        const size_t stored = first.storedAxis(axis);
        Value sum;
        size_t offset = 0;
        for (size_t k = 0; k < parts.size(); ++k) {
            std::vector<size_t> before(rank, 0), after(rank, 0);
            before[stored] = offset;
            offset += parts[k].dims[axis];
            after[stored] = dims[axis] - offset;
            const bool last = k + 1 == parts.size();
            const Value padded = define(n.outputs[0] + "#part" + std::to_string(k), dims, first.nhwc);
            check(xnn_define_static_constant_pad(sg_, before.data(), after.data(), 0.0f, parts[k].id, padded.id, 0), "Concat part");
            if (k == 0) {
                sum = padded;
                continue;
            }
            const Value next = define(last ? n.outputs[0] : n.outputs[0] + "#sum" + std::to_string(k), dims, first.nhwc);
            check(xnn_define_add2(sg_, -kInf, kInf, sum.id, padded.id, next.id, 0), "Concat sum");
            sum = next;
        }
    }

    // max(0, min(1, alpha x + beta)), as multiply, add and clamp.
    void hardSigmoid(const OnnxNode& n) {
        const Value in = value(n.inputs[0]);
        const std::vector<size_t> one(in.dims.size(), 1);
        const uint32_t alpha = staticTensor({n.floatOr("alpha", 0.2f)}, one), beta = staticTensor({n.floatOr("beta", 0.5f)}, one);
        const Value scaled = define(n.outputs[0] + "#scaled", in.dims, in.nhwc);
        check(xnn_define_multiply2(sg_, -kInf, kInf, in.id, alpha, scaled.id, 0), n.op);
        const Value out = define(n.outputs[0], in.dims, in.nhwc);
        check(xnn_define_add2(sg_, 0.0f, 1.0f, scaled.id, beta, out.id, 0), n.op);
    }

    void deconv(const OnnxNode& n) {
        const Value in = nhwcInput(n);
        if (n.inputs.size() < 2) unsupported("ConvTranspose without weights");
        const OnnxTensor& w = floats(n.inputs[1]);
        if (w.dims.size() != 4) unsupported("ConvTranspose weights that are not 4-D");
        onnx::requireExplicitPadding(n);
        if (n.attribute("output_shape") != nullptr) unsupported("ConvTranspose with output_shape");
        const size_t ci = checkedDim(w.dims[0]), og = checkedDim(w.dims[1]), kh = checkedDim(w.dims[2]), kw = checkedDim(w.dims[3]);
        const int64_t groupAttr = n.intOr("group", 1);
        if (groupAttr <= 0 || uint64_t(groupAttr) > kMaxDim) unsupported("ConvTranspose group");
        const size_t group = size_t(groupAttr), c = in.dims[1];
        if (ci != c || c % group != 0) unsupported("ConvTranspose weights that do not fit its input");
        const size_t ig = c / group, o = og * group;
        const std::vector<size_t> kernel = pair(n, "kernel_shape", 2, int64_t(kh), 1);
        if (kernel[0] != kh || kernel[1] != kw) unsupported("ConvTranspose kernel_shape other than its weights'");
        const std::vector<size_t> strides = pair(n, "strides", 2, 1, 1), dilations = pair(n, "dilations", 2, 1, 1);
        const std::vector<size_t> pads = pair(n, "pads", 4, 0, 0), extra = pair(n, "output_padding", 2, 0, 0);
        std::vector<float> bias(o, 0.0f);
        if (n.inputs.size() > 2 && !n.inputs[2].empty()) {
            const OnnxTensor& b = floats(n.inputs[2]);
            if (b.floats.size() != o) unsupported("ConvTranspose bias of another size than its outputs");
            bias = b.floats;
        }
        size_t size[2];
        for (size_t a = 0; a < 2; ++a) {
            const size_t full = (in.dims[2 + a] - 1) * strides[a] + ((a == 0 ? kh : kw) - 1) * dilations[a] + 1 + extra[a];
            if (full <= pads[a] + pads[a + 2]) unsupported("ConvTranspose padded away");
            size[a] = full - pads[a] - pads[a + 2];
        }
        const Value out = define(n.outputs[0], {in.dims[0], o, size[0], size[1]}, true);
        // ONNX: C x O/g x KH x KW; XNNPACK: O x KH x KW x C/g, group by group.
        std::vector<float> filter(w.floats.size());
        for (size_t g = 0; g < group; ++g)
            for (size_t i = 0; i < ig; ++i)
                for (size_t k = 0; k < og; ++k)
                    for (size_t y = 0; y < kh; ++y)
                        for (size_t x = 0; x < kw; ++x) {
                            filter[(((g * og + k) * kh + y) * kw + x) * ig + i] = w.floats[(((g * ig + i) * og + k) * kh + y) * kw + x];
                        }
        const uint32_t filterId = staticTensor(std::move(filter), {o, kh, kw, ig}, true);
        const uint32_t biasId = staticTensor(std::move(bias), {o}, true);
        check(xnn_define_deconvolution_2d(sg_, uint32_t(pads[0]), uint32_t(pads[3]), uint32_t(pads[2]), uint32_t(pads[1]),
                                          uint32_t(extra[0]), uint32_t(extra[1]), uint32_t(kh), uint32_t(kw), uint32_t(strides[0]),
                                          uint32_t(strides[1]), uint32_t(dilations[0]), uint32_t(dilations[1]), uint32_t(group), ig, og,
                                          -kInf, kInf, in.id, filterId, biasId, out.id, 0),
              n.op);
    }

    void reshape(const OnnxNode& n) {
        const Value in = value(n.inputs[0]);
        const size_t total = product(in.dims);
        std::vector<size_t> dims;
        if (n.op == "Flatten") {
            int64_t axis = n.intOr("axis", 1);
            if (axis < 0) axis += int64_t(in.dims.size());
            if (axis < 0 || size_t(axis) > in.dims.size()) unsupported("Flatten axis");
            const size_t head = product(std::vector<size_t>(in.dims.begin(), in.dims.begin() + axis));
            dims = {head, total / head};
        } else {
            if (n.inputs.size() < 2) unsupported("Reshape without a shape");
            const std::vector<int64_t> shape = ints(n.inputs[1]);
            if (shape.empty() || shape.size() > XNN_MAX_TENSOR_DIMS) unsupported("Reshape to rank " + std::to_string(shape.size()));
            size_t known = 1, infer = shape.size();
            for (size_t i = 0; i < shape.size(); ++i) {
                size_t d;
                if (shape[i] == -1 && infer == shape.size()) {
                    infer = i;
                    d = 1;
                } else if (shape[i] == 0 && i < in.dims.size()) {
                    d = in.dims[i];
                } else {
                    d = checkedDim(shape[i]);
                }
                dims.push_back(d);
                known *= d;
                if (known > kMaxElements) unsupported("Reshape to too many elements");
            }
            if (infer < shape.size()) dims[infer] = total / known;
        }
        if (product(dims) != total) unsupported(n.op + " to another number of elements");
        // Channels last stays so where only the spatial axes are merged or split.
        const bool keepsChannels = in.nhwc && dims.size() >= 3 && dims[0] == in.dims[0] && dims[1] == in.dims[1];
        if (!keepsChannels && !in.plainOrder()) unsupported(n.op + " of a channels-last tensor across its channels");
        const Value out = define(n.outputs[0], dims, keepsChannels);
        dims = out.stored();
        check(xnn_define_static_reshape(sg_, dims.size(), dims.data(), in.id, out.id, 0), n.op);
    }

    void softmax(const OnnxNode& n) {
        const Value in = value(n.inputs[0]);
        const int64_t rank = int64_t(in.dims.size());
        int64_t axis = n.intOr("axis", -1);
        if (axis < 0) axis += rank;
        // XNNPACK's softmax runs over the stored last axis: channels of an image.
        const bool last = in.nhwc ? axis == 1 : axis == rank - 1;
        if (!last) unsupported("Softmax over an axis other than the last");
        const Value out = define(n.outputs[0], in.dims, in.nhwc);
        check(xnn_define_softmax(sg_, in.id, out.id, 0), n.op);
    }

    void fullyConnected(const OnnxNode& n) {
        const Value in = value(n.inputs[0]);
        if (in.nhwc || in.dims.size() != 2 || n.inputs.size() < 2) unsupported(n.op + " of other than a matrix");
        const OnnxTensor& b = floats(n.inputs[1]);
        const bool gemm = n.op == "Gemm";
        const bool transB = gemm && n.intOr("transB", 0) != 0;
        if (gemm && n.intOr("transA", 0) != 0) unsupported("Gemm with transA");
        if (b.dims.size() != 2) unsupported(n.op + " weights that are not a matrix");
        const size_t rows = checkedDim(b.dims[0]), cols = checkedDim(b.dims[1]);
        const size_t k = in.dims[1], m = transB ? rows : cols;
        if ((transB ? cols : rows) != k) unsupported(n.op + " weights that do not fit its input");
        const float alpha = gemm ? n.floatOr("alpha", 1.0f) : 1.0f, beta = gemm ? n.floatOr("beta", 1.0f) : 1.0f;
        std::vector<float> filter(m * k);  // M x K
        for (size_t i = 0; i < m; ++i)
            for (size_t j = 0; j < k; ++j) filter[i * k + j] = alpha * (transB ? b.floats[i * k + j] : b.floats[j * m + i]);
        std::vector<float> bias(m, 0.0f);
        if (gemm && n.inputs.size() > 2 && !n.inputs[2].empty()) {
            const OnnxTensor& c = floats(n.inputs[2]);
            if (c.floats.size() != m && c.floats.size() != 1) unsupported("Gemm bias other than one per output");
            for (size_t i = 0; i < m; ++i) bias[i] = beta * c.floats[c.floats.size() == 1 ? 0 : i];
        }
        const uint32_t filterId = staticTensor(std::move(filter), {m, k}, true);
        const uint32_t biasId = staticTensor(std::move(bias), {m}, true);
        const Value out = define(n.outputs[0], {in.dims[0], m}, false);
        check(xnn_define_fully_connected(sg_, -kInf, kInf, in.id, filterId, biasId, out.id, 0), n.op);
    }

    void resize(const OnnxNode& n) {
        const Value in = nhwcInput(n);
        if (n.textOr("mode", "nearest") != "linear") unsupported("Resize mode " + n.textOr("mode", "nearest"));
        const std::string transform = n.textOr("coordinate_transformation_mode", "half_pixel");
        uint32_t flags;
        if (transform == "half_pixel") flags = 0;
        else if (transform == "align_corners") flags = XNN_FLAG_ALIGN_CORNERS;
        else if (transform == "asymmetric") flags = XNN_FLAG_TENSORFLOW_LEGACY_MODE;
        else unsupported("Resize coordinate_transformation_mode " + transform);
        size_t h = 0, w = 0;
        if (n.inputs.size() > 3 && !n.inputs[3].empty()) {
            const std::vector<int64_t> sizes = ints(n.inputs[3]);
            if (sizes.size() != 4 || sizes[0] != int64_t(in.dims[0]) || sizes[1] != int64_t(in.dims[1])) unsupported("Resize sizes");
            h = checkedDim(sizes[2]), w = checkedDim(sizes[3]);
        } else if (n.inputs.size() > 2 && !n.inputs[2].empty()) {
            const std::vector<float>& scales = floats(n.inputs[2]).floats;
            const auto fair = [](float f) { return f > 0 && f <= float(kMaxDim); };  // also false for NaN
            if (scales.size() != 4 || scales[0] != 1.0f || scales[1] != 1.0f || !fair(scales[2]) || !fair(scales[3])) unsupported("Resize scales");
            h = checkedDim(int64_t(double(in.dims[2]) * scales[2])), w = checkedDim(int64_t(double(in.dims[3]) * scales[3]));
        } else {
            unsupported("Resize without sizes or scales");
        }
        const Value out = define(n.outputs[0], {in.dims[0], in.dims[1], h, w}, true);
        check(xnn_define_static_resize_bilinear_2d(sg_, h, w, in.id, out.id, flags), n.op);
    }

    const OnnxGraph& graph_;
    xnn_subgraph_t sg_;
    std::vector<std::vector<float>>& statics_;
    std::vector<std::vector<float>>& packed_;
    std::vector<XnnExecutor::InputStep>& inputSteps_;
    std::map<std::string, Value> values_;
    std::map<std::string, size_t> uses_;  // readers of each value: nodes, and the caller for outputs
    std::string inputHead_;  // the value the input steps so far give, while steps may follow
};

bool xnnReady() {
    static std::once_flag once;
    static bool ready = false;
    std::call_once(once, [] { ready = xnn_initialize(nullptr) == xnn_status_success; });
    return ready;
}

struct SubgraphDeleter {
    void operator()(xnn_subgraph* s) const { xnn_delete_subgraph(s); }
};

}  // namespace

std::unique_ptr<XnnExecutor> XnnExecutor::build(const OnnxGraph& graph, const std::vector<int>& inputShape,
                                                const std::vector<std::string>& outputs, std::string& why) {
    if (!xnnReady()) {
        why = "XNNPACK does not run on this processor";
        return nullptr;
    }
    if (graph.inputs.size() != 1) {
        why = "a network of " + std::to_string(graph.inputs.size()) + " inputs";
        return nullptr;
    }
    std::unique_ptr<XnnExecutor> executor(new XnnExecutor());
    xnn_subgraph_t raw = nullptr;
    if (xnn_create_subgraph(uint32_t(outputs.size() + 1), 0, &raw) != xnn_status_success) {
        why = "XNNPACK refused a subgraph";
        return nullptr;
    }
    std::unique_ptr<xnn_subgraph, SubgraphDeleter> subgraph(raw);
    std::vector<std::vector<float>> packed;  // freed when the runtime has its own copy
    try {
        Builder builder(graph, raw, executor->statics_, packed, executor->inputSteps_);
        builder.input(graph.inputs[0], inputShape, outputs);
        for (const OnnxNode& node : graph.nodes) builder.node(node);
        for (size_t i = 0; i < outputs.size(); ++i) {
            const Value v = builder.output(outputs[i], uint32_t(i + 1));
            Output out;
            for (size_t d : v.dims) out.shape.push_back(int(d));
            out.nhwc = v.nhwc;
            out.buffer.resize(product(v.dims) + kPadFloats);
            executor->outputs_.push_back(std::move(out));
        }
        executor->weightBytes_ = builder.weightBytes;
    } catch (const Unsupported& u) {
        why = u.why;
        return nullptr;
    }
    if (xnn_create_runtime_v2(raw, nullptr, 0, &executor->runtime_) != xnn_status_success) {
        why = "XNNPACK refused the runtime";
        return nullptr;
    }
    executor->inputShape_ = inputShape;
    executor->input_.resize(product(std::vector<size_t>(inputShape.begin(), inputShape.end())) + kPadFloats);
    if (!executor->inputSteps_.empty()) executor->planes_.resize(size_t(inputShape[1]) * size_t(inputShape[2]) * size_t(inputShape[3]));
    std::vector<xnn_external_value> externals{{0, executor->input_.data()}};
    for (size_t i = 0; i < executor->outputs_.size(); ++i) externals.push_back({uint32_t(i + 1), executor->outputs_[i].buffer.data()});
    if (xnn_setup_runtime(executor->runtime_, externals.size(), externals.data()) != xnn_status_success) {
        why = "XNNPACK refused to set the runtime up";
        return nullptr;
    }
    return executor;
}

XnnExecutor::~XnnExecutor() {
    if (runtime_ != nullptr) xnn_delete_runtime(runtime_);
}

// Each step is one rounding of x * a + b with a = 1 or b = 0, as XNNPACK's own operator rounds.
void XnnExecutor::takeInputSteps(const float* src) {
    const int pixels = inputShape_[2] * inputShape_[3];
    for (size_t k = 0; k < size_t(inputShape_[1]); ++k) {
        cv::Mat plane(1, pixels, CV_32F, const_cast<float*>(src + k * size_t(pixels)));
        cv::Mat out(1, pixels, CV_32F, planes_.data() + k * size_t(pixels));
        for (const InputStep& step : inputSteps_) {
            const double v = step.values[k];
            switch (step.kind) {
                case InputStep::Add: plane.convertTo(out, CV_32F, 1.0, v); break;
                case InputStep::Subtract: plane.convertTo(out, CV_32F, 1.0, -v); break;
                case InputStep::SubtractFrom: plane.convertTo(out, CV_32F, -1.0, v); break;
                case InputStep::Multiply: plane.convertTo(out, CV_32F, v, 0.0); break;
            }
            plane = out;
        }
    }
}

std::vector<cv::Mat> XnnExecutor::forward(const cv::Mat& blob) {
    const size_t n = size_t(inputShape_[0]), c = size_t(inputShape_[1]), pixels = size_t(inputShape_[2]) * size_t(inputShape_[3]);
    CV_Assert(blob.type() == CV_32F && blob.isContinuous() && blob.total() == n * c * pixels);
    for (size_t i = 0; i < n; ++i) {
        const float* planes = blob.ptr<float>() + i * c * pixels;
        if (!inputSteps_.empty()) {
            takeInputSteps(planes);
            planes = planes_.data();
        }
        planesToPixels(planes, input_.data() + i * c * pixels, c, pixels);
    }
    if (xnn_invoke_runtime(runtime_) != xnn_status_success) CV_Error(cv::Error::StsError, "XNNPACK failed to run the network");
    std::vector<cv::Mat> outs;
    for (const Output& out : outputs_) {
        cv::Mat mat(int(out.shape.size()), out.shape.data(), CV_32F);
        float* dst = mat.ptr<float>();
        if (out.nhwc) {
            const size_t on = size_t(out.shape[0]), oc = size_t(out.shape[1]), rest = mat.total() / (on * oc);
            for (size_t i = 0; i < on; ++i) pixelsToPlanes(out.buffer.data() + i * oc * rest, dst + i * oc * rest, oc, rest);
        } else {
            std::memcpy(dst, out.buffer.data(), mat.total() * sizeof(float));
        }
        outs.push_back(std::move(mat));
    }
    return outs;
}

}  // namespace kv
