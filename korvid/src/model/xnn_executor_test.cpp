// The XNNPACK executor on small graphs written here for the layout rules, and the graphs it
// must leave to OpenCV (a reason, no runtime); every converted network and damaged copies in
// executors_test.cpp.
#include "model/xnn_executor.h"

#include <cmath>

#include <gtest/gtest.h>
#include <opencv2/dnn.hpp>
#include <opencv2/imgproc.hpp>

#include "testing/onnx_graphs.h"

namespace kv {
namespace {

using vqfe_testing::floatTensor;
using vqfe_testing::intTensor;
using vqfe_testing::onnxNode;

TEST(XnnExecutor, ChannelLayoutsConcatenationAndOutputs) {
    // x (1x2x2x3 NCHW) -> Add of a per-channel constant -> Concat with x on channels ->
    // Transpose to channels last -> Reshape to 1 x 12 x 2; x itself is an output too.
    OnnxGraph g;
    g.inputs = {"x"};
    g.constants["bias"] = floatTensor({2, 1, 1}, {10, 20});
    g.constants["shape"] = intTensor({1, -1, 2});
    g.nodes.push_back(onnxNode("Add", {"x", "bias"}, {"a"}));
    g.nodes.push_back(onnxNode("Concat", {"a", "x"}, {"c"}));
    g.nodes.back().attributes["axis"].i = 1;
    g.nodes.push_back(onnxNode("Transpose", {"c"}, {"t"}));
    g.nodes.back().attributes["perm"].ints = {0, 2, 3, 1};
    g.nodes.push_back(onnxNode("Reshape", {"t", "shape"}, {"r"}));
    std::string why;
    const auto xnn = XnnExecutor::build(g, {1, 2, 2, 3}, {"r", "c", "x"}, why);
    ASSERT_NE(xnn, nullptr) << why;
    cv::Mat x({1, 2, 2, 3}, CV_32F);
    for (int i = 0; i < 12; ++i) x.ptr<float>()[i] = float(i);
    const std::vector<cv::Mat> out = xnn->forward(x);
    ASSERT_EQ(out.size(), 3u);
    // c: channels 0, 1 = x + bias, channels 2, 3 = x; NCHW again on the way out.
    ASSERT_EQ(out[1].total(), 24u);
    for (int i = 0; i < 12; ++i) {
        EXPECT_EQ(out[1].ptr<float>()[i], float(i) + (i < 6 ? 10 : 20));
        EXPECT_EQ(out[1].ptr<float>()[12 + i], float(i));
    }
    // r: pixel by pixel, the four channels of c.
    ASSERT_EQ(out[0].size[1], 12);
    EXPECT_EQ(out[0].ptr<float>()[0], 10.0f);   // pixel 0, channel 0
    EXPECT_EQ(out[0].ptr<float>()[1], 26.0f);   // pixel 0, channel 1: x[6] + 20
    EXPECT_EQ(out[0].ptr<float>()[2], 0.0f);    // pixel 0, channel 2: x[0]
    EXPECT_EQ(out[0].ptr<float>()[4], 11.0f);   // pixel 1, channel 0
    EXPECT_EQ(cv::norm(out[2], x, cv::NORM_INF), 0.0);
}

TEST(XnnExecutor, StepsOnTheInputGiveWhatTheGraphComputes) {
    // (x - mean) * scale, then 1 - that, into a padded 3 x 3 convolution (whose zero padding
    // is after the steps); the input's steps are taken outside XNNPACK, so a second reader of
    // an intermediate (or of x) must stop them there.
    OnnxGraph g;
    g.inputs = {"x"};
    g.constants["mean"] = floatTensor({1, 2, 1, 1}, {3, -5});
    g.constants["scale"] = floatTensor({}, {0.25f});
    g.constants["one"] = floatTensor({1}, {1});
    g.constants["w"] = floatTensor({2, 2, 3, 3}, {});
    for (int i = 0; i < 36; ++i) g.constants["w"].floats.push_back(float(i % 7) - 3);
    g.nodes.push_back(onnxNode("Sub", {"x", "mean"}, {"s"}));
    g.nodes.push_back(onnxNode("Mul", {"scale", "s"}, {"m"}));
    g.nodes.push_back(onnxNode("Sub", {"one", "m"}, {"f"}));
    g.nodes.push_back(onnxNode("Conv", {"f", "w"}, {"y"}));
    g.nodes.back().attributes["pads"].ints = {1, 1, 1, 1};
    cv::Mat x({1, 2, 4, 5}, CV_32F);
    for (int i = 0; i < 40; ++i) x.ptr<float>()[i] = float(i * 7 % 11);
    // The same arithmetic by hand, and the convolution by OpenCV's filter, channel by channel.
    cv::Mat want(4, 5, CV_32F, cv::Scalar(0)), f[2];
    for (int k = 0; k < 2; ++k) {
        f[k] = cv::Mat(4, 5, CV_32F);
        for (int p = 0; p < 20; ++p) f[k].ptr<float>()[p] = 1 - 0.25f * (x.ptr<float>()[k * 20 + p] - (k == 0 ? 3 : -5));
    }
    const auto expectY = [&](const cv::Mat& got, int o) {
        cv::Mat sum(4, 5, CV_32F, cv::Scalar(0));
        for (int k = 0; k < 2; ++k) {
            cv::Mat kernel(3, 3, CV_32F, g.constants["w"].floats.data() + (o * 2 + k) * 9), part;
            cv::filter2D(f[k], part, CV_32F, kernel, {-1, -1}, 0, cv::BORDER_CONSTANT);
            sum += part;
        }
        for (int p = 0; p < 20; ++p) EXPECT_NEAR(got.ptr<float>()[o * 20 + p], sum.ptr<float>()[p], 1e-4) << o << " " << p;
    };
    std::string why;
    auto xnn = XnnExecutor::build(g, {1, 2, 4, 5}, {"y"}, why);
    ASSERT_NE(xnn, nullptr) << why;
    std::vector<cv::Mat> out = xnn->forward(x);
    ASSERT_EQ(out.size(), 1u);
    for (int o = 0; o < 2; ++o) expectY(out[0], o);
    // The intermediate m and x itself read by the caller too: each keeps its own values.
    xnn = XnnExecutor::build(g, {1, 2, 4, 5}, {"y", "m", "x"}, why);
    ASSERT_NE(xnn, nullptr) << why;
    out = xnn->forward(x);
    ASSERT_EQ(out.size(), 3u);
    for (int o = 0; o < 2; ++o) expectY(out[0], o);
    for (int k = 0; k < 2; ++k)
        for (int p = 0; p < 20; ++p) EXPECT_EQ(out[1].ptr<float>()[k * 20 + p], 1 - f[k].ptr<float>()[p]);
    EXPECT_EQ(cv::norm(out[2], x, cv::NORM_INF), 0.0);
}

TEST(XnnExecutor, LeavesWhatItDoesNotRunToOpenCv) {
    const auto refused = [](OnnxGraph g, std::vector<int> shape = {1, 2, 4, 4}) {
        g.inputs = {"x"};
        std::string why;
        EXPECT_EQ(XnnExecutor::build(g, shape, {"y"}, why), nullptr);
        return why;
    };
    OnnxGraph gather;
    gather.nodes.push_back(onnxNode("Gather", {"x", "x"}, {"y"}));
    EXPECT_EQ(refused(gather), "operator Gather");

    OnnxGraph transpose;
    transpose.nodes.push_back(onnxNode("Transpose", {"x"}, {"y"}));
    transpose.nodes.back().attributes["perm"].ints = {0, 1, 3, 2};
    EXPECT_NE(refused(transpose).find("Transpose"), std::string::npos);

    // Weights that do not fit, a window larger than its input, a dim beyond any network,
    // an input never computed, a missing output.
    OnnxGraph conv;
    conv.constants["w"] = floatTensor({1, 3, 3, 3}, std::vector<float>(27, 1.0f));
    conv.nodes.push_back(onnxNode("Conv", {"x", "w"}, {"y"}));
    EXPECT_NE(refused(conv), "");
    conv.constants["w"] = floatTensor({1, 2, 5, 5}, std::vector<float>(50, 1.0f));
    EXPECT_NE(refused(conv).find("window"), std::string::npos);
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
}

}  // namespace
}  // namespace kv
