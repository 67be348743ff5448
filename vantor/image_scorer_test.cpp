#include "vantor/image_scorer.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "Vantor/ImageQuality.h"

// A recording stand-in for the framework's image-quality API, linked into this test only.
namespace {
struct ApiLog {
    vtx_ai_image_quality_enhancement_vida_param param{};
    std::string modelPath;
    void* handedOut = reinterpret_cast<void*>(0x1234);
    void* processedWith = nullptr;
    std::string imagePath;
    int a = 0;
    int b = 0;
    void* destroyedWith = nullptr;
    int creates = 0;
} api;
}  // namespace

extern "C" {
int vtx_ai_image_quality_enhancement_vida_create(void** handle, const vtx_ai_image_quality_enhancement_vida_param* param) {
    ++api.creates;
    api.param = *param;
    api.modelPath = param->model_path;
    *handle = api.handedOut;
    return 0;
}
int vtx_ai_image_quality_enhancement_vida_process(void* handle, const char* path, int a, int b, float* score) {
    api.processedWith = handle;
    api.imagePath = path;
    api.a = a;
    api.b = b;
    *score = 0.75f;
    return 3;
}
int vtx_ai_image_quality_enhancement_vida_destory(void* handle) {
    api.destroyedWith = handle;
    return 5;
}
}

namespace VQFeature {
namespace {

TEST(ImageScorerTest, WithoutInitNothingReachesTheApi) {
    ImageScorer scorer("model.bin", 2);
    EXPECT_EQ(scorer.getScore(), 0.f);
    EXPECT_EQ(scorer.scoreImage("a.jpg", 1, 2), -1);
    EXPECT_EQ(scorer.destroy(), 0);
    EXPECT_EQ(api.creates, 0);
}

TEST(ImageScorerTest, LifecyclePassesTheRecordAndHandle) {
    ImageScorer scorer("quality.model", 7);
    ASSERT_EQ(scorer.init(), 0);
    EXPECT_EQ(api.modelPath, "quality.model");
    EXPECT_EQ(api.param.reserved0, 0u);
    EXPECT_EQ(api.param.option, 7);
    EXPECT_EQ(api.param.mode, 1);
    EXPECT_EQ(api.param.reserved1, 0);
    EXPECT_EQ(api.param.scale, 1.0f);
    EXPECT_EQ(api.param.reserved2, 0);
    EXPECT_EQ(api.param.reserved3, 0u);

    EXPECT_EQ(scorer.scoreImage("photo.png", 4, 9), 3);  // the API's code, unchanged
    EXPECT_EQ(api.processedWith, api.handedOut);
    EXPECT_EQ(api.imagePath, "photo.png");
    EXPECT_EQ(api.a, 4);
    EXPECT_EQ(api.b, 9);
    EXPECT_EQ(scorer.getScore(), 0.75f);

    EXPECT_EQ(scorer.destroy(), 5);
    EXPECT_EQ(api.destroyedWith, api.handedOut);
    EXPECT_EQ(scorer.destroy(), 0);
    EXPECT_EQ(scorer.scoreImage("photo.png", 0, 0), -1);
    EXPECT_EQ(scorer.getScore(), 0.75f);  // no reset
}

}  // namespace
}  // namespace VQFeature
