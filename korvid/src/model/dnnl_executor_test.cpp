// The oneDNN executor against the XNNPACK executor on small graphs written here for what it
// fuses and lays out itself (residual additions in place and as a second operand,
// activations, zero pads taken by convolutions, pads, transposes, reshapes, shared buffers),
// and the graphs it refuses (a reason, no executor); every converted network and damaged
// copies in executors_test.cpp.
#include "model/dnnl_executor.h"

#include <atomic>
#include <thread>

#include <gtest/gtest.h>

#include "model/xnn_executor.h"
#include "testing/onnx_graphs.h"
#include "testing/tensor_parity.h"

namespace kv {
namespace {

using vqfe_testing::intTensor;
using vqfe_testing::noiseTensor;
using vqfe_testing::onnxNode;

OnnxNode conv(const std::string& in, const std::string& w, const std::string& out, int64_t pad, int64_t group = 1) {
    OnnxNode n = onnxNode("Conv", {in, w}, {out});
    n.attributes["pads"].ints = {pad, pad, pad, pad};
    n.attributes["group"].i = group;
    return n;
}

// The graph in both executors on the same noise: every output within the parity bound.
void expectAsXnnpack(const OnnxGraph& g, const std::vector<int>& shape, const std::vector<std::string>& outputs, size_t fused) {
    std::string why;
    const auto dnnl = DnnlExecutor::build(g, shape, outputs, why);
    ASSERT_NE(dnnl, nullptr) << why;
    EXPECT_EQ(dnnl->fusedSteps(), fused);
    const auto xnn = XnnExecutor::build(g, shape, outputs, why);
    ASSERT_NE(xnn, nullptr) << why;
    for (uint64_t seed : {1, 2}) {
        const cv::Mat x = vqfe_testing::uniformNoise(shape, -1, 1, seed);
        const std::vector<cv::Mat> got = dnnl->forward(x), want = xnn->forward(x);
        ASSERT_EQ(got.size(), want.size());
        for (size_t i = 0; i < got.size(); ++i) {
            ASSERT_EQ(std::vector<int>(got[i].size.p, got[i].size.p + got[i].dims), std::vector<int>(want[i].size.p, want[i].size.p + want[i].dims));
            EXPECT_EQ(vqfe_testing::parityExcess(got[i], want[i]), 0.0) << outputs[i];
        }
    }
}

TEST(DnnlExecutor, FusedResidualsAndActivationsKeepTheGraphsValues) {
    // A residual block whose input is read again later (an addition of its own), one whose
    // input is not (added in place by the convolution), activations after convolutions, a
    // depthwise convolution behind a zero Pad (taken into its padding) and a 1 x 1 one.
    OnnxGraph g;
    g.inputs = {"x"};
    g.constants["w0"] = noiseTensor({32, 3, 3, 3}, 1);
    g.constants["w1"] = noiseTensor({32, 32, 3, 3}, 2);
    g.constants["w2"] = noiseTensor({32, 1, 3, 3}, 3);
    g.constants["w3"] = noiseTensor({32, 32, 1, 1}, 4);
    g.constants["pads"] = intTensor({0, 0, 1, 2, 0, 0, 1, 0});
    g.nodes.push_back(conv("x", "w0", "a", 1));
    g.nodes.push_back(onnxNode("Relu", {"a"}, {"r"}));              // fused
    g.nodes.push_back(conv("r", "w1", "b", 1));
    g.nodes.push_back(onnxNode("Add", {"r", "b"}, {"s"}));          // r read again below: not fused
    g.nodes.push_back(onnxNode("Clip", {"s"}, {"c"}));
    g.nodes.back().attributes["min"].f = 0;
    g.nodes.back().attributes["max"].f = 0.6f;
    g.nodes.push_back(onnxNode("Pad", {"c", "pads"}, {"p"}));       // taken by the depthwise convolution
    g.nodes.push_back(conv("p", "w2", "d", 0, 32));
    g.nodes.push_back(onnxNode("LeakyRelu", {"d"}, {"l"}));         // fused
    g.nodes.back().attributes["alpha"].f = 0.1f;
    g.nodes.push_back(conv("r", "w3", "e", 0));                     // r's last reader
    g.nodes.push_back(onnxNode("Sigmoid", {"e"}, {"q"}));           // fused
    g.nodes.push_back(conv("q", "w3", "f", 0));
    g.nodes.push_back(onnxNode("Add", {"l", "f"}, {"y"}));          // in place over l
    g.nodes.push_back(onnxNode("Relu", {"y"}, {"z"}));              // fused after the addition
    g.nodes.push_back(conv("z", "w3", "g", 0));                     // z's reader before the addition below
    g.nodes.push_back(conv("g", "w3", "h", 0));
    g.nodes.push_back(onnxNode("Add", {"h", "z"}, {"out"}));        // not over z: z is read after it
    g.nodes.push_back(conv("z", "w3", "k", 0));
    g.nodes.push_back(onnxNode("Add", {"out", "k"}, {"end"}));      // in place over out
    expectAsXnnpack(g, {1, 3, 20, 17}, {"end"}, 6);
    // Intermediates read by the caller are not fused over; the results are the same.
    expectAsXnnpack(g, {1, 3, 20, 17}, {"end", "z", "a", "l"}, 3);
}

// A non-zero Pad of the channels, pooling, Concat of blocked tensors, a transpose to
// channels last, a Reshape of it and a Gemm, softmax; broadcast per-channel arithmetic.
// Input 1 x 3 x 18 x 16, outputs "prob" and "t".
OnnxGraph layoutsGraph() {
    OnnxGraph g;
    g.inputs = {"x"};
    g.constants["w0"] = noiseTensor({16, 3, 3, 3}, 5);
    g.constants["mean"] = noiseTensor({1, 3, 1, 1}, 6);
    g.constants["pads"] = intTensor({0, 2, 0, 0, 0, 3, 1, 1});
    g.constants["fill"] = noiseTensor({1}, 7);
    g.constants["shape"] = intTensor({1, -1});
    g.constants["fc"] = noiseTensor({4, 9 * 8 * 42}, 8);
    g.nodes.push_back(onnxNode("Sub", {"x", "mean"}, {"m"}));
    g.nodes.push_back(conv("m", "w0", "a", 1));
    g.nodes.push_back(onnxNode("Pad", {"a", "pads", "fill"}, {"p"}));
    g.nodes.push_back(onnxNode("MaxPool", {"p"}, {"mp"}));
    g.nodes.back().attributes["kernel_shape"].ints = {2, 2};
    g.nodes.back().attributes["strides"].ints = {2, 2};
    g.nodes.push_back(onnxNode("Concat", {"mp", "mp"}, {"c"}));
    g.nodes.back().attributes["axis"].i = 1;
    g.nodes.push_back(onnxNode("Transpose", {"c"}, {"t"}));
    g.nodes.back().attributes["perm"].ints = {0, 2, 3, 1};
    g.nodes.push_back(onnxNode("Reshape", {"t", "shape"}, {"flat"}));
    g.nodes.push_back(onnxNode("Gemm", {"flat", "fc"}, {"logits"}));
    g.nodes.back().attributes["transB"].i = 1;
    g.nodes.push_back(onnxNode("Softmax", {"logits"}, {"prob"}));
    return g;
}

TEST(DnnlExecutor, LayoutsPadsAndPlainTensors) {
    expectAsXnnpack(layoutsGraph(), {1, 3, 18, 16}, {"prob", "t"}, 0);
    // The work counted for the bench: the convolution's 16 x 18 x 16 outputs of 3 x 3 x 3
    // products each and the Gemm's 4 of 9 x 8 x 42, padding and pooling not counted.
    std::string why;
    const auto dnnl = DnnlExecutor::build(layoutsGraph(), {1, 3, 18, 16}, {"prob"}, why);
    ASSERT_NE(dnnl, nullptr) << why;
    EXPECT_EQ(dnnl->multiplyAdds(), 16.0 * 18 * 16 * 27 + 4.0 * 9 * 8 * 42);
}

// Passes on several threads at once each give what the pass alone gives for its own input:
// no buffer, scratchpad, fill or output of one pass is another's.
TEST(DnnlExecutorConcurrency, PassesOnSeveralThreadsAtOnceKeepToTheirOwnInputs) {
    const std::vector<int> shape{1, 3, 18, 16};
    std::string why;
    const auto dnnl = DnnlExecutor::build(layoutsGraph(), shape, {"prob", "t"}, why);
    ASSERT_NE(dnnl, nullptr) << why;
    constexpr int kThreads = 4;
    std::vector<cv::Mat> inputs;
    std::vector<std::vector<cv::Mat>> alone;
    for (int t = 0; t < kThreads; ++t) {
        inputs.push_back(vqfe_testing::uniformNoise(shape, -1, 1, uint64_t(t + 1)));
        alone.push_back(dnnl->forward(inputs.back()));
    }
    std::atomic<int> differing{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int pass = 0; pass < 30; ++pass) {
                const std::vector<cv::Mat> got = dnnl->forward(inputs[size_t(t)]);
                for (size_t i = 0; i < got.size(); ++i) {
                    if (cv::norm(got[i], alone[size_t(t)][i], cv::NORM_INF) != 0) ++differing;
                }
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(differing.load(), 0);
}

TEST(DnnlExecutor, RefusesWhatItDoesNotRun) {
    const auto refused = [](OnnxGraph g, std::vector<int> shape = {1, 2, 4, 4}) {
        g.inputs = {"x"};
        std::string why;
        EXPECT_EQ(DnnlExecutor::build(g, shape, {"y"}, why), nullptr);
        return why;
    };
    OnnxGraph gather;
    gather.nodes.push_back(onnxNode("Gather", {"x", "x"}, {"y"}));
    EXPECT_EQ(refused(gather), "operator Gather");
    OnnxGraph conv;
    conv.constants["w"] = noiseTensor({1, 3, 3, 3}, 1);
    conv.nodes.push_back(onnxNode("Conv", {"x", "w"}, {"y"}));
    EXPECT_NE(refused(conv), "");
    conv.constants["w"] = noiseTensor({1, 2, 5, 5}, 1);
    EXPECT_NE(refused(conv).find("window"), std::string::npos);
    conv.constants["w"].floats.pop_back();
    EXPECT_NE(refused(conv).find("size"), std::string::npos);
    OnnxGraph relu;
    relu.nodes.push_back(onnxNode("Relu", {"x"}, {"y"}));
    EXPECT_NE(refused(relu, {1, 2, 1 << 21, 1}).find("dimension"), std::string::npos);
    EXPECT_NE(refused(relu, {1, 2, 0, 4}).find("dimension"), std::string::npos);
    OnnxGraph unknown;
    unknown.nodes.push_back(onnxNode("Relu", {"z"}, {"y"}));
    EXPECT_NE(refused(unknown).find("\"z\""), std::string::npos);
    OnnxGraph noOutput;
    noOutput.nodes.push_back(onnxNode("Relu", {"x"}, {"r"}));
    EXPECT_NE(refused(noOutput).find("\"y\""), std::string::npos);
    OnnxGraph resize;
    resize.constants["scales"] = noiseTensor({4}, 1);
    resize.constants["scales"].floats = {1, 1, 1.5f, 1.5f};
    resize.nodes.push_back(onnxNode("Resize", {"x", "", "scales"}, {"y"}));
    resize.nodes.back().attributes["mode"].s = "linear";
    EXPECT_NE(refused(resize, {1, 2, 5, 5}).find("fractional"), std::string::npos);
}

}  // namespace
}  // namespace kv
