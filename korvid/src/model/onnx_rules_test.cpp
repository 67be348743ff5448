// The ONNX rules both executors build by: numpy broadcasting, the output length of a window,
// integer attributes and dimensions within the bounds a damaged file may not pass, and the
// padding modes they take.
#include "model/onnx_rules.h"

#include <functional>

#include <gtest/gtest.h>

namespace kv::onnx {
namespace {

std::string refusal(const std::function<void()>& call) {
    try {
        call();
    } catch (const Unsupported& u) {
        return u.why;
    }
    return "";
}

TEST(OnnxRules, BroadcastingAndWindowsFollowOnnx) {
    EXPECT_EQ(broadcast<int64_t>({1, 3, 8, 8}, {3, 1, 1}), (std::vector<int64_t>{1, 3, 8, 8}));
    EXPECT_EQ(broadcast<int64_t>({1}, {2, 1, 5}), (std::vector<int64_t>{2, 1, 5}));
    EXPECT_EQ(broadcast<size_t>({4, 1}, {1, 6}), (std::vector<size_t>{4, 6}));
    EXPECT_NE(refusal([] { broadcast<int64_t>({1, 3, 8, 8}, {4, 1, 1}); }).find("do not broadcast"), std::string::npos);

    // (in + pads - ((kernel - 1) * dilation + 1)) / stride + 1
    EXPECT_EQ(windowOutput<int64_t>(256, 1, 1, 3, 2, 1), 128);
    EXPECT_EQ(windowOutput<int64_t>(7, 0, 0, 3, 1, 2), 3);
    EXPECT_EQ(windowOutput<size_t>(5, 0, 0, 5, 1, 1), 1u);
    EXPECT_NE(refusal([] { windowOutput<int64_t>(4, 0, 0, 3, 1, 2); }).find("window larger"), std::string::npos);
    // Unsigned sizes: a window over its input is refused before the subtraction wraps.
    EXPECT_NE(refusal([] { windowOutput<size_t>(2, 0, 0, 5, 1, 1); }), "");
}

TEST(OnnxRules, AttributesAndDimensionsStayWithinBounds) {
    OnnxNode conv;
    conv.op = "Conv";
    EXPECT_EQ(attributeInts(conv, "strides", 2, 1, 1), (std::vector<int64_t>{1, 1})) << "absent: the fallback";
    conv.attributes["pads"].ints = {1, 1, 1};
    EXPECT_NE(refusal([&] { attributeInts(conv, "pads", 4, 0, 0); }).find("pads of 3 values"), std::string::npos);
    conv.attributes["pads"].ints = {0, -1, 0, 0};
    EXPECT_NE(refusal([&] { attributeInts(conv, "pads", 4, 0, 0); }).find("pads -1"), std::string::npos);
    conv.attributes["strides"].ints = {1, kMaxDim + 1};
    EXPECT_NE(refusal([&] { attributeInts(conv, "strides", 2, 1, 1); }), "");

    EXPECT_EQ(checkedDim(kMaxDim), kMaxDim);
    EXPECT_NE(refusal([] { checkedDim(0); }).find("a dimension of 0"), std::string::npos);
    EXPECT_NE(refusal([] { checkedDim(kMaxDim + 1); }), "");

    conv.attributes["auto_pad"].s = "VALID";
    EXPECT_EQ(refusal([&] { requireExplicitPadding(conv); }), "");
    conv.attributes["auto_pad"].s = "SAME_UPPER";
    EXPECT_NE(refusal([&] { requireExplicitPadding(conv); }).find("SAME_UPPER"), std::string::npos);

    OnnxGraph graph;
    graph.constants["w"].isFloat = true;
    graph.constants["shape"].isFloat = false;
    graph.constants["shape"].ints = {1, -1};
    EXPECT_EQ(&floatConstant(graph, "w"), &graph.constants["w"]);
    EXPECT_EQ(intConstant(graph, "shape"), (std::vector<int64_t>{1, -1}));
    EXPECT_NE(refusal([&] { floatConstant(graph, "shape"); }).find("\"shape\""), std::string::npos);
    EXPECT_NE(refusal([&] { intConstant(graph, "w"); }), "");
    EXPECT_EQ(findConstant(graph, "x"), nullptr);
}

}  // namespace
}  // namespace kv::onnx
