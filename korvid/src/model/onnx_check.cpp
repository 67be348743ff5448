#include "model/onnx_check.h"

#include <functional>
#include <limits>
#include <vector>

namespace kv {

namespace {

// Field numbers of the ONNX messages the importer reads.
namespace model { constexpr uint32_t kGraph = 7; }
namespace graph {
constexpr uint32_t kNode = 1, kInitializer = 5, kInput = 11, kOutput = 12, kValueInfo = 13, kSparseInitializer = 15;
}
namespace node { constexpr uint32_t kOutput = 2, kOpType = 4, kAttribute = 5; }
namespace attribute { constexpr uint32_t kTensor = 5, kGraph = 6, kTensors = 10, kGraphs = 11, kSparse = 22, kSparses = 23; }
namespace tensor {
constexpr uint32_t kDims = 1, kDataType = 2, kSegment = 3, kFloats = 4, kInt32s = 5, kStrings = 6, kInt64s = 7,
                   kRaw = 9, kDoubles = 10, kUint64s = 11, kExternal = 13, kLocation = 14;
}
namespace value_info { constexpr uint32_t kName = 1, kType = 2; }
namespace type_proto { constexpr uint32_t kTensorType = 1; }
namespace tensor_type { constexpr uint32_t kShape = 2; }
namespace shape { constexpr uint32_t kDim = 1; }
namespace dimension { constexpr uint32_t kValue = 1; }

enum Wire : uint32_t { kVarint = 0, kFixed64 = 1, kBytes = 2, kFixed32 = 5 };

// Models nest graphs only through If/Loop bodies; deeper nesting is no network of ours and
// would only cost stack.
constexpr int kMaxDepth = 16;
constexpr uint64_t kMaxElements = uint64_t(1) << 31;

struct Fault {
    std::string why;
};

struct Span {
    const uint8_t* p;
    size_t n;
};

struct Field {
    uint32_t number;
    Wire wire;
    uint64_t value;  // varint and fixed values
    Span bytes;      // length-delimited content
};

bool readVarint(Span& s, uint64_t& out) {
    out = 0;
    for (int shift = 0; shift < 64 && s.n > 0; shift += 7) {
        const uint8_t b = *s.p++;
        --s.n;
        if (shift == 63 && b > 1) return false;  // more than 64 bits
        out |= uint64_t(b & 0x7f) << shift;
        if ((b & 0x80) == 0) return true;
    }
    return false;
}

// Calls each(field) for every field of the message in s; refuses a broken wire format.
void walk(Span s, const char* what, const std::function<void(const Field&)>& each) {
    while (s.n > 0) {
        uint64_t tag = 0;
        if (!readVarint(s, tag) || tag > std::numeric_limits<uint32_t>::max()) throw Fault{std::string("bad tag in ") + what};
        Field f{uint32_t(tag >> 3), Wire(tag & 7), 0, {nullptr, 0}};
        if (f.number == 0) throw Fault{std::string("field number 0 in ") + what};
        switch (f.wire) {
            case kVarint:
                if (!readVarint(s, f.value)) throw Fault{std::string("bad varint in ") + what};
                break;
            case kFixed64:
            case kFixed32: {
                const size_t width = f.wire == kFixed64 ? 8 : 4;
                if (s.n < width) throw Fault{std::string("cut short in ") + what};
                for (size_t i = 0; i < width; ++i) f.value |= uint64_t(s.p[i]) << (8 * i);
                s.p += width;
                s.n -= width;
                break;
            }
            case kBytes: {
                uint64_t length = 0;
                if (!readVarint(s, length) || length > s.n) throw Fault{std::string("bad length in ") + what};
                f.bytes = {s.p, size_t(length)};
                s.p += length;
                s.n -= size_t(length);
                break;
            }
            default:
                throw Fault{std::string("unknown wire type in ") + what};
        }
        each(f);
    }
}

void expectWire(const Field& f, Wire wire, const char* what) {
    if (f.wire != wire) throw Fault{std::string("wrong wire type in ") + what};
}

// Number of values of a repeated scalar field (packed or not) of the given fixed width
// (0: varints).
uint64_t countValues(const Field& f, size_t width, const char* what) {
    if (f.wire == kBytes) {
        if (width != 0) {
            if (f.bytes.n % width != 0) throw Fault{std::string("ragged packed data in ") + what};
            return f.bytes.n / width;
        }
        Span s = f.bytes;
        uint64_t count = 0, v = 0;
        while (s.n > 0) {
            if (!readVarint(s, v)) throw Fault{std::string("bad packed varint in ") + what};
            ++count;
        }
        return count;
    }
    const Wire expected = width == 0 ? kVarint : width == 4 ? kFixed32 : kFixed64;
    expectWire(f, expected, what);
    return 1;
}

// Bytes per element of the data types OpenCV reads; 0 for any other.
size_t elementSize(uint64_t type) {
    switch (type) {
        case 1: return 4;   // FLOAT
        case 2: return 1;   // UINT8
        case 3: return 1;   // INT8
        case 6: return 4;   // INT32
        case 7: return 8;   // INT64
        case 9: return 1;   // BOOL
        case 10: return 2;  // FLOAT16
        case 11: return 8;  // DOUBLE
        default: return 0;
    }
}

// The typed field that holds elements of a data type in place of raw_data.
uint32_t typedField(uint64_t type) {
    switch (type) {
        case 1: return tensor::kFloats;
        case 7: return tensor::kInt64s;
        case 11: return tensor::kDoubles;
        default: return tensor::kInt32s;  // the narrow integers, bool and float16
    }
}

void checkTensor(Span bytes) {
    uint64_t elements = 1, type = 0, raw = 0, typed = 0;
    bool hasRaw = false;
    uint32_t typedSeen = 0;
    walk(bytes, "a tensor", [&](const Field& f) {
        switch (f.number) {
            case tensor::kDims:
                if (f.wire == kBytes) {
                    Span s = f.bytes;
                    uint64_t d = 0;
                    while (s.n > 0) {
                        if (!readVarint(s, d)) throw Fault{"bad packed dims in a tensor"};
                        if (d > kMaxElements || (d != 0 && elements > kMaxElements / d)) throw Fault{"a tensor too large or with a negative dimension"};
                        elements *= d;
                    }
                } else {
                    expectWire(f, kVarint, "tensor dims");
                    if (f.value > kMaxElements || (f.value != 0 && elements > kMaxElements / f.value)) {
                        throw Fault{"a tensor too large or with a negative dimension"};
                    }
                    elements *= f.value;
                }
                break;
            case tensor::kDataType:
                expectWire(f, kVarint, "tensor data type");
                type = f.value;
                break;
            case tensor::kRaw:
                expectWire(f, kBytes, "tensor raw data");
                hasRaw = true;
                raw = f.bytes.n;  // the last occurrence is the one a parser keeps
                break;
            case tensor::kFloats:
            case tensor::kDoubles:
                typedSeen = f.number;
                typed += countValues(f, f.number == tensor::kFloats ? 4 : 8, "tensor data");
                break;
            case tensor::kInt32s:
            case tensor::kInt64s:
            case tensor::kUint64s:
                typedSeen = f.number;
                typed += countValues(f, 0, "tensor data");
                break;
            case tensor::kStrings:
            case tensor::kSegment:
            case tensor::kExternal:
                throw Fault{"a tensor with strings, segments or external data"};
            case tensor::kLocation:
                if (f.value != 0) throw Fault{"a tensor with external data"};
                break;
            default:
                break;
        }
    });
    const size_t width = elementSize(type);
    if (width == 0) throw Fault{"a tensor of unknown data type " + std::to_string(type)};
    if (hasRaw && typed != 0) throw Fault{"a tensor with both raw and typed data"};
    if (hasRaw ? raw != elements * width : typed != elements || (typed != 0 && typedSeen != typedField(type))) {
        throw Fault{"a tensor whose data does not match its dimensions"};
    }
}

void checkGraph(Span bytes, int depth);

void checkNode(Span bytes, int depth) {
    bool hasOpType = false, firstOutputNamed = false;
    int outputs = 0;
    walk(bytes, "a node", [&](const Field& f) {
        if (f.number == node::kOutput) {
            expectWire(f, kBytes, "node output");
            if (outputs++ == 0) firstOutputNamed = f.bytes.n > 0;
        } else if (f.number == node::kOpType) {
            expectWire(f, kBytes, "node op type");
            hasOpType = f.bytes.n > 0;
        } else if (f.number == node::kAttribute) {
            expectWire(f, kBytes, "node attribute");
            walk(f.bytes, "an attribute", [&](const Field& a) {
                if (a.number == attribute::kTensor || a.number == attribute::kTensors) {
                    expectWire(a, kBytes, "attribute tensor");
                    checkTensor(a.bytes);
                } else if (a.number == attribute::kGraph || a.number == attribute::kGraphs) {
                    expectWire(a, kBytes, "attribute graph");
                    checkGraph(a.bytes, depth + 1);
                } else if (a.number == attribute::kSparse || a.number == attribute::kSparses) {
                    throw Fault{"a sparse tensor attribute"};
                }
            });
        }
    });
    if (!hasOpType) throw Fault{"a node without an op type"};
    if (!firstOutputNamed) throw Fault{"a node without a named output"};
}

// One step into a nested message: in the message called `what`, the fields numbered `number`
// (length-delimited, called `field`).
struct Step {
    const char* what;
    uint32_t number;
    const char* field;
};

// Calls each for the bytes of every field reached by following path from bytes.
void walkNested(Span bytes, const std::vector<Step>& path, size_t depth, const std::function<void(Span)>& each) {
    if (depth == path.size()) return each(bytes);
    const Step& step = path[depth];
    walk(bytes, step.what, [&](const Field& f) {
        if (f.number != step.number) return;
        expectWire(f, kBytes, step.field);
        walkNested(f.bytes, path, depth + 1, each);
    });
}

// Graph inputs and outputs: a name, and a shape of dimensions OpenCV can hold in an int.
void checkValueInfo(Span bytes) {
    bool named = false;
    walk(bytes, "a value", [&](const Field& f) {
        if (f.number == value_info::kName) {
            expectWire(f, kBytes, "value name");
            named = f.bytes.n > 0;
        } else if (f.number == value_info::kType) {
            expectWire(f, kBytes, "value type");
            // type -> tensor type -> shape -> dimension -> value
            const std::vector<Step> path{{"a type", type_proto::kTensorType, "tensor type"},
                                         {"a tensor type", tensor_type::kShape, "shape"},
                                         {"a shape", shape::kDim, "dimension"}};
            walkNested(f.bytes, path, 0, [](Span dim) {
                walk(dim, "a dimension", [](const Field& v) {
                    if (v.number != dimension::kValue) return;
                    expectWire(v, kVarint, "dimension value");
                    if (v.value > uint64_t(std::numeric_limits<int>::max())) throw Fault{"a negative or huge input dimension"};
                });
            });
        }
    });
    if (!named) throw Fault{"a graph input or output without a name"};
}

void checkGraph(Span bytes, int depth) {
    if (depth > kMaxDepth) throw Fault{"graphs nested too deep"};
    int nodes = 0, outputs = 0;
    walk(bytes, "the graph", [&](const Field& f) {
        switch (f.number) {
            case graph::kNode:
                expectWire(f, kBytes, "graph node");
                checkNode(f.bytes, depth);
                ++nodes;
                break;
            case graph::kInitializer:
                expectWire(f, kBytes, "graph initializer");
                checkTensor(f.bytes);
                break;
            case graph::kInput:
            case graph::kOutput:
            case graph::kValueInfo:
                expectWire(f, kBytes, "graph value");
                checkValueInfo(f.bytes);
                outputs += f.number == graph::kOutput;
                break;
            case graph::kSparseInitializer:
                throw Fault{"a sparse initializer"};
            default:
                break;
        }
    });
    if (nodes == 0 || outputs == 0) throw Fault{"a graph without nodes or outputs"};
}

}  // namespace

std::string onnxStructureFault(const uint8_t* data, size_t size) {
    if (data == nullptr || size == 0) return "no bytes";
    try {
        int graphs = 0;
        walk({data, size}, "the model", [&](const Field& f) {
            if (f.number != model::kGraph) return;
            expectWire(f, kBytes, "the model's graph");
            checkGraph(f.bytes, 0);
            ++graphs;
        });
        if (graphs != 1) return "not exactly one graph";
    } catch (const Fault& fault) {
        return fault.why;
    }
    return {};
}

}  // namespace kv
