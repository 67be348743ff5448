// The ONNX structure check: every network we ship passes, and the disagreements OpenCV's
// importer would read past a buffer on are refused.
#include "model/onnx_check.h"
#include "testing/file_bytes.h"

#include <dirent.h>

#include <fstream>
#include <iterator>

#include <gtest/gtest.h>

namespace kv {
namespace {

std::string varint(uint64_t v) {
    std::string out;
    for (; v >= 0x80; v >>= 7) out += char(0x80 | (v & 0x7f));
    return out + char(v);
}
std::string bytesField(uint32_t number, const std::string& content) { return varint(number << 3 | 2) + varint(content.size()) + content; }
std::string varintField(uint32_t number, uint64_t v) { return varint(number << 3) + varint(v); }

// A one-node graph with a float initializer of the given dims and raw bytes.
std::string model(const std::string& node, const std::string& initializer) {
    const std::string output = bytesField(1, "y");
    const std::string graph = bytesField(1, node) + bytesField(5, initializer) + bytesField(11, bytesField(1, "x")) + bytesField(12, output);
    return varintField(1, 8) + bytesField(7, graph);
}
std::string tensor(std::initializer_list<uint64_t> dims, uint64_t type, size_t rawBytes) {
    std::string t;
    for (uint64_t d : dims) t += varintField(1, d);
    return t + varintField(2, type) + bytesField(8, "w") + bytesField(9, std::string(rawBytes, '\0'));
}
const std::string kNode = bytesField(1, "x") + bytesField(1, "w") + bytesField(2, "y") + bytesField(4, "Add");

std::string fault(const std::string& bytes) { return onnxStructureFault(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()); }

TEST(OnnxCheck, ShippedNetworksPass) {
    DIR* dir = opendir(KORVID_TEST_MODEL_DIR);
    ASSERT_NE(dir, nullptr);
    int networks = 0;
    while (dirent* e = readdir(dir)) {
        const std::string name = e->d_name;
        if (name.size() < 6 || name.substr(name.size() - 6) != ".model") continue;
        const std::string bytes = vqfe_testing::fileBytes(std::string(KORVID_TEST_MODEL_DIR) + "/" + name);
        if (bytes.size() < 16 || bytes[0] != 0x08) continue;  // not a network
        EXPECT_EQ(fault(bytes), "") << name;
        ++networks;
    }
    closedir(dir);
    EXPECT_GE(networks, 5);
}

TEST(OnnxCheck, RefusesWhatTheImporterWouldMisread) {
    EXPECT_EQ(fault(model(kNode, tensor({2, 3}, 1, 24))), "");
    EXPECT_EQ(fault(model(kNode, tensor({}, 7, 8))), "");  // a scalar holds one element
    const std::string whole = model(kNode, tensor({2, 3}, 1, 24));
    const std::string refused[] = {
        model(kNode, tensor({2, 3}, 1, 20)),                    // raw data shorter than its dims
        model(kNode, tensor({2, 3}, 1, 0)),                     // no data at all
        model(kNode, tensor({uint64_t(-2), 3}, 1, 24)),         // a negative dim
        model(kNode, tensor({1u << 20, 1u << 20}, 1, 0)),       // a product past any real tensor
        model(kNode, tensor({2}, 8, 2)),                        // strings
        model(kNode, tensor({2}, 99, 2)),                       // an unknown type
        model(bytesField(1, "x") + bytesField(4, "Add"), tensor({1}, 1, 4)),  // a node without outputs
        model(bytesField(1, "x") + bytesField(2, "y"), tensor({1}, 1, 4)),    // a node without op type
        whole.substr(0, whole.size() - 3),                      // cut short
        whole + "\xff",                                         // a broken trailing tag
        varintField(1, 8),                                      // no graph
    };
    for (const std::string& bytes : refused) EXPECT_NE(fault(bytes), "") << testing::PrintToString(bytes);
}

}  // namespace
}  // namespace kv
