// The ONNX reader on model bytes written here field by field, and on damaged copies of a
// converted network: every fault is refused with a reason, nothing is read past the bytes.
#include "model/onnx_reader.h"

#include <cstring>
#include <fstream>
#include <iterator>

#include <gtest/gtest.h>

namespace kv {
namespace {

std::string varint(uint64_t v) {
    std::string out;
    do {
        out += char((v & 0x7f) | (v >= 0x80 ? 0x80 : 0));
        v >>= 7;
    } while (v != 0);
    return out;
}

std::string bytesField(uint32_t number, const std::string& content) { return varint(number << 3 | 2) + varint(content.size()) + content; }
std::string intField(uint32_t number, uint64_t v) { return varint(number << 3) + varint(v); }

std::string floatTensor(const std::string& name, const std::vector<int64_t>& dims, const std::vector<float>& values) {
    std::string t;
    for (int64_t d : dims) t += intField(1, uint64_t(d));
    t += intField(2, 1) + bytesField(8, name);
    std::string raw(values.size() * 4, '\0');
    if (!values.empty()) std::memcpy(&raw[0], values.data(), raw.size());
    return t + bytesField(9, raw);
}

std::string model(const std::string& graph) { return intField(1, 8) + bytesField(7, graph); }

OnnxGraph read(const std::string& bytes, std::string& why) {
    OnnxGraph g;
    why = readOnnxGraph(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size(), g);
    return g;
}

TEST(OnnxReader, ReadsNodesAttributesAndConstants) {
    const std::string attribute = bytesField(1, "perm") + bytesField(8, varint(0) + varint(2) + varint(3) + varint(1));
    const std::string node = bytesField(1, "x") + bytesField(2, "y") + bytesField(4, "Transpose") + bytesField(5, attribute);
    const std::string shape = std::string() + intField(1, 2) + intField(1, 1) + intField(2, 7) + bytesField(8, "shape") +
                              bytesField(7, varint(1) + varint(uint64_t(int64_t(-1))));
    const std::string graph = bytesField(1, node) + bytesField(5, floatTensor("w", {2, 1}, {0.5f, -2.0f})) + bytesField(5, shape) +
                              bytesField(11, bytesField(1, "x")) + bytesField(11, bytesField(1, "w")) + bytesField(12, bytesField(1, "y"));
    std::string why;
    const OnnxGraph g = read(model(graph), why);
    ASSERT_EQ(why, "");
    ASSERT_EQ(g.nodes.size(), 1u);
    EXPECT_EQ(g.nodes[0].op, "Transpose");
    EXPECT_EQ(g.nodes[0].intsOr("perm", {}), (std::vector<int64_t>{0, 2, 3, 1}));
    EXPECT_EQ(g.nodes[0].intOr("missing", 5), 5);
    EXPECT_EQ(g.inputs, std::vector<std::string>{"x"});  // "w" is an initializer
    EXPECT_EQ(g.outputs, std::vector<std::string>{"y"});
    EXPECT_EQ(g.constants.at("w").floats, (std::vector<float>{0.5f, -2.0f}));
    EXPECT_EQ(g.constants.at("shape").ints, (std::vector<int64_t>{1, -1}));
}

TEST(OnnxReader, RefusesDataThatDisagreesWithItsDims) {
    const std::vector<std::string> graphs = {
        bytesField(5, floatTensor("w", {3}, {1, 2})),                         // raw data short of its dims
        bytesField(5, floatTensor("w", {-1}, {})),                             // negative dim
        bytesField(5, floatTensor("w", {1 << 20, 1 << 20}, {1})),             // more elements than any network
        bytesField(5, intField(1, 2) + intField(2, 7) + bytesField(7, varint(1))),  // one int64 for two
        bytesField(5, intField(2, 1) + intField(14, 1)),                       // data in another file
        bytesField(1, bytesField(5, bytesField(8, std::string("\x85", 1)))),   // packed varint cut short
    };
    for (const std::string& graph : graphs) {
        std::string why;
        read(model(graph), why);
        EXPECT_NE(why, "") << graph.size();
    }
    std::string why;
    read(intField(1, 8), why);
    EXPECT_EQ(why, "no graph in model");
}

TEST(OnnxReader, DamagedNetworksAreRefusedOrReadWithinTheirBytes) {
    std::ifstream in(std::string(KORVID_TEST_MODEL_DIR) + "/qm_face_iris.model", std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(in)), {});
    ASSERT_GT(bytes.size(), 100000u);
    std::string why;
    EXPECT_EQ(read(bytes, why).nodes.size() > 50, true);
    EXPECT_EQ(why, "");
    // Cut anywhere, or a byte changed: a reason or a graph, each read inside a copy of
    // exactly that many bytes (ASan sees any read past it).
    uint32_t s = 7;
    for (int trial = 0; trial < 300; ++trial) {
        s = s * 1103515245u + 12345u;
        std::string damaged = bytes.substr(0, trial < 100 ? (s >> 8) % bytes.size() : bytes.size());
        if (trial >= 100) damaged[(s >> 8) % damaged.size()] = char(s >> 24);
        std::vector<uint8_t> exact(damaged.begin(), damaged.end());
        OnnxGraph g;
        readOnnxGraph(exact.data(), exact.size(), g);
    }
}

}  // namespace
}  // namespace kv
