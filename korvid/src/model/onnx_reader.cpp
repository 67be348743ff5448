#include "model/onnx_reader.h"

#include <cstring>
#include <limits>

namespace kv {

namespace {

// Field numbers of the ONNX messages read here.
namespace model_proto { constexpr uint32_t kGraph = 7; }
namespace graph_proto { constexpr uint32_t kNode = 1, kInitializer = 5, kInput = 11, kOutput = 12; }
namespace node_proto { constexpr uint32_t kInput = 1, kOutput = 2, kOpType = 4, kAttribute = 5; }
namespace attribute_proto { constexpr uint32_t kName = 1, kF = 2, kI = 3, kS = 4, kT = 5, kFloats = 7, kInts = 8; }
namespace tensor_proto {
constexpr uint32_t kDims = 1, kDataType = 2, kFloats = 4, kInt32s = 5, kInt64s = 7, kName = 8, kRaw = 9, kLocation = 14;
constexpr uint64_t kFloat = 1, kInt32 = 6, kInt64 = 7;
}
namespace value_info_proto { constexpr uint32_t kName = 1; }

// No network of ours has a tensor near this; a damaged dim must not ask for more.
constexpr uint64_t kMaxElements = uint64_t(1) << 28;

struct Fault {
    std::string why;
};

enum Wire : uint32_t { kVarint = 0, kFixed64 = 1, kBytes = 2, kFixed32 = 5 };

struct Field {
    uint32_t number = 0;
    Wire wire = kVarint;
    uint64_t value = 0;          // varint and fixed values
    const uint8_t* p = nullptr;  // length-delimited content
    size_t n = 0;
};

// A cursor over one message's bytes.
class Reader {
public:
    Reader(const uint8_t* p, size_t n, const char* what) : p_(p), n_(n), what_(what) {}
    bool atEnd() const { return n_ == 0; }
    bool next(Field& f) {
        if (n_ == 0) return false;
        const uint64_t tag = varint();
        if (tag > std::numeric_limits<uint32_t>::max() || (tag >> 3) == 0) fail("bad tag");
        f = Field{};
        f.number = uint32_t(tag >> 3);
        f.wire = Wire(tag & 7);
        switch (f.wire) {
            case kVarint: f.value = varint(); break;
            case kFixed64:
            case kFixed32: {
                const size_t width = f.wire == kFixed64 ? 8 : 4;
                if (n_ < width) fail("cut short");
                for (size_t i = 0; i < width; ++i) f.value |= uint64_t(p_[i]) << (8 * i);
                advance(width);
                break;
            }
            case kBytes: {
                const uint64_t length = varint();
                if (length > n_) fail("bad length");
                f.p = p_;
                f.n = size_t(length);
                advance(f.n);
                break;
            }
            default: fail("unknown wire type");
        }
        return true;
    }
    uint64_t varint() {
        uint64_t out = 0;
        for (int shift = 0; shift < 64 && n_ > 0; shift += 7) {
            const uint8_t b = *p_;
            advance(1);
            if (shift == 63 && b > 1) break;
            out |= uint64_t(b & 0x7f) << shift;
            if ((b & 0x80) == 0) return out;
        }
        fail("bad varint");
    }
    [[noreturn]] void fail(const std::string& why) const { throw Fault{why + " in " + what_}; }

private:
    void advance(size_t k) {
        p_ += k;
        n_ -= k;
    }
    const uint8_t* p_;
    size_t n_;
    const char* what_;
};

std::string text(const Field& f, const Reader& r) {
    if (f.wire != kBytes) r.fail("wrong wire type");
    return std::string(reinterpret_cast<const char*>(f.p), f.n);
}

// Appends the values of a repeated integer field, packed or not.
void appendInts(const Field& f, const Reader& r, std::vector<int64_t>& out) {
    if (f.wire == kVarint) {
        out.push_back(int64_t(f.value));
        return;
    }
    if (f.wire != kBytes) r.fail("wrong wire type");
    Reader packed(f.p, f.n, "packed integers");
    while (!packed.atEnd()) out.push_back(int64_t(packed.varint()));
}

float asFloat(uint32_t bits) {
    float v;
    std::memcpy(&v, &bits, sizeof v);
    return v;
}

// Appends the values of a repeated float field, packed or not.
void appendFloats(const Field& f, const Reader& r, std::vector<float>& out) {
    if (f.wire == kFixed32) {
        out.push_back(asFloat(uint32_t(f.value)));
        return;
    }
    if (f.wire != kBytes || f.n % 4 != 0) r.fail("bad float data");
    if (f.n == 0) return;
    const size_t first = out.size();
    out.resize(first + f.n / 4);
    std::memcpy(out.data() + first, f.p, f.n);  // little-endian, as the file format is
}

void readTensor(const Field& field, OnnxTensor& t, std::string* name) {
    Reader r(field.p, field.n, "tensor");
    if (field.wire != kBytes) r.fail("wrong wire type");
    uint64_t type = 0;
    Field raw;
    bool hasRaw = false;
    Field f;
    while (r.next(f)) {
        switch (f.number) {
            case tensor_proto::kDims: appendInts(f, r, t.dims); break;
            case tensor_proto::kDataType: type = f.value; break;
            case tensor_proto::kFloats: appendFloats(f, r, t.floats); break;
            case tensor_proto::kInt32s:
            case tensor_proto::kInt64s: appendInts(f, r, t.ints); break;
            case tensor_proto::kName: if (name != nullptr) *name = text(f, r); break;
            case tensor_proto::kRaw: raw = f; hasRaw = f.wire == kBytes; break;
            case tensor_proto::kLocation: if (f.value != 0) r.fail("external data"); break;
            default: break;
        }
    }
    uint64_t count = 1;
    for (int64_t d : t.dims) {
        if (d < 0 || uint64_t(d) > kMaxElements) r.fail("bad dims");
        count *= uint64_t(d);
        if (count > kMaxElements) r.fail("too many elements");
    }
    if (type == tensor_proto::kFloat) {
        t.isFloat = true;
        if (hasRaw) {
            if (raw.n != count * 4) r.fail("raw data of another size than its dims");
            t.floats.resize(count);
            if (count != 0) std::memcpy(t.floats.data(), raw.p, raw.n);
        }
        if (t.floats.size() != count) r.fail("data of another size than its dims");
        t.ints.clear();
    } else if (type == tensor_proto::kInt64 || type == tensor_proto::kInt32) {
        if (hasRaw) {
            const size_t width = type == tensor_proto::kInt64 ? 8 : 4;
            if (raw.n != count * width) r.fail("raw data of another size than its dims");
            t.ints.resize(count);
            for (size_t i = 0; i < count; ++i) {
                if (width == 8) {
                    std::memcpy(&t.ints[i], raw.p + i * 8, 8);
                } else {
                    int32_t v;
                    std::memcpy(&v, raw.p + i * 4, 4);
                    t.ints[i] = v;
                }
            }
        }
        if (t.ints.size() != count) r.fail("data of another size than its dims");
        t.floats.clear();
    } else {
        t = OnnxTensor{};  // a type no supported operator takes; its use is refused later
        t.dims.push_back(-1);
    }
}

void readAttribute(const Field& field, OnnxNode& node) {
    Reader r(field.p, field.n, "attribute");
    std::string name;
    OnnxAttribute a;
    Field f;
    while (r.next(f)) {
        switch (f.number) {
            case attribute_proto::kName: name = text(f, r); break;
            case attribute_proto::kF: if (f.wire == kFixed32) a.f = asFloat(uint32_t(f.value)); break;
            case attribute_proto::kI: if (f.wire == kVarint) a.i = int64_t(f.value); break;
            case attribute_proto::kS: a.s = text(f, r); break;
            case attribute_proto::kFloats: appendFloats(f, r, a.floats); break;
            case attribute_proto::kInts: appendInts(f, r, a.ints); break;
            default: break;
        }
    }
    node.attributes[name] = std::move(a);
}

// A Constant node's tensor ("value") becomes a constant of the graph.
void readNode(const Field& field, OnnxGraph& graph) {
    Reader r(field.p, field.n, "node");
    OnnxNode node;
    Field f, tensor;
    bool hasTensor = false;
    while (r.next(f)) {
        switch (f.number) {
            case node_proto::kInput: node.inputs.push_back(text(f, r)); break;
            case node_proto::kOutput: node.outputs.push_back(text(f, r)); break;
            case node_proto::kOpType: node.op = text(f, r); break;
            case node_proto::kAttribute: {
                readAttribute(f, node);
                // The Constant's tensor sits in the attribute; read it again for its data.
                Reader a(f.p, f.n, "attribute");
                Field g;
                while (a.next(g)) {
                    if (g.number == attribute_proto::kT && g.wire == kBytes) {
                        tensor = g;
                        hasTensor = true;
                    }
                }
                break;
            }
            default: break;
        }
    }
    if (node.op == "Constant") {
        if (!hasTensor || node.outputs.size() != 1) r.fail("constant without a tensor");
        readTensor(tensor, graph.constants[node.outputs[0]], nullptr);
        return;
    }
    graph.nodes.push_back(std::move(node));
}

std::string valueName(const Field& field) {
    Reader r(field.p, field.n, "value info");
    if (field.wire != kBytes) r.fail("wrong wire type");
    Field f;
    std::string name;
    while (r.next(f)) {
        if (f.number == value_info_proto::kName) name = text(f, r);
    }
    return name;
}

void readGraph(const Field& field, OnnxGraph& graph) {
    Reader r(field.p, field.n, "graph");
    if (field.wire != kBytes) r.fail("wrong wire type");
    std::vector<std::string> inputs;
    Field f;
    while (r.next(f)) {
        switch (f.number) {
            case graph_proto::kNode:
                if (f.wire != kBytes) r.fail("wrong wire type");
                readNode(f, graph);
                break;
            case graph_proto::kInitializer: {
                std::string name;
                OnnxTensor t;
                readTensor(f, t, &name);
                graph.constants[name] = std::move(t);
                break;
            }
            case graph_proto::kInput: inputs.push_back(valueName(f)); break;
            case graph_proto::kOutput: graph.outputs.push_back(valueName(f)); break;
            default: break;
        }
    }
    for (auto& name : inputs) {
        if (graph.constants.count(name) == 0) graph.inputs.push_back(std::move(name));
    }
}

}  // namespace

const OnnxAttribute* OnnxNode::attribute(const std::string& name) const {
    const auto it = attributes.find(name);
    return it == attributes.end() ? nullptr : &it->second;
}

int64_t OnnxNode::intOr(const std::string& name, int64_t fallback) const {
    const OnnxAttribute* a = attribute(name);
    return a != nullptr ? a->i : fallback;
}

float OnnxNode::floatOr(const std::string& name, float fallback) const {
    const OnnxAttribute* a = attribute(name);
    return a != nullptr ? a->f : fallback;
}

std::vector<int64_t> OnnxNode::intsOr(const std::string& name, std::vector<int64_t> fallback) const {
    const OnnxAttribute* a = attribute(name);
    return a != nullptr ? a->ints : fallback;
}

std::string OnnxNode::textOr(const std::string& name, const std::string& fallback) const {
    const OnnxAttribute* a = attribute(name);
    return a != nullptr ? a->s : fallback;
}

std::string readOnnxGraph(const uint8_t* data, size_t size, OnnxGraph& graph) {
    try {
        Reader r(data, size, "model");
        Field f;
        bool found = false;
        while (r.next(f)) {
            if (f.number == model_proto::kGraph) {
                readGraph(f, graph);
                found = true;
            }
        }
        if (!found) return "no graph in model";
    } catch (const Fault& fault) {
        return fault.why;
    }
    return {};
}

}  // namespace kv
