// What both network executors must do: give OpenCV DNN's outputs on every converted network
// (within the parity bound, the same again on a second run), and build and run damaged
// copies of a network that still parse or refuse them with a reason, never reading past a
// tensor (ASan) nor taking a damaged dimension at its word.
#include <gtest/gtest.h>
#include <opencv2/dnn.hpp>

#include "model/dnnl_executor.h"
#include "model/onnx_clip_form.h"
#include "model/xnn_executor.h"
#include "testing/file_bytes.h"
#include "testing/tensor_parity.h"

namespace kv {
namespace {

template <typename Executor>
void expectOpenCvsOutputsOnEveryNetwork() {
    struct Case {
        const char* model;
        std::vector<int> shape;
        float high;  // the input's range: face-api's networks take 0..255
        std::vector<std::string> outputs = {};  // when not all: the ones the framework reads
    };
    const Case cases[] = {{"qm_face", {1, 3, 256, 256}, 1}, {"qm_face_mesh", {1, 3, 192, 192}, 1}, {"qm_face_iris", {1, 3, 64, 64}, 1},
                          {"qm_skeleton_single", {1, 3, 192, 192}, 255}, {"qm_skeleton_multi", {1, 3, 256, 256}, 1},
                          {"qm_face_attribute_exp", {1, 1, 64, 64}, 1}, {"qm_object", {1, 3, 416, 416}, 1},
                          {"qm_selfie", {1, 3, 256, 256}, 1, {"mask"}}, {"face_descriptor", {1, 3, 150, 150}, 255},
                          {"face_age_gender", {1, 3, 112, 112}, 255}, {"qm_nsfw", {1, 3, 224, 224}, 1}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.model);
        const std::string bytes = vqfe_testing::fileBytes(std::string(KORVID_TEST_MODEL_DIR) + "/" + c.model + ".model");
        ASSERT_FALSE(bytes.empty());
        const std::vector<uint8_t> clips = clipBoundsAsAttributes(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
        cv::dnn::Net net = clips.empty() ? cv::dnn::readNetFromONNX(bytes.data(), bytes.size())
                                         : cv::dnn::readNetFromONNX(reinterpret_cast<const char*>(clips.data()), clips.size());
        const std::vector<std::string> names = c.outputs.empty() ? net.getUnconnectedOutLayersNames() : c.outputs;
        OnnxGraph graph;
        ASSERT_EQ(readOnnxGraph(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size(), graph), "");
        std::string why;
        const auto executor = Executor::build(graph, c.shape, names, why);
        ASSERT_NE(executor, nullptr) << why;
        const cv::Mat input = vqfe_testing::uniformNoise(c.shape, 0, c.high);
        net.setInput(input);
        std::vector<cv::Mat> want;
        net.forward(want, names);
        const std::vector<cv::Mat> got = executor->forward(input);
        ASSERT_EQ(got.size(), want.size());
        for (size_t i = 0; i < got.size(); ++i) EXPECT_EQ(vqfe_testing::parityExcess(got[i], want[i]), 0.0) << names[i];
        // A second run on the same executor gives the same (its buffers are reused).
        EXPECT_EQ(cv::norm(executor->forward(input)[0], got[0], cv::NORM_INF), 0.0);
    }
}

TEST(OnnxExecutors, EveryNetworkGivesOpenCvsOutputs) {
    expectOpenCvsOutputsOnEveryNetwork<XnnExecutor>();
    expectOpenCvsOutputsOnEveryNetwork<DnnlExecutor>();
}

template <typename Executor>
void buildAndRun(const OnnxGraph& graph, int& built, int& refused) {
    std::string why;
    const auto executor = Executor::build(graph, {1, 3, 64, 64}, {"iris"}, why);
    if (executor == nullptr) {
        EXPECT_NE(why, "");
        ++refused;
        return;
    }
    ++built;
    EXPECT_EQ(executor->forward(cv::Mat({1, 3, 64, 64}, CV_32F, cv::Scalar(0.5))).size(), 1u);
}

TEST(OnnxExecutors, DamagedNetworksRunOrGiveAReason) {
    const std::string bytes = vqfe_testing::fileBytes(std::string(KORVID_TEST_MODEL_DIR) + "/qm_face_iris.model");
    ASSERT_FALSE(bytes.empty());
    uint32_t s = 11;
    int built = 0, refused = 0;
    for (int trial = 0; trial < 400; ++trial) {
        std::vector<uint8_t> damaged(bytes.begin(), bytes.end());
        for (int k = 0; k < 1 + trial % 3; ++k) {
            s = s * 1103515245u + 12345u;
            // The graph's nodes and small tensors sit in the first part of the file.
            damaged[(s >> 8) % std::min<size_t>(damaged.size(), 200000)] = uint8_t(s >> 24);
        }
        OnnxGraph graph;
        if (!readOnnxGraph(damaged.data(), damaged.size(), graph).empty()) continue;
        buildAndRun<XnnExecutor>(graph, built, refused);
        buildAndRun<DnnlExecutor>(graph, built, refused);
    }
    EXPECT_GT(built + refused, 200);
}

}  // namespace
}  // namespace kv
