#include "model/dnnl_executor.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <map>
#include <unordered_map>

#include <dnnl.hpp>

#include "model/idle_pool.h"
#include "model/one_openmp_thread.h"
#include "model/onnx_rules.h"

namespace kv {

namespace {

using dnnl::algorithm;
using dnnl::memory;
using Tag = memory::format_tag;
using Dims = memory::dims;

constexpr float kInf = std::numeric_limits<float>::infinity();
constexpr dnnl::prop_kind kInference = dnnl::prop_kind::forward_inference;
constexpr size_t kAlign = 64;

using onnx::broadcast;
using onnx::checkedDim;
using onnx::kMaxDim;
using onnx::kMaxElements;
using onnx::Op;
using onnx::operatorOf;
using onnx::Unsupported;
using onnx::unsupported;

int64_t product(const Dims& dims) {
    int64_t n = 1;
    for (int64_t d : dims) n *= d;
    return n;
}

Tag plainTag(size_t rank) {
    switch (rank) {
        case 1: return Tag::a;
        case 2: return Tag::ab;
        case 3: return Tag::abc;
        case 4: return Tag::abcd;
        case 5: return Tag::abcde;
        case 6: return Tag::abcdef;
        default: unsupported("a tensor of rank " + std::to_string(rank));
    }
}

memory::desc plainDesc(const Dims& dims) { return memory::desc(dims, memory::data_type::f32, plainTag(dims.size())); }
memory::desc anyDesc(const Dims& dims) { return memory::desc(dims, memory::data_type::f32, Tag::any); }

// A tensor of dims in the layout of md (of other dims): channels last, or the channel blocks,
// of convolutions; plain when md is neither.
memory::desc likeDesc(const Dims& dims, const memory::desc& md) {
    if (dims.size() == 4 && md.dims().size() == 4) {
        for (Tag tag : {Tag::acdb, Tag::aBcd16b, Tag::aBcd8b}) {
            if (md == memory::desc(md.dims(), memory::data_type::f32, tag)) return memory::desc(dims, memory::data_type::f32, tag);
        }
    }
    return plainDesc(dims);
}

// What a convolution does to its result before it stores it: an eltwise function, an
// addition of what its destination holds (sum), or a PRelu by channel (slopes).
struct PostOp {
    bool sum = false;
    algorithm alg = algorithm::eltwise_relu;
    float alpha = 0, beta = 0;
    memory slopes;
};

PostOp eltwise(algorithm alg, float alpha, float beta) {
    PostOp op;
    op.alg = alg;
    op.alpha = alpha;
    op.beta = beta;
    return op;
}

PostOp sumPostOp() {
    PostOp op;
    op.sum = true;
    return op;
}

// An element-wise function as oneDNN's eltwise steps, applied in order.
using Activation = std::vector<PostOp>;

struct Value {
    Dims dims;  // ONNX's order
    memory::desc md;
    int slot = -1;          // the buffer it lives in
    int producer = -1;      // step that writes it; -1 for the network's input
    Dims pendingPad;        // a zero Pad only its reading Conv takes (top, left, bottom, right)
};

struct Slot {
    size_t bytes = 0;
    int first = std::numeric_limits<int>::max();
    int last = -1;
    int values = 0;  // values living in it (views and in-place results count)
};

struct ConvSpec {
    Dims strides, dilations, padL, padR;
    memory::desc src, weights, bias, dst;
    std::vector<PostOp> postOps;
    memory plainWeights;
    memory biasMemory;
};

struct Step {
    dnnl::primitive primitive;  // empty for a fill and for a convolution until it is made
    std::vector<std::pair<int, int>> values;  // (argument, value)
    std::vector<std::pair<int, memory>> constants;
    size_t scratchpad = 0;
    int conv = -1;          // index of its ConvSpec
    int fillValue = -1;     // a fill of that value with fill
    float fill = 0;
};

dnnl::primitive_attr userScratchpad() {
    dnnl::primitive_attr attr;
    attr.set_scratchpad_mode(dnnl::scratchpad_mode::user);
    return attr;
}

// The buffers of one forward pass and the arguments bound to them: the intermediate tensors
// and the scratchpad (in blocks), the input and the outputs. The primitives and the weights
// are every run's: oneDNN runs one primitive on several threads at once when each brings its
// own buffers and scratchpad.
struct DnnlRun {
    explicit DnnlRun(const dnnl::engine& engine) : stream(engine) {}
    dnnl::stream stream;
    // Declared before the memories bound to them, so that they go last.
    std::vector<std::pair<std::unique_ptr<char, decltype(&std::free)>, size_t>> blocks;  // and their bytes
    std::vector<std::unordered_map<int, memory>> args;  // of each step of the program
    std::vector<float*> fills;                          // where each fill writes
    memory input;
    std::vector<memory> outputs;
};

char* alignedBlock(size_t bytes) {
    void* p = std::aligned_alloc(kAlign, bytes);
    if (p == nullptr) throw std::bad_alloc();
    return static_cast<char*>(p);
}

// A run like from with buffers of its own: every memory inside one of from's blocks moves to
// the same place in the copy's, the outputs are new, the rest (weights) stays shared.
std::unique_ptr<DnnlRun> copyOf(const DnnlRun& from, const dnnl::engine& engine) {
    auto run = std::make_unique<DnnlRun>(engine);
    for (const auto& [data, bytes] : from.blocks) {
        run->blocks.emplace_back(std::unique_ptr<char, decltype(&std::free)>(alignedBlock(bytes), &std::free), bytes);
    }
    const auto moved = [&](void* where) -> char* {
        const uintptr_t at = reinterpret_cast<uintptr_t>(where);
        for (size_t b = 0; b < from.blocks.size(); ++b) {
            const uintptr_t base = reinterpret_cast<uintptr_t>(from.blocks[b].first.get());
            if (at >= base && at < base + from.blocks[b].second) return run->blocks[b].first.get() + (at - base);
        }
        return nullptr;
    };
    for (const memory& out : from.outputs) run->outputs.push_back(memory(out.get_desc(), engine));
    const auto rebound = [&](const memory& m) {
        if (char* where = moved(m.get_data_handle())) return memory(m.get_desc(), engine, where);
        for (size_t o = 0; o < from.outputs.size(); ++o) {
            if (m.get_data_handle() == from.outputs[o].get_data_handle()) return run->outputs[o];
        }
        return m;
    };
    run->input = rebound(from.input);
    for (float* fill : from.fills) run->fills.push_back(reinterpret_cast<float*>(moved(fill)));
    for (const auto& args : from.args) {
        std::unordered_map<int, memory> copy;
        for (const auto& [arg, m] : args) copy[arg] = rebound(m);
        run->args.push_back(std::move(copy));
    }
    return run;
}

}  // namespace

struct DnnlExecutor::State {
    dnnl::engine engine{dnnl::engine::kind::cpu, 0};
    dnnl::stream stream{engine};  // the load's reorders of weights
    std::vector<dnnl::primitive> program;
    struct Fill {
        size_t before;  // the step it comes before
        size_t floats;
        float value;
    };
    std::vector<Fill> fills;
    std::vector<std::vector<int>> outputShapes;
    std::vector<int> inputShape;
    // The runs of passes: the one the builder bound, and copies of it made for passes on
    // other threads at once.
    IdlePool<DnnlRun> runs;
    const DnnlRun* pattern = nullptr;  // the builder's, in runs; its bindings never change
};

namespace {

class Builder {
public:
    // Binds the program's buffers and arguments into run.
    Builder(const OnnxGraph& graph, DnnlExecutor::State& state, DnnlRun& run) : graph_(graph), s_(state), run_(run) {}

    size_t weightBytes = 0;
    size_t fused = 0;
    double multiplyAdds = 0;  // of the convolutions and matrix products, one pass

    void input(const std::string& name, const std::vector<int>& shape, const std::vector<std::string>& outputs) {
        if (shape.size() != 4) unsupported("an input that is not 4-D");
        Dims dims;
        for (int d : shape) dims.push_back(checkedDim(d));
        if (product(dims) > kMaxElements) unsupported("an input of over 2^28 elements");
        input_ = define(name, dims, plainDesc(dims), -1);
        for (const OnnxNode& n : graph_.nodes)
            for (const std::string& in : n.inputs) ++uses_[in];
        for (const std::string& out : outputs) {
            ++uses_[out];
            requested_.insert({out, 0});
        }
        for (const OnnxNode& n : graph_.nodes)
            for (const std::string& in : n.inputs) readers_[in].push_back(&n);
    }

    void node(const OnnxNode& n) {
        switch (operatorOf(n)) {
        case Op::Conv: return conv(n);
        case Op::Relu: return activation(n, {eltwise(algorithm::eltwise_relu, 0, 0)});
        case Op::LeakyRelu: return activation(n, {eltwise(algorithm::eltwise_relu, n.floatOr("alpha", 0.01f), 0)});
        case Op::Clip: return activation(n, {eltwise(algorithm::eltwise_clip, scalar(n, 1, "min", -kInf), scalar(n, 2, "max", kInf))});
        case Op::Sigmoid: return activation(n, {eltwise(algorithm::eltwise_logistic, 0, 0)});
        case Op::HardSigmoid:
            return activation(n, {eltwise(algorithm::eltwise_linear, n.floatOr("alpha", 0.2f), n.floatOr("beta", 0.5f)),
                                  eltwise(algorithm::eltwise_clip, 0.0f, 1.0f)});
        case Op::Add: case Op::Sub: case Op::Mul: case Op::Div: return binary(n);
        case Op::Concat: return concat(n);
        case Op::ConvTranspose: return deconv(n);
        case Op::PRelu: return prelu(n);
        case Op::MaxPool: case Op::AveragePool: return pool(n);
        case Op::GlobalAveragePool: return globalAverage(n);
        case Op::Pad: return pad(n);
        case Op::Transpose: return transpose(n);
        case Op::Reshape: case Op::Flatten: return reshape(n);
        case Op::Identity: names_[n.outputs[0]] = valueId(n.inputs[0]); return;
        case Op::Softmax: return softmax(n);
        case Op::MatMul: case Op::Gemm: return fullyConnected(n);
        case Op::Resize: return resize(n);
        }
    }

    // A reorder of the value to a plain tensor of its own, which forward() copies out.
    void output(const std::string& name) {
        const int id = valueId(name);
        const Value v = values_[size_t(id)];
        if (!v.pendingPad.empty()) unsupported("an output that is a pending Pad");
        memory out(plainDesc(v.dims), s_.engine);
        Step step;
        step.primitive = dnnl::reorder(dnnl::reorder::primitive_desc(s_.engine, v.md, s_.engine, out.get_desc()));
        step.values = {{DNNL_ARG_FROM, id}};
        step.constants = {{DNNL_ARG_TO, out}};
        add(std::move(step));
        run_.outputs.push_back(out);
        s_.outputShapes.emplace_back(v.dims.begin(), v.dims.end());
    }

    // Makes the convolutions, lays the buffers out and binds every argument.
    void finish() {
        size_t scratchpad = 0;
        for (Step& step : steps_) {
            if (step.conv >= 0) makeConv(step);
            scratchpad = std::max(scratchpad, step.scratchpad);
        }
        // Liveness: a slot is busy from the first step that touches one of its values to the
        // last; the input's slot from the start.
        for (size_t i = 0; i < steps_.size(); ++i) {
            for (const auto& [arg, id] : steps_[i].values) touch(values_[size_t(id)].slot, int(i));
            if (steps_[i].fillValue >= 0) touch(values_[size_t(steps_[i].fillValue)].slot, int(i));
        }
        touch(values_[size_t(input_)].slot, 0);
        for (const Value& v : values_) {
            if (v.slot >= 0) slots_[size_t(v.slot)].bytes = std::max(slots_[size_t(v.slot)].bytes, v.md.get_size());
        }
        const std::vector<char*> where = layOut();
        std::vector<memory> memories;
        for (const Value& v : values_) memories.push_back(v.slot >= 0 ? memory(v.md, s_.engine, where[size_t(v.slot)]) : memory());
        run_.input = memories[size_t(input_)];
        memory scratch;
        if (scratchpad > 0) {
            char* p = allocate(scratchpad);
            scratch = memory(memory::desc({int64_t(scratchpad)}, memory::data_type::u8, Tag::a), s_.engine, p);
        }
        for (const Step& step : steps_) {
            if (step.fillValue >= 0) {
                const Value& v = values_[size_t(step.fillValue)];
                s_.fills.push_back({s_.program.size(), v.md.get_size() / sizeof(float), step.fill});
                run_.fills.push_back(reinterpret_cast<float*>(where[size_t(v.slot)]));
                continue;
            }
            std::unordered_map<int, memory> args;
            for (const auto& [arg, id] : step.values) args[arg] = memories[size_t(id)];
            for (const auto& [arg, m] : step.constants) args[arg] = m;
            if (step.scratchpad > 0) args[DNNL_ARG_SCRATCHPAD] = scratch;
            s_.program.push_back(step.primitive);
            run_.args.push_back(std::move(args));
        }
    }

    size_t bufferBytes = 0;

private:
    int define(const std::string& name, const Dims& dims, const memory::desc& md, int producer, int slot = -1) {
        int64_t total = 1;
        for (int64_t d : dims) {
            checkedDim(d);
            total *= d;
            if (total > kMaxElements) unsupported("a tensor of over 2^28 elements");
        }
        Value v;
        v.dims = dims;
        v.md = md;
        v.producer = producer;
        if (slot < 0) {
            slot = int(slots_.size());
            slots_.emplace_back();
        }
        v.slot = slot;
        ++slots_[size_t(slot)].values;
        values_.push_back(v);
        const int id = int(values_.size() - 1);
        if (!name.empty()) names_[name] = id;
        return id;
    }

    int valueId(const std::string& name) const {
        const auto it = names_.find(name);
        if (it == names_.end()) unsupported("\"" + name + "\" that is not computed before it is read");
        return it->second;
    }

    // A value that a step reads: a pending Pad is for convolutions only.
    int readable(const OnnxNode& n, size_t input) const {
        const int id = valueId(n.inputs[input]);
        if (!values_[size_t(id)].pendingPad.empty()) unsupported(n.op + " after a Pad");
        return id;
    }

    const OnnxTensor* constant(const std::string& name) const { return onnx::findConstant(graph_, name); }
    const OnnxTensor& floats(const std::string& name) const { return onnx::floatConstant(graph_, name); }
    const std::vector<int64_t>& ints(const std::string& name) const { return onnx::intConstant(graph_, name); }

    float scalar(const OnnxNode& n, size_t input, const std::string& attribute, float fallback) const {
        if (n.inputs.size() > input && !n.inputs[input].empty()) {
            const OnnxTensor& t = floats(n.inputs[input]);
            if (t.floats.size() != 1) unsupported(n.op + " bound that is not a scalar");
            return t.floats[0];
        }
        return n.floatOr(attribute, fallback);
    }


    // A copy of the weights (or other constant) into a memory of oneDNN's own.
    memory constantMemory(const std::vector<float>& data, const memory::desc& md) {
        memory m(md, s_.engine);
        std::memcpy(m.get_data_handle(), data.data(), std::min(md.get_size(), data.size() * sizeof(float)));
        weightBytes += md.get_size();
        return m;
    }

    // The memory in md's layout of data laid out plainly.
    memory reordered(memory plain, const memory::desc& md) {
        weightBytes += md.get_size();
        if (plain.get_desc() == md) return plain;
        memory m(md, s_.engine);
        dnnl::reorder(plain, m).execute(s_.stream, plain, m);
        s_.stream.wait();
        return m;
    }

    int add(Step step) {
        steps_.push_back(std::move(step));
        return int(steps_.size() - 1);
    }

    template <typename PrimitiveDesc>
    static size_t scratchpadOf(const PrimitiveDesc& pd) {
        return pd.scratchpad_desc().get_size();
    }

    // The descriptor make() returns, or a refusal naming what oneDNN refused.
    template <typename Make>
    static auto refusable(const char* what, Make make) -> decltype(make()) {
        try {
            return make();
        } catch (const dnnl::error& e) {
            unsupported(std::string(what) + " refused by oneDNN: " + e.what());
        }
    }

    // Adds the step running the primitive of pd on the sources (argument, value) and the
    // constants, writing a new value name of dims in pd's destination layout; returns it.
    template <typename Primitive, typename PrimitiveDesc>
    int addStep(const PrimitiveDesc& pd, const std::string& name, const Dims& dims, std::vector<std::pair<int, int>> sources,
                std::vector<std::pair<int, memory>> constants = {}) {
        Step step;
        step.primitive = Primitive(pd);
        step.scratchpad = scratchpadOf(pd);
        const int out = define(name, dims, pd.dst_desc(), int(steps_.size()));
        step.values = std::move(sources);
        step.values.push_back({DNNL_ARG_DST, out});
        step.constants = std::move(constants);
        add(std::move(step));
        return out;
    }

    // The value in layout md: itself, or a reorder of it.
    int inLayout(int id, memory::desc md) {
        if (values_[size_t(id)].md == md) return id;
        const Dims dims = values_[size_t(id)].dims;
        Step step;
        dnnl::reorder::primitive_desc pd(s_.engine, values_[size_t(id)].md, s_.engine, md, userScratchpad());
        step.primitive = dnnl::reorder(pd);
        step.scratchpad = scratchpadOf(pd);
        const int out = define("", dims, md, int(steps_.size()));
        step.values = {{DNNL_ARG_FROM, id}, {DNNL_ARG_TO, out}};
        add(std::move(step));
        return out;
    }

    int plain(int id) { return inLayout(id, plainDesc(values_[size_t(id)].dims)); }

    // Only reader of name, when it has one and the caller does not read it.
    bool soleReader(const std::string& name) const {
        const auto u = uses_.find(name);
        return u != uses_.end() && u->second == 1 && requested_.count(name) == 0;
    }

    bool fusable(int id, const std::string& name) const {
        const Value& v = values_[size_t(id)];
        return soleReader(name) && v.producer >= 0 && steps_[size_t(v.producer)].conv >= 0 &&
               slots_[size_t(v.slot)].values == 1;
    }

    // The convolution again with its post-ops and the given destination layout; false (the
    // former kept) when oneDNN has no implementation of it.
    bool remakeConv(ConvSpec& spec, const memory::desc& dst) {
        try {
            // oneDNN's reference code, its fallback, is many times slower than the unfused.
            if (std::string(convPd(spec, dst).impl_info_str()).compare(0, 4, "ref:") == 0) return false;
        } catch (const dnnl::error&) {
            return false;
        }
        spec.dst = dst;
        return true;
    }

    dnnl::convolution_forward::primitive_desc convPd(const ConvSpec& spec, const memory::desc& dst) const {
        dnnl::post_ops ops;
        for (const PostOp& p : spec.postOps) {
            if (p.sum) ops.append_sum(1.0f);
            else if (p.slopes) ops.append_prelu(1 << 1);
            else ops.append_eltwise(1.0f, p.alg, p.alpha, p.beta);
        }
        dnnl::primitive_attr attr = userScratchpad();
        attr.set_post_ops(ops);
        dnnl::convolution_forward::desc d(kInference, algorithm::convolution_direct, spec.src, spec.weights, spec.bias, dst,
                                          spec.strides, spec.dilations, spec.padL, spec.padR);
        return dnnl::convolution_forward::primitive_desc(d, attr, s_.engine);
    }

    void makeConv(Step& step) {
        const ConvSpec& spec = convs_[size_t(step.conv)];
        const auto pd = convPd(spec, spec.dst);
        step.primitive = dnnl::convolution_forward(pd);
        step.scratchpad = scratchpadOf(pd);
        step.constants = {{DNNL_ARG_WEIGHTS, reordered(spec.plainWeights, pd.weights_desc())}, {DNNL_ARG_BIAS, spec.biasMemory}};
        weightBytes += spec.biasMemory.get_desc().get_size();
        for (size_t i = 0; i < spec.postOps.size(); ++i) {
            const PostOp& p = spec.postOps[i];
            if (p.slopes) step.constants.push_back({DNNL_ARG_ATTR_MULTIPLE_POST_OP(int(i)) | DNNL_ARG_WEIGHTS, p.slopes});
        }
    }

    void conv(const OnnxNode& n) {
        if (n.inputs.size() < 2) unsupported("Conv without weights");
        const int inId = valueId(n.inputs[0]);
        const Value in = values_[size_t(inId)];
        if (in.dims.size() != 4) unsupported("Conv of a tensor that is not an image");
        const OnnxTensor& w = floats(n.inputs[1]);
        if (w.dims.size() != 4) unsupported("Conv weights that are not 4-D");
        onnx::requireExplicitPadding(n);
        const int64_t o = checkedDim(w.dims[0]), ig = checkedDim(w.dims[1]), kh = checkedDim(w.dims[2]), kw = checkedDim(w.dims[3]);
        const int64_t group = n.intOr("group", 1);
        if (group <= 0 || group > kMaxDim) unsupported("Conv group " + std::to_string(group));
        const int64_t c = in.dims[1];
        if (c % group != 0 || ig != c / group || o % group != 0) unsupported("Conv weights that do not fit its input");
        if (product(w.dims) != int64_t(w.floats.size())) unsupported("Conv weights of another size than their shape");
        const std::vector<int64_t> kernel = onnx::attributeInts(n, "kernel_shape", 2, kh, 1);
        if (kernel[0] != kh || kernel[1] != kw) unsupported("Conv kernel_shape other than its weights'");
        const std::vector<int64_t> strides = onnx::attributeInts(n, "strides", 2, 1, 1), dilations = onnx::attributeInts(n, "dilations", 2, 1, 1);
        std::vector<int64_t> pads = onnx::attributeInts(n, "pads", 4, 0, 0);  // top, left, bottom, right
        if (!in.pendingPad.empty())
            for (size_t i = 0; i < 4; ++i) pads[i] += in.pendingPad[i];
        std::vector<float> bias(size_t(o), 0.0f);
        if (n.inputs.size() > 2 && !n.inputs[2].empty()) {
            const OnnxTensor& b = floats(n.inputs[2]);
            if (int64_t(b.floats.size()) != o) unsupported("Conv bias of another size than its outputs");
            bias = b.floats;
        }
        const int64_t oh = onnx::windowOutput<int64_t>(in.dims[2], pads[0], pads[2], kh, strides[0], dilations[0]);
        const int64_t ow = onnx::windowOutput<int64_t>(in.dims[3], pads[1], pads[3], kw, strides[1], dilations[1]);
        const Dims outDims{in.dims[0], o, oh, ow};
        multiplyAdds += double(product(outDims)) * double(ig * kh * kw);
        ConvSpec spec;
        spec.strides = {strides[0], strides[1]};
        spec.dilations = {dilations[0] - 1, dilations[1] - 1};
        spec.padL = {pads[0], pads[1]};
        spec.padR = {pads[2], pads[3]};
        const Dims weightDims = group == 1 ? Dims{o, ig, kh, kw} : Dims{group, o / group, ig, kh, kw};
        spec.src = anyDesc(in.dims);
        spec.weights = anyDesc(weightDims);
        spec.bias = plainDesc({o});
        spec.dst = anyDesc(outDims);
        // Weights in ONNX's O x I x KH x KW are oneDNN's plain layout, grouped or not.
        spec.plainWeights = memory(plainDesc(weightDims), s_.engine);
        std::memcpy(spec.plainWeights.get_data_handle(), w.floats.data(), w.floats.size() * sizeof(float));
        spec.biasMemory = memory(plainDesc({o}), s_.engine);
        std::memcpy(spec.biasMemory.get_data_handle(), bias.data(), bias.size() * sizeof(float));
        const auto pd = refusable("Conv", [&] { return convPd(spec, spec.dst); });
        spec.src = pd.src_desc();
        spec.weights = pd.weights_desc();
        spec.dst = pd.dst_desc();
        const int src = inLayout(inId, spec.src);
        convs_.push_back(std::move(spec));
        Step step;
        step.conv = int(convs_.size() - 1);
        const int out = define(n.outputs[0], outDims, convs_.back().dst, int(steps_.size()));
        step.values = {{DNNL_ARG_SRC, src}, {DNNL_ARG_DST, out}};
        add(std::move(step));
    }

    // Fused into the convolution before it where that has no other reader, else eltwise steps.
    void activation(const OnnxNode& n, const Activation& ops) {
        const int inId = readable(n, 0);
        if (fusable(inId, n.inputs[0])) {
            Step& step = steps_[size_t(values_[size_t(inId)].producer)];
            ConvSpec& spec = convs_[size_t(step.conv)];
            const std::vector<PostOp> before = spec.postOps;
            spec.postOps.insert(spec.postOps.end(), ops.begin(), ops.end());
            if (remakeConv(spec, spec.dst)) {
                names_[n.outputs[0]] = inId;
                ++fused;
                return;
            }
            spec.postOps = before;
        }
        int id = inId;
        for (size_t i = 0; i < ops.size(); ++i) {
            const Value& v = values_[size_t(id)];
            dnnl::eltwise_forward::desc d(kInference, ops[i].alg, v.md, ops[i].alpha, ops[i].beta);
            const dnnl::eltwise_forward::primitive_desc pd(d, userScratchpad(), s_.engine);
            const Dims dims = v.dims;
            id = addStep<dnnl::eltwise_forward>(pd, i + 1 == ops.size() ? n.outputs[0] : "", dims, {{DNNL_ARG_SRC, id}});
        }
    }

    // A constant operand as a plain tensor of rank rank (ones put before its dims).
    memory constantOperand(const OnnxTensor& t, size_t rank, Dims& dims) {
        dims.clear();
        for (int64_t d : t.dims) dims.push_back(checkedDim(d));
        if (dims.size() > rank) unsupported("a constant operand of higher rank");
        dims.insert(dims.begin(), rank - dims.size(), 1);
        if (product(dims) != int64_t(t.floats.size())) unsupported("a constant of another size than its shape");
        return constantMemory(t.floats, plainDesc(dims));
    }

    void binary(const OnnxNode& n) {
        if (n.inputs.size() != 2) unsupported(n.op + " of " + std::to_string(n.inputs.size()) + " operands");
        const OnnxTensor* c0 = constant(n.inputs[0]);
        const OnnxTensor* c1 = constant(n.inputs[1]);
        if ((c0 != nullptr && c1 != nullptr) || (c0 != nullptr && !c0->isFloat) || (c1 != nullptr && !c1->isFloat)) {
            unsupported(n.op + " of constants");
        }
        const algorithm alg = n.op == "Add"   ? algorithm::binary_add
                              : n.op == "Sub" ? algorithm::binary_sub
                              : n.op == "Mul" ? algorithm::binary_mul
                                              : algorithm::binary_div;
        const bool commutes = n.op == "Add" || n.op == "Mul";
        if (c0 == nullptr && c1 == nullptr) {
            int a = readable(n, 0), b = readable(n, 1);
            std::string nameA = n.inputs[0], nameB = n.inputs[1];
            if (n.op == "Add" && a != b && residual(n, a, nameA, b, nameB)) return;
            if (n.op == "Add" && a != b && residual(n, b, nameB, a, nameA)) return;
            const Dims dims = broadcast(values_[size_t(a)].dims, values_[size_t(b)].dims);
            if (values_[size_t(a)].dims != dims) {
                if (!commutes) unsupported(n.op + " whose first operand is broadcast");
                std::swap(a, b);
            }
            if (values_[size_t(a)].dims.size() != values_[size_t(b)].dims.size()) unsupported(n.op + " of tensors of other ranks");
            // Operands of one shape in one layout; a broadcast one as it is, or plain.
            if (values_[size_t(b)].dims == dims) b = inLayout(b, values_[size_t(a)].md);
            binaryStep(n.outputs[0], alg, a, {{DNNL_ARG_SRC_1, b}}, values_[size_t(b)].md, {});
            return;
        }
        const bool constantFirst = c0 != nullptr;
        const int x = readable(n, constantFirst ? 1 : 0);
        const OnnxTensor& t = constantFirst ? *c0 : *c1;
        const Dims xDims = values_[size_t(x)].dims;
        if (constantFirst && !commutes) {
            // c - x as (-x) + c; c / x is not taken.
            if (n.op != "Sub") unsupported(n.op + " of a constant by a tensor");
            if (t.floats.size() == 1) {
                eltwiseStep(n.outputs[0], x, algorithm::eltwise_linear, -1.0f, t.floats[0]);
                return;
            }
            const int negated = eltwiseStep("", x, algorithm::eltwise_linear, -1.0f, 0.0f);
            Dims dims;
            memory m = constantOperand(t, xDims.size(), dims);
            if (broadcast(xDims, dims) != xDims) unsupported(n.op + " that broadcasts its tensor");
            binaryStep(n.outputs[0], algorithm::binary_add, negated, {}, m.get_desc(), {{DNNL_ARG_SRC_1, m}});
            return;
        }
        if (t.floats.size() == 1 && n.op != "Div") {
            // x + c, x - c and x c as one linear step, exact as the binary's one rounding.
            const float v = t.floats[0];
            if (n.op == "Mul") eltwiseStep(n.outputs[0], x, algorithm::eltwise_linear, v, 0.0f);
            else eltwiseStep(n.outputs[0], x, algorithm::eltwise_linear, 1.0f, n.op == "Add" ? v : -v);
            return;
        }
        Dims dims;
        memory m = constantOperand(t, xDims.size(), dims);
        if (broadcast(xDims, dims) != xDims) unsupported(n.op + " that broadcasts its tensor");
        binaryStep(n.outputs[0], alg, x, {}, m.get_desc(), {{DNNL_ARG_SRC_1, m}});
    }

    // x + conv(...) with x computed before the convolution and read by nothing else: the
    // convolution adds its result to x in x's buffer (a sum post-op).
    bool residual(const OnnxNode& n, int convOut, const std::string& convName, int other, const std::string& otherName) {
        // (A binary post-op would take an x read again later, but oneDNN 2.6's convolutions
        // have no implementation of one without broadcast but their reference code.)
        if (!fusable(convOut, convName)) return false;
        const Value& x = values_[size_t(other)];
        const Value& c = values_[size_t(convOut)];
        const int convStep = c.producer;
        if (x.producer < 0 || x.producer >= convStep || x.dims != c.dims || slots_[size_t(x.slot)].values != 1) return false;
        if (!readBefore(otherName, x.slot, convStep, n)) return false;
        ConvSpec& spec = convs_[size_t(steps_[size_t(convStep)].conv)];
        const std::vector<PostOp> before = spec.postOps;
        spec.postOps.push_back(sumPostOp());
        if (!remakeConv(spec, x.md)) {
            spec.postOps = before;
            return false;
        }
        // The convolution now writes its result over x, which nothing reads after: the
        // result takes x's buffer, whose liveness then runs from x's step to the convolution.
        Value& result = values_[size_t(convOut)];
        --slots_[size_t(result.slot)].values;
        result.slot = x.slot;
        result.md = x.md;
        names_[n.outputs[0]] = convOut;
        ++fused;
        return true;
    }

    // Whether the value of name (in slot) is read by no step from convStep on, and by no node
    // after add: its other readers, convolutions (which make values of their own), come
    // before add in the graph and their steps before convStep. A residual block's input,
    // read by the block's first convolution and by the addition at its end, is such a value.
    bool readBefore(const std::string& name, int slot, int convStep, const OnnxNode& add) const {
        if (requested_.count(name) != 0) return false;
        const auto readers = readers_.find(name);
        if (readers == readers_.end()) return false;
        for (const OnnxNode* r : readers->second) {
            if (r == &add) continue;
            if (r > &add || r->op != "Conv") return false;
        }
        for (size_t i = size_t(convStep); i < steps_.size(); ++i) {
            for (const auto& [arg, id] : steps_[i].values) {
                if (values_[size_t(id)].slot == slot) return false;
            }
            if (steps_[i].fillValue >= 0 && values_[size_t(steps_[i].fillValue)].slot == slot) return false;
        }
        return true;
    }

    int eltwiseStep(const std::string& name, int in, algorithm alg, float alpha, float beta) {
        const Value v = values_[size_t(in)];
        dnnl::eltwise_forward::desc d(kInference, alg, v.md, alpha, beta);
        const dnnl::eltwise_forward::primitive_desc pd(d, userScratchpad(), s_.engine);
        return addStep<dnnl::eltwise_forward>(pd, name, v.dims, {{DNNL_ARG_SRC, in}});
    }

    void binaryStep(const std::string& name, algorithm alg, int a, std::vector<std::pair<int, int>> values, const memory::desc& md1,
                    std::vector<std::pair<int, memory>> constants) {
        const Value v = values_[size_t(a)];
        const auto pd = refusable("a binary operation", [&] {
            return dnnl::binary::primitive_desc(dnnl::binary::desc(alg, v.md, md1, v.md), userScratchpad(), s_.engine);
        });
        values.insert(values.begin(), {DNNL_ARG_SRC_0, a});
        addStep<dnnl::binary>(pd, name, v.dims, std::move(values), std::move(constants));
    }

    void prelu(const OnnxNode& n) {
        if (n.inputs.size() < 2) unsupported("PRelu without slopes");
        const int in = readable(n, 0);
        const Value v = values_[size_t(in)];
        if (v.dims.size() != 4) unsupported("PRelu of a tensor that is not an image");
        std::vector<float> slope = floats(n.inputs[1]).floats;
        const int64_t c = v.dims[1];
        if (slope.size() == 1) slope.assign(size_t(c), slope[0]);
        if (int64_t(slope.size()) != c) unsupported("PRelu slopes other than one per channel");
        const Dims wDims{1, c, 1, 1};
        if (fusable(in, n.inputs[0])) {
            ConvSpec& spec = convs_[size_t(steps_[size_t(v.producer)].conv)];
            PostOp prelu;  // PRelu: a binary post-op by the per-channel slopes
            prelu.slopes = constantMemory(slope, plainDesc(wDims));
            spec.postOps.push_back(prelu);
            if (remakeConv(spec, spec.dst)) {
                names_[n.outputs[0]] = in;
                ++fused;
                return;
            }
            weightBytes -= spec.postOps.back().slopes.get_desc().get_size();
            spec.postOps.pop_back();
        }
        dnnl::prelu_forward::desc d(kInference, v.md, anyDesc(wDims));
        const dnnl::prelu_forward::primitive_desc pd(d, userScratchpad(), s_.engine);
        memory plainSlopes(plainDesc(wDims), s_.engine);
        std::memcpy(plainSlopes.get_data_handle(), slope.data(), slope.size() * sizeof(float));
        addStep<dnnl::prelu_forward>(pd, n.outputs[0], v.dims, {{DNNL_ARG_SRC, in}}, {{DNNL_ARG_WEIGHTS, reordered(plainSlopes, pd.weights_desc())}});
    }

    void poolStep(const std::string& name, int in, algorithm alg, const Dims& kernel, const Dims& strides, const Dims& padL,
                  const Dims& padR, const Dims& dilations, const Dims& outDims) {
        const Value v = values_[size_t(in)];
        const auto pd = refusable("pooling", [&] {
            const dnnl::pooling_v2_forward::desc d(kInference, alg, v.md, anyDesc(outDims), strides, kernel, dilations, padL, padR);
            return dnnl::pooling_v2_forward::primitive_desc(d, userScratchpad(), s_.engine);
        });
        addStep<dnnl::pooling_v2_forward>(pd, name, outDims, {{DNNL_ARG_SRC, in}});
    }

    void pool(const OnnxNode& n) {
        const int in = readable(n, 0);
        const Dims dims = values_[size_t(in)].dims;
        if (dims.size() != 4) unsupported(n.op + " of a tensor that is not an image");
        onnx::requireExplicitPadding(n);
        if (n.intOr("ceil_mode", 0) != 0 || n.intOr("storage_order", 0) != 0) unsupported(n.op + " with ceil_mode or storage_order");
        const std::vector<int64_t> kernel = onnx::attributeInts(n, "kernel_shape", 2, 0, 1), strides = onnx::attributeInts(n, "strides", 2, 1, 1);
        const std::vector<int64_t> pads = onnx::attributeInts(n, "pads", 4, 0, 0), dilations = onnx::attributeInts(n, "dilations", 2, 1, 1);
        const bool average = n.op == "AveragePool";
        if (average && dilations != std::vector<int64_t>{1, 1}) unsupported("AveragePool with dilation");
        const algorithm alg = !average                            ? algorithm::pooling_max
                              : n.intOr("count_include_pad", 0) ? algorithm::pooling_avg_include_padding
                                                                : algorithm::pooling_avg_exclude_padding;
        const int64_t oh = onnx::windowOutput<int64_t>(dims[2], pads[0], pads[2], kernel[0], strides[0], dilations[0]);
        const int64_t ow = onnx::windowOutput<int64_t>(dims[3], pads[1], pads[3], kernel[1], strides[1], dilations[1]);
        poolStep(n.outputs[0], in, alg, {kernel[0], kernel[1]}, {strides[0], strides[1]}, {pads[0], pads[1]}, {pads[2], pads[3]},
                 {dilations[0] - 1, dilations[1] - 1}, {dims[0], dims[1], oh, ow});
    }

    void globalAverage(const OnnxNode& n) {
        const int in = readable(n, 0);
        const Dims dims = values_[size_t(in)].dims;
        if (dims.size() != 4) unsupported(n.op + " of a tensor that is not an image");
        poolStep(n.outputs[0], in, algorithm::pooling_avg_exclude_padding, {dims[2], dims[3]}, {1, 1}, {0, 0}, {0, 0}, {0, 0},
                 {dims[0], dims[1], 1, 1});
    }

    // A zero Pad of the spatial axes read by convolutions only is taken into their padding;
    // any other, as a fill of the output and a copy of the input into its middle.
    void pad(const OnnxNode& n) {
        const int in = readable(n, 0);
        const Value v = values_[size_t(in)];
        if (n.textOr("mode", "constant") != "constant") unsupported("Pad mode " + n.textOr("mode", ""));
        const std::vector<int64_t> pads = n.inputs.size() > 1 && !n.inputs[1].empty() ? ints(n.inputs[1]) : n.intsOr("pads", {});
        const size_t rank = v.dims.size();
        if (pads.size() != 2 * rank) unsupported("Pad with pads of another rank");
        const float fill = scalar(n, 2, "value", 0.0f);
        Dims dims(rank), offsets(rank);
        for (size_t i = 0; i < rank; ++i) {
            if (pads[i] < 0 || pads[rank + i] < 0 || pads[i] > kMaxDim || pads[rank + i] > kMaxDim) unsupported("Pad with negative or huge pads");
            dims[i] = v.dims[i] + pads[i] + pads[rank + i];
            offsets[i] = pads[i];
        }
        bool convsOnly = fill == 0.0f && rank == 4 && pads[0] == 0 && pads[1] == 0 && pads[4] == 0 && pads[5] == 0 &&
                         requested_.count(n.outputs[0]) == 0;
        const auto readers = readers_.find(n.outputs[0]);
        if (readers == readers_.end()) convsOnly = false;
        else
            for (const OnnxNode* r : readers->second) convsOnly = convsOnly && r->op == "Conv" && r->inputs[0] == n.outputs[0];
        if (convsOnly) {
            Value padded = v;
            padded.pendingPad = {pads[2], pads[3], pads[6], pads[7]};
            values_.push_back(padded);
            ++slots_[size_t(padded.slot)].values;
            names_[n.outputs[0]] = int(values_.size() - 1);
            return;
        }
        // In the input's layout where the middle is a view there (whole channel blocks).
        memory::desc outMd = likeDesc(dims, v.md);
        memory::desc middle;
        try {
            middle = outMd.submemory_desc(v.dims, offsets);
        } catch (const dnnl::error&) {
            outMd = plainDesc(dims);
            middle = outMd.submemory_desc(v.dims, offsets);
        }
        const int out = define(n.outputs[0], dims, outMd, int(steps_.size()));
        Step fillStep;
        fillStep.fillValue = out;
        fillStep.fill = fill;
        add(std::move(fillStep));
        // The middle: a view of the output's buffer.
        const int view = define("", v.dims, middle, int(steps_.size()), values_[size_t(out)].slot);
        Step copy;
        dnnl::reorder::primitive_desc pd(s_.engine, v.md, s_.engine, middle, userScratchpad());
        copy.primitive = dnnl::reorder(pd);
        copy.scratchpad = scratchpadOf(pd);
        copy.values = {{DNNL_ARG_FROM, in}, {DNNL_ARG_TO, view}};
        add(std::move(copy));
    }

    void transpose(const OnnxNode& n) {
        const int in = readable(n, 0);
        const Value v = values_[size_t(in)];
        const size_t rank = v.dims.size();
        std::vector<int64_t> perm = n.intsOr("perm", {});
        if (perm.empty())
            for (size_t i = 0; i < rank; ++i) perm.insert(perm.begin(), int64_t(i));
        if (perm.size() != rank) unsupported("Transpose perm of another rank");
        // Axis perm[j] of the input is axis j of the output.
        std::vector<int> moves(rank, -1);
        Dims dims(rank);
        for (size_t j = 0; j < rank; ++j) {
            if (perm[j] < 0 || size_t(perm[j]) >= rank || moves[size_t(perm[j])] >= 0) unsupported("Transpose perm that is no permutation");
            moves[size_t(perm[j])] = int(j);
            dims[j] = v.dims[size_t(perm[j])];
        }
        const memory::desc permuted = refusable("Transpose", [&] { return v.md.permute_axes(moves); });
        const int view = define("", dims, permuted, v.producer, v.slot);
        names_[n.outputs[0]] = plain(view);
    }

    void reshape(const OnnxNode& n) {
        const int in = readable(n, 0);
        const Dims inDims = values_[size_t(in)].dims;
        const int64_t total = product(inDims);
        Dims dims;
        if (n.op == "Flatten") {
            int64_t axis = n.intOr("axis", 1);
            if (axis < 0) axis += int64_t(inDims.size());
            if (axis < 0 || size_t(axis) > inDims.size()) unsupported("Flatten axis");
            const int64_t head = product(Dims(inDims.begin(), inDims.begin() + axis));
            dims = {head, total / head};
        } else {
            if (n.inputs.size() < 2) unsupported("Reshape without a shape");
            const std::vector<int64_t>& shape = ints(n.inputs[1]);
            if (shape.empty() || shape.size() > 6) unsupported("Reshape to rank " + std::to_string(shape.size()));
            int64_t known = 1;
            size_t infer = shape.size();
            for (size_t i = 0; i < shape.size(); ++i) {
                int64_t d;
                if (shape[i] == -1 && infer == shape.size()) {
                    infer = i;
                    d = 1;
                } else if (shape[i] == 0 && i < inDims.size()) {
                    d = inDims[i];
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
        const int flat = plain(in);
        const Value& p = values_[size_t(flat)];
        define(n.outputs[0], dims, plainDesc(dims), p.producer, p.slot);
    }

    void softmax(const OnnxNode& n) {
        const int in = readable(n, 0);
        const Value v = values_[size_t(in)];
        const int64_t rank = int64_t(v.dims.size());
        int64_t axis = n.intOr("axis", -1);
        if (axis < 0) axis += rank;
        if (axis < 0 || axis >= rank) unsupported("Softmax axis");
        // Before opset 13 Softmax runs over all axes from axis on; alike when those are one.
        for (int64_t i = axis + 1; i < rank; ++i) {
            if (v.dims[size_t(i)] != 1) unsupported("Softmax over more than its last axis");
        }
        dnnl::softmax_forward::desc d(kInference, v.md, int(axis));
        const dnnl::softmax_forward::primitive_desc pd(d, userScratchpad(), s_.engine);
        addStep<dnnl::softmax_forward>(pd, n.outputs[0], v.dims, {{DNNL_ARG_SRC, in}});
    }

    void fullyConnected(const OnnxNode& n) {
        if (n.inputs.size() < 2) unsupported(n.op + " without weights");
        int in = readable(n, 0);
        const Dims inDims = values_[size_t(in)].dims;
        if (inDims.size() != 2) unsupported(n.op + " of other than a matrix");
        const OnnxTensor& b = floats(n.inputs[1]);
        const bool gemm = n.op == "Gemm";
        const bool transB = gemm && n.intOr("transB", 0) != 0;
        if (gemm && n.intOr("transA", 0) != 0) unsupported("Gemm with transA");
        if (b.dims.size() != 2) unsupported(n.op + " weights that are not a matrix");
        const int64_t rows = checkedDim(b.dims[0]), cols = checkedDim(b.dims[1]);
        if (rows * cols != int64_t(b.floats.size())) unsupported(n.op + " weights of another size than their shape");
        const int64_t k = inDims[1], m = transB ? rows : cols;
        if ((transB ? cols : rows) != k) unsupported(n.op + " weights that do not fit its input");
        const float alpha = gemm ? n.floatOr("alpha", 1.0f) : 1.0f, beta = gemm ? n.floatOr("beta", 1.0f) : 1.0f;
        std::vector<float> filter(size_t(m * k));  // M x K
        for (int64_t i = 0; i < m; ++i)
            for (int64_t j = 0; j < k; ++j) filter[size_t(i * k + j)] = alpha * (transB ? b.floats[size_t(i * k + j)] : b.floats[size_t(j * m + i)]);
        std::vector<float> bias(size_t(m), 0.0f);
        if (gemm && n.inputs.size() > 2 && !n.inputs[2].empty()) {
            const OnnxTensor& c = floats(n.inputs[2]);
            if (int64_t(c.floats.size()) != m && c.floats.size() != 1) unsupported("Gemm bias other than one per output");
            for (int64_t i = 0; i < m; ++i) bias[size_t(i)] = beta * c.floats[c.floats.size() == 1 ? 0 : size_t(i)];
        }
        in = plain(in);
        const Dims outDims{inDims[0], m};
        multiplyAdds += double(inDims[0] * m) * double(k);
        dnnl::inner_product_forward::desc d(kInference, values_[size_t(in)].md, anyDesc({m, k}), plainDesc({m}), plainDesc(outDims));
        const dnnl::inner_product_forward::primitive_desc pd(d, userScratchpad(), s_.engine);
        memory plainFilter(plainDesc({m, k}), s_.engine);
        std::memcpy(plainFilter.get_data_handle(), filter.data(), filter.size() * sizeof(float));
        addStep<dnnl::inner_product_forward>(
            pd, n.outputs[0], outDims, {{DNNL_ARG_SRC, in}},
            {{DNNL_ARG_WEIGHTS, reordered(plainFilter, pd.weights_desc())}, {DNNL_ARG_BIAS, constantMemory(bias, plainDesc({m}))}});
    }

    // Bilinear resizing with half-pixel centres, oneDNN's only mapping, to a whole multiple
    // or a given size.
    void resize(const OnnxNode& n) {
        const int in = readable(n, 0);
        const Value v = values_[size_t(in)];
        if (v.dims.size() != 4) unsupported("Resize of a tensor that is not an image");
        if (n.textOr("mode", "nearest") != "linear") unsupported("Resize mode " + n.textOr("mode", "nearest"));
        const std::string transform = n.textOr("coordinate_transformation_mode", "half_pixel");
        if (transform != "half_pixel" && transform != "pytorch_half_pixel") unsupported("Resize coordinate_transformation_mode " + transform);
        int64_t h = 0, w = 0;
        if (n.inputs.size() > 3 && !n.inputs[3].empty()) {
            const std::vector<int64_t>& sizes = ints(n.inputs[3]);
            if (sizes.size() != 4 || sizes[0] != v.dims[0] || sizes[1] != v.dims[1]) unsupported("Resize sizes");
            h = checkedDim(sizes[2]), w = checkedDim(sizes[3]);
        } else if (n.inputs.size() > 2 && !n.inputs[2].empty()) {
            const std::vector<float>& scales = floats(n.inputs[2]).floats;
            const auto fair = [](float f) { return f > 0 && f <= float(kMaxDim); };  // also false for NaN
            if (scales.size() != 4 || scales[0] != 1.0f || scales[1] != 1.0f || !fair(scales[2]) || !fair(scales[3])) unsupported("Resize scales");
            h = checkedDim(int64_t(double(v.dims[2]) * scales[2])), w = checkedDim(int64_t(double(v.dims[3]) * scales[3]));
            // oneDNN maps by the ratio of the sizes, ONNX by the scale: alike when whole.
            if (double(h) != double(v.dims[2]) * scales[2] || double(w) != double(v.dims[3]) * scales[3]) unsupported("Resize to a fractional size");
        } else {
            unsupported("Resize without sizes or scales");
        }
        if (transform == "pytorch_half_pixel" && (h == 1 || w == 1)) unsupported("Resize to one pixel");
        const Dims outDims{v.dims[0], v.dims[1], h, w};
        const auto pd = refusable("Resize", [&] {
            const dnnl::resampling_forward::desc d(kInference, algorithm::resampling_linear, v.md, anyDesc(outDims));
            return dnnl::resampling_forward::primitive_desc(d, userScratchpad(), s_.engine);
        });
        addStep<dnnl::resampling_forward>(pd, n.outputs[0], outDims, {{DNNL_ARG_SRC, in}});
    }

    void concat(const OnnxNode& n) {
        std::vector<int> parts;
        for (size_t i = 0; i < n.inputs.size(); ++i) parts.push_back(readable(n, i));
        const Dims first = values_[size_t(parts[0])].dims;
        const size_t rank = first.size();
        int64_t axis = n.intOr("axis", 0);
        if (axis < 0) axis += int64_t(rank);
        if (axis < 0 || size_t(axis) >= rank) unsupported("Concat axis");
        Dims dims = first;
        dims[size_t(axis)] = 0;
        std::vector<memory::desc> mds;
        for (int p : parts) {
            const Dims& d = values_[size_t(p)].dims;
            if (d.size() != rank) unsupported("Concat of tensors of other ranks");
            for (size_t i = 0; i < rank; ++i) {
                if (i != size_t(axis) && d[i] != first[i]) unsupported("Concat of tensors of other shapes");
            }
            dims[size_t(axis)] += d[size_t(axis)];
            mds.push_back(values_[size_t(p)].md);
        }
        if (parts.size() == 1) {
            names_[n.outputs[0]] = parts[0];
            return;
        }
        const auto pd = refusable("Concat", [&] { return dnnl::concat::primitive_desc(int(axis), mds, s_.engine, userScratchpad()); });
        std::vector<std::pair<int, int>> sources;
        for (size_t i = 0; i < parts.size(); ++i) sources.push_back({DNNL_ARG_MULTIPLE_SRC + int(i), parts[i]});
        addStep<dnnl::concat>(pd, n.outputs[0], dims, std::move(sources));
    }

    void deconv(const OnnxNode& n) {
        if (n.inputs.size() < 2) unsupported("ConvTranspose without weights");
        const int in = readable(n, 0);
        const Dims inDims = values_[size_t(in)].dims;
        if (inDims.size() != 4) unsupported("ConvTranspose of a tensor that is not an image");
        const OnnxTensor& w = floats(n.inputs[1]);
        if (w.dims.size() != 4) unsupported("ConvTranspose weights that are not 4-D");
        onnx::requireExplicitPadding(n);
        if (n.attribute("output_shape") != nullptr) unsupported("ConvTranspose with output_shape");
        const int64_t ci = checkedDim(w.dims[0]), og = checkedDim(w.dims[1]), kh = checkedDim(w.dims[2]), kw = checkedDim(w.dims[3]);
        const int64_t group = n.intOr("group", 1);
        if (group <= 0 || group > kMaxDim) unsupported("ConvTranspose group");
        const int64_t c = inDims[1];
        if (ci != c || c % group != 0) unsupported("ConvTranspose weights that do not fit its input");
        if (product(w.dims) != int64_t(w.floats.size())) unsupported("ConvTranspose weights of another size than their shape");
        const int64_t ig = c / group, o = og * group;
        const std::vector<int64_t> kernel = onnx::attributeInts(n, "kernel_shape", 2, kh, 1);
        if (kernel[0] != kh || kernel[1] != kw) unsupported("ConvTranspose kernel_shape other than its weights'");
        const std::vector<int64_t> strides = onnx::attributeInts(n, "strides", 2, 1, 1), dilations = onnx::attributeInts(n, "dilations", 2, 1, 1);
        const std::vector<int64_t> pads = onnx::attributeInts(n, "pads", 4, 0, 0), extra = onnx::attributeInts(n, "output_padding", 2, 0, 0);
        std::vector<float> bias(size_t(o), 0.0f);
        if (n.inputs.size() > 2 && !n.inputs[2].empty()) {
            const OnnxTensor& b = floats(n.inputs[2]);
            if (int64_t(b.floats.size()) != o) unsupported("ConvTranspose bias of another size than its outputs");
            bias = b.floats;
        }
        int64_t size[2];
        for (size_t a = 0; a < 2; ++a) {
            const int64_t full = (inDims[2 + a] - 1) * strides[a] + ((a == 0 ? kh : kw) - 1) * dilations[a] + 1 + extra[a];
            if (full <= pads[a] + pads[a + 2]) unsupported("ConvTranspose padded away");
            size[a] = full - pads[a] - pads[a + 2];
        }
        const Dims outDims{inDims[0], o, size[0], size[1]};
        // ONNX: C x O/g x KH x KW; oneDNN: G x O/g x C/g x KH x KW.
        const Dims weightDims = group == 1 ? Dims{o, ig, kh, kw} : Dims{group, og, ig, kh, kw};
        memory plainWeights(plainDesc(weightDims), s_.engine);
        float* filter = static_cast<float*>(plainWeights.get_data_handle());
        for (int64_t g = 0; g < group; ++g)
            for (int64_t i = 0; i < ig; ++i)
                for (int64_t k = 0; k < og; ++k)
                    for (int64_t y = 0; y < kh; ++y)
                        for (int64_t x = 0; x < kw; ++x) {
                            filter[size_t((((g * og + k) * ig + i) * kh + y) * kw + x)] = w.floats[size_t((((g * ig + i) * og + k) * kh + y) * kw + x)];
                        }
        // Channels last first: oneDNN's own choice pads a few output channels to a block of
        // 16, many times the work for the one-channel masks of segmentation networks.
        dnnl::deconvolution_forward::primitive_desc pd;
        for (const Tag tag : {Tag::acdb, Tag::any}) {
            try {
                const memory::desc src(inDims, memory::data_type::f32, tag), dst(outDims, memory::data_type::f32, tag);
                dnnl::deconvolution_forward::desc d(kInference, algorithm::deconvolution_direct, src, anyDesc(weightDims),
                                                    plainDesc({o}), dst, {strides[0], strides[1]},
                                                    {dilations[0] - 1, dilations[1] - 1}, {pads[0], pads[1]},
                                                    {pads[2] - extra[0], pads[3] - extra[1]});
                pd = dnnl::deconvolution_forward::primitive_desc(d, userScratchpad(), s_.engine);
                if (std::string(pd.impl_info_str()).compare(0, 4, "ref:") != 0) break;
            } catch (const dnnl::error& e) {
                if (tag == Tag::any) unsupported(std::string("ConvTranspose refused by oneDNN: ") + e.what());
            }
        }
        const int src = inLayout(in, pd.src_desc());
        addStep<dnnl::deconvolution_forward>(
            pd, n.outputs[0], outDims, {{DNNL_ARG_SRC, src}},
            {{DNNL_ARG_WEIGHTS, reordered(plainWeights, pd.weights_desc())}, {DNNL_ARG_BIAS, constantMemory(bias, plainDesc({o}))}});
    }

    void touch(int slot, int step) {
        if (slot < 0) return;
        Slot& s = slots_[size_t(slot)];
        s.first = std::min(s.first, step);
        s.last = std::max(s.last, step);
    }

    char* allocate(size_t bytes) {
        bytes = (bytes + kAlign - 1) / kAlign * kAlign;
        char* p = alignedBlock(bytes);
        run_.blocks.emplace_back(std::unique_ptr<char, decltype(&std::free)>(p, &std::free), bytes);
        bufferBytes += bytes;
        return p;
    }

    // Each slot in a block of its own or one a slot done before it began left free: the
    // smallest that fits, else a new one.
    std::vector<char*> layOut() {
        std::vector<size_t> order;
        for (size_t i = 0; i < slots_.size(); ++i) {
            if (slots_[i].last >= 0) order.push_back(i);
        }
        std::sort(order.begin(), order.end(), [&](size_t a, size_t b) { return slots_[a].first < slots_[b].first; });
        struct Block {
            char* data;
            size_t bytes;
            int busyUntil;
        };
        std::vector<Block> blocks;
        std::vector<char*> where(slots_.size(), nullptr);
        for (size_t i : order) {
            const Slot& s = slots_[i];
            Block* best = nullptr;
            for (Block& b : blocks) {
                if (b.busyUntil < s.first && b.bytes >= s.bytes && (best == nullptr || b.bytes < best->bytes)) best = &b;
            }
            if (best == nullptr) {
                blocks.push_back({allocate(std::max<size_t>(s.bytes, 1)), s.bytes, -1});
                best = &blocks.back();
            }
            best->busyUntil = s.last;
            where[i] = best->data;
        }
        return where;
    }

    const OnnxGraph& graph_;
    DnnlExecutor::State& s_;
    DnnlRun& run_;
    std::vector<Value> values_;
    std::vector<Slot> slots_;
    std::vector<Step> steps_;
    std::vector<ConvSpec> convs_;
    std::map<std::string, int> names_;
    std::map<std::string, size_t> uses_;  // readers of each value: nodes, and the caller for outputs
    std::map<std::string, int> requested_;
    std::map<std::string, std::vector<const OnnxNode*>> readers_;
    int input_ = -1;
};

}  // namespace

DnnlExecutor::DnnlExecutor() : state_(new State()) {}
DnnlExecutor::~DnnlExecutor() = default;

std::unique_ptr<DnnlExecutor> DnnlExecutor::build(const OnnxGraph& graph, const std::vector<int>& inputShape,
                                                  const std::vector<std::string>& outputs, std::string& why) {
    if (graph.inputs.size() != 1) {
        why = "a network of " + std::to_string(graph.inputs.size()) + " inputs";
        return nullptr;
    }
    OneThread oneThread;
    try {
        std::unique_ptr<DnnlExecutor> executor(new DnnlExecutor());
        State& s = *executor->state_;
        auto run = std::make_unique<DnnlRun>(s.engine);
        Builder builder(graph, s, *run);
        builder.input(graph.inputs[0], inputShape, outputs);
        for (const OnnxNode& node : graph.nodes) builder.node(node);
        for (const std::string& name : outputs) builder.output(name);
        builder.finish();
        s.inputShape = inputShape;
        s.pattern = run.get();
        s.runs.add(std::move(run));
        executor->weightBytes_ = builder.weightBytes;
        executor->bufferBytes_ = builder.bufferBytes;
        executor->fusedSteps_ = builder.fused;
        executor->multiplyAdds_ = builder.multiplyAdds;
        return executor;
    } catch (const Unsupported& u) {
        why = u.why;
    } catch (const dnnl::error& e) {
        why = std::string("refused by oneDNN: ") + e.what();
    }
    return nullptr;
}

std::vector<cv::Mat> DnnlExecutor::forward(const cv::Mat& blob) {
    State& s = *state_;
    const std::vector<int>& shape = s.inputShape;
    const size_t total = size_t(shape[0]) * size_t(shape[1]) * size_t(shape[2]) * size_t(shape[3]);
    CV_Assert(blob.type() == CV_32F && blob.isContinuous() && blob.total() == total);
    const auto taken = s.runs.take([&] { return copyOf(*s.pattern, s.engine); });
    DnnlRun& run = *taken;
    std::memcpy(run.input.get_data_handle(), blob.ptr<float>(), total * sizeof(float));
    {
        OneThread oneThread;
        size_t fill = 0;
        for (size_t i = 0; i < s.program.size(); ++i) {
            for (; fill < s.fills.size() && s.fills[fill].before == i; ++fill) {
                std::fill_n(run.fills[fill], s.fills[fill].floats, s.fills[fill].value);
            }
            s.program[i].execute(run.stream, run.args[i]);
        }
        run.stream.wait();
    }
    std::vector<cv::Mat> outs;
    for (size_t i = 0; i < run.outputs.size(); ++i) {
        cv::Mat mat(int(s.outputShapes[i].size()), s.outputShapes[i].data(), CV_32F);
        std::memcpy(mat.ptr<float>(), run.outputs[i].get_data_handle(), mat.total() * sizeof(float));
        outs.push_back(std::move(mat));
    }
    return outs;
}

}  // namespace kv
