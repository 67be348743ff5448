// Clip's bounds handed to OpenCV as attributes: MoveNet, whose ReLU6 are Clips with their
// bounds as inputs, reads only so and gives the same outputs as ONNX says; a model without
// such a Clip, and any cut-short model, is left alone.
#include "model/onnx_clip_form.h"
#include "testing/file_bytes.h"

#include <opencv2/dnn.hpp>

#include <gtest/gtest.h>

namespace kv {
namespace {

cv::dnn::Net read(const std::string& bytes) { return cv::dnn::readNetFromONNX(bytes.data(), bytes.size()); }

std::string rewritten(const std::string& bytes) {
    const std::vector<uint8_t> out = clipBoundsAsAttributes(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    return std::string(out.begin(), out.end());
}

TEST(OnnxClipForm, MoveNetReadsWithItsBoundsAsAttributes) {
    const std::string file = vqfe_testing::fileBytes(std::string(KORVID_TEST_MODEL_DIR) + "/qm_skeleton_single.model");
    ASSERT_FALSE(file.empty());
    EXPECT_THROW(read(file), cv::Exception);  // OpenCV 4.6 refuses the bounds as inputs
    const std::string opencvForm = rewritten(file);
    ASSERT_FALSE(opencvForm.empty());
    cv::dnn::Net net = read(opencvForm);
    const int shape[] = {1, 3, 192, 192};
    cv::Mat input(4, shape, CV_32F);
    cv::randu(input, 0, 255);
    net.setInput(input);
    const cv::Mat heatmap = net.forward("heatmap");
    double low = 0, high = 0;
    cv::minMaxLoc(heatmap.reshape(1, 1), &low, &high);
    EXPECT_GE(low, 0.0);  // sigmoid outputs: the clips ran as clips
    EXPECT_LE(high, 1.0);
    EXPECT_EQ(rewritten(opencvForm), "");  // nothing left to rewrite
}

TEST(OnnxClipForm, OtherAndBrokenModelsAreLeftAlone) {
    const std::string face = vqfe_testing::fileBytes(std::string(KORVID_TEST_MODEL_DIR) + "/qm_face.model");
    ASSERT_FALSE(face.empty());
    EXPECT_EQ(rewritten(face), "");
    const std::string file = vqfe_testing::fileBytes(std::string(KORVID_TEST_MODEL_DIR) + "/qm_skeleton_single.model");
    for (size_t cut : {size_t(1), size_t(7), size_t(100), file.size() / 2, file.size() - 1}) {
        EXPECT_EQ(rewritten(file.substr(0, cut)), "") << cut;
    }
}

}  // namespace
}  // namespace kv
