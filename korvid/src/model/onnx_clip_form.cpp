#include "model/onnx_clip_form.h"

#include <cstring>
#include <map>
#include <string>

namespace kv {

namespace {

// Field numbers: ModelProto.graph, GraphProto.node and .initializer, NodeProto.input,
// .op_type and .attribute, TensorProto.data_type, .float_data, .name and .raw_data,
// AttributeProto.name, .f and .type.
constexpr uint32_t kModelGraph = 7, kGraphNode = 1, kGraphInitializer = 5;
constexpr uint32_t kNodeInput = 1, kNodeOpType = 4, kNodeAttribute = 5;
constexpr uint32_t kTensorDataType = 2, kTensorFloats = 4, kTensorName = 8, kTensorRaw = 9;
constexpr uint32_t kAttributeName = 1, kAttributeFloat = 2, kAttributeType = 20;
constexpr uint64_t kFloatType = 1;  // TensorProto.FLOAT and AttributeProto.FLOAT

struct Field {
    uint32_t number = 0;
    uint32_t wire = 0;
    uint64_t value = 0;              // varint and fixed values
    const uint8_t* content = nullptr;  // length-delimited content
    size_t length = 0;
    const uint8_t* begin = nullptr;  // the whole field, tag included
    size_t size = 0;
};

bool readVarint(const uint8_t*& p, const uint8_t* end, uint64_t& out) {
    out = 0;
    for (int shift = 0; shift < 64 && p < end; shift += 7) {
        const uint8_t b = *p++;
        out |= uint64_t(b & 0x7f) << shift;
        if ((b & 0x80) == 0) return true;
    }
    return false;
}

// The fields of a message; false when its wire format is broken.
bool fields(const uint8_t* p, size_t n, std::vector<Field>& out) {
    const uint8_t* end = p + n;
    while (p < end) {
        Field f;
        f.begin = p;
        uint64_t tag = 0;
        if (!readVarint(p, end, tag)) return false;
        f.number = uint32_t(tag >> 3);
        f.wire = uint32_t(tag & 7);
        if (f.wire == 0) {
            if (!readVarint(p, end, f.value)) return false;
        } else if (f.wire == 1 || f.wire == 5) {
            const size_t width = f.wire == 1 ? 8 : 4;
            if (size_t(end - p) < width) return false;
            for (size_t i = 0; i < width; ++i) f.value |= uint64_t(p[i]) << (8 * i);
            p += width;
        } else if (f.wire == 2) {
            uint64_t length = 0;
            if (!readVarint(p, end, length) || length > uint64_t(end - p)) return false;
            f.content = p;
            f.length = size_t(length);
            p += length;
        } else {
            return false;
        }
        f.size = size_t(p - f.begin);
        out.push_back(f);
    }
    return true;
}

void putVarint(std::vector<uint8_t>& out, uint64_t v) {
    while (v >= 0x80) {
        out.push_back(uint8_t(v | 0x80));
        v >>= 7;
    }
    out.push_back(uint8_t(v));
}

void putBytes(std::vector<uint8_t>& out, uint32_t number, const uint8_t* p, size_t n) {
    putVarint(out, uint64_t(number) << 3 | 2);
    putVarint(out, n);
    out.insert(out.end(), p, p + n);
}

void putRaw(std::vector<uint8_t>& out, const Field& f) { out.insert(out.end(), f.begin, f.begin + f.size); }

std::string text(const Field& f) { return std::string(reinterpret_cast<const char*>(f.content), f.length); }

// The name and value of an initialiser holding one float, if it is one.
bool scalarFloat(const Field& initializer, std::string& name, float& value) {
    std::vector<Field> t;
    if (!fields(initializer.content, initializer.length, t)) return false;
    bool isFloat = false, found = false;
    for (const Field& f : t) {
        if (f.number == kTensorDataType && f.wire == 0) isFloat = f.value == kFloatType;
        if (f.number == kTensorName && f.wire == 2) name = text(f);
        if ((f.number == kTensorRaw || f.number == kTensorFloats) && f.wire == 2 && f.length == 4) {
            std::memcpy(&value, f.content, 4);  // little-endian, as ONNX stores it
            found = true;
        }
        if (f.number == kTensorFloats && f.wire == 5) {
            const uint32_t bits = uint32_t(f.value);
            std::memcpy(&value, &bits, 4);
            found = true;
        }
    }
    return isFloat && found && !name.empty();
}

void putFloatAttribute(std::vector<uint8_t>& node, const char* name, float value) {
    std::vector<uint8_t> a;
    putBytes(a, kAttributeName, reinterpret_cast<const uint8_t*>(name), std::strlen(name));
    putVarint(a, uint64_t(kAttributeFloat) << 3 | 5);
    uint32_t bits = 0;
    std::memcpy(&bits, &value, 4);
    for (int i = 0; i < 4; ++i) a.push_back(uint8_t(bits >> (8 * i)));
    putVarint(a, uint64_t(kAttributeType) << 3 | 0);
    putVarint(a, kFloatType);
    putBytes(node, kNodeAttribute, a.data(), a.size());
}

// The node rewritten, or false when it is no Clip with scalar initialiser bounds.
bool rewriteClip(const Field& node, const std::map<std::string, float>& scalars, std::vector<uint8_t>& out) {
    std::vector<Field> n;
    if (!fields(node.content, node.length, n)) return false;
    std::vector<const Field*> inputs;
    bool clip = false;
    for (const Field& f : n) {
        if (f.number == kNodeOpType && f.wire == 2) clip = text(f) == "Clip";
        if (f.number == kNodeInput && f.wire == 2) inputs.push_back(&f);
    }
    if (!clip || inputs.size() != 3) return false;
    const auto low = scalars.find(text(*inputs[1])), high = scalars.find(text(*inputs[2]));
    if (low == scalars.end() || high == scalars.end()) return false;
    for (const Field& f : n) {
        if (&f != inputs[1] && &f != inputs[2]) putRaw(out, f);
    }
    putFloatAttribute(out, "min", low->second);
    putFloatAttribute(out, "max", high->second);
    return true;
}

}  // namespace

std::vector<uint8_t> clipBoundsAsAttributes(const uint8_t* data, size_t size) {
    std::vector<Field> model, graph;
    if (!fields(data, size, model)) return {};
    const Field* graphField = nullptr;
    for (const Field& f : model) {
        if (f.number == kModelGraph && f.wire == 2) {
            if (graphField != nullptr) return {};  // a graph given twice: read as it is
            graphField = &f;
        }
    }
    if (graphField == nullptr || !fields(graphField->content, graphField->length, graph)) return {};
    std::map<std::string, float> scalars;
    for (const Field& f : graph) {
        std::string name;
        float value = 0;
        if (f.number == kGraphInitializer && f.wire == 2 && scalarFloat(f, name, value)) scalars[name] = value;
    }
    std::vector<uint8_t> newGraph;
    newGraph.reserve(graphField->length);
    bool changed = false;
    for (const Field& f : graph) {
        std::vector<uint8_t> node;
        if (f.number == kGraphNode && f.wire == 2 && rewriteClip(f, scalars, node)) {
            putBytes(newGraph, kGraphNode, node.data(), node.size());
            changed = true;
        } else {
            putRaw(newGraph, f);
        }
    }
    if (!changed) return {};
    std::vector<uint8_t> out;
    out.reserve(size + newGraph.size() - graphField->length + 16);
    for (const Field& f : model) {
        if (&f == graphField) {
            putBytes(out, kModelGraph, newGraph.data(), newGraph.size());
        } else {
            putRaw(out, f);
        }
    }
    return out;
}

}  // namespace kv
