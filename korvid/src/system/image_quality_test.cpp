// The image-quality API: BRISQUE scores for image files, model fallback and failures.
#include "Vantor/ImageQuality.h"

#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "testing/framework_harness.h"

namespace kv::testing {
namespace {

vtx_ai_image_quality_enhancement_vida_param paramFor(const char* path) {
    vtx_ai_image_quality_enhancement_vida_param p{};
    p.model_path = path;
    p.mode = 1;
    p.scale = 1.f;
    return p;
}

float score(void* handle, const std::string& path, int expectedCode = 0) {
    float s = -1.f;
    EXPECT_EQ(vtx_ai_image_quality_enhancement_vida_process(handle, path.c_str(), 0, 0, &s), expectedCode) << path;
    return s;
}

TEST(ImageQuality, ScoresFilesAndPrefersSharpImages) {
    const std::string data = KORVID_TEST_DATA_DIR;
    for (const char* model : {"", "/data/app/quality.model", KORVID_TEST_MODEL_DIR "/quality_brisque.model",
                              KORVID_TEST_MODEL_DIR "/qm_face.model"}) {
        void* handle = nullptr;
        auto param = paramFor(model);
        ASSERT_EQ(vtx_ai_image_quality_enhancement_vida_create(&handle, &param), 0) << model;
        ASSERT_NE(handle, nullptr);
        const float sharp = score(handle, data + "/coffee.jpg");
        EXPECT_GE(sharp, 0.f);
        EXPECT_LE(sharp, 1.f);

        cv::Mat blurred;
        cv::GaussianBlur(cv::imread(data + "/coffee.jpg"), blurred, cv::Size(0, 0), 4.0);
        const std::string blurredPath = ::testing::TempDir() + "korvid_blurred.png";
        ASSERT_TRUE(cv::imwrite(blurredPath, blurred));
        EXPECT_LT(score(handle, blurredPath), sharp);

        std::ofstream(::testing::TempDir() + "korvid_not_an_image.png") << "not an image";
        EXPECT_NE(vtx_ai_image_quality_enhancement_vida_process(handle, (::testing::TempDir() + "korvid_not_an_image.png").c_str(), 0, 0, &param.scale), 0);
        float untouched = -1.f;
        EXPECT_NE(vtx_ai_image_quality_enhancement_vida_process(handle, "/nonexistent.jpg", 0, 0, &untouched), 0);
        EXPECT_EQ(untouched, -1.f);
        EXPECT_NE(vtx_ai_image_quality_enhancement_vida_process(handle, nullptr, 0, 0, &untouched), 0);
        EXPECT_EQ(vtx_ai_image_quality_enhancement_vida_destory(handle), 0);
    }
    float s;
    EXPECT_NE(vtx_ai_image_quality_enhancement_vida_process(nullptr, (data + "/coffee.jpg").c_str(), 0, 0, &s), 0);
    EXPECT_NE(vtx_ai_image_quality_enhancement_vida_create(nullptr, nullptr), 0);
    void* handle = nullptr;
    ASSERT_EQ(vtx_ai_image_quality_enhancement_vida_create(&handle, nullptr), 0);  // no record: the default model
    EXPECT_EQ(vtx_ai_image_quality_enhancement_vida_destory(handle), 0);
}

}  // namespace
}  // namespace kv::testing
