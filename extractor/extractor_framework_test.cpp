// The Extractor end to end over the open framework: built-in graphs on real photographs,
// models from the model directory and framework-injected faults. (Concurrent runs:
// extractor_concurrency_test.)
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <opencv2/imgcodecs.hpp>

#include "cache/memory_cache.h"
#include "extractor/extractor.h"
#include "testing/rgba_image.h"
#include "vantor/cover_util.h"
#include "testing/temp_dir.h"

namespace VQFeature {
namespace {

using Vantor::AlgorithmType;

// A testdata photograph as an RGBA8888 resource.
std::shared_ptr<Resource> photo(const std::string& file, const std::string& assetId) {
    const cv::Mat bgr = cv::imread(std::string(VQFE_SOURCE_DIR) + "/testdata/" + file, cv::IMREAD_COLOR);
    return std::make_shared<Resource>(assetId, file, testing::rgbaImage(bgr));
}

class FrameworkExtractorTest : public ::testing::Test {
protected:
    // An initialised extractor over the built models, with the framework configuration text.
    std::unique_ptr<Extractor> make(const std::string& frameworkConfig = "{}") {
        dir.write("vantor.json", frameworkConfig);
        auto extractor = std::make_unique<Extractor>(config, cache, store, VQFE_MODEL_DIR,
                                                     dir.path() + "/vantor.json", false);
        EXPECT_EQ(extractor->init(), 0);
        return extractor;
    }

    TempDir dir;
    std::shared_ptr<Config> config = std::make_shared<Config>();
    std::shared_ptr<CacheAdapter> cache = std::make_shared<MemoryCache>(64);
    std::shared_ptr<CacheAdapter> store;
};

TEST_F(FrameworkExtractorTest, EveryTemplateKindGivesADecodableBlob) {
    // Kind -> whether its blob decodes, through the kind's typed accessor.
    const std::map<int, std::function<bool(Result&)>> decoders = {
        {4, [](Result& r) { return r.faceBuffer() != nullptr; }},
        {7, [](Result& r) { return r.skeletonBuffer() != nullptr; }},
        {8, [](Result& r) { return r.faceVerifyBuffer() != nullptr; }},
        {9, nullptr},  // a graph but no encoder
        {10, [](Result& r) { return r.faceClustingBuffer() != nullptr; }},
        {12, [](Result& r) { return r.mattingResult() != nullptr; }},
        {25, [](Result& r) { return r.sceneRecogBuffer() != nullptr; }},
        {29, [](Result& r) { return r.similarityBuffer() != nullptr; }},
        {30, [](Result& r) { return r.afterEffectBuffer() != nullptr; }},
        {33, [](Result& r) { return r.pornClsBuffer() != nullptr; }},
        {58, [](Result& r) { return r.sceneRecogV3Buffer() != nullptr; }},
        {60, [](Result& r) { return r.saliencySegInfo() != nullptr; }},
        {71, [](Result& r) { return r.petMattingBuffer() != nullptr; }},
        {95, [](Result& r) { return r.facePetDetectBuffer() != nullptr; }},
        {121, [](Result& r) { return r.nHClassificationBuffer() != nullptr; }},
        {130, [](Result& r) { return r.nHClassificationBuffer() != nullptr; }},
    };
    auto extractor = make();
    const ResourceList photos{photo("astronaut.jpg", "astronaut"), photo("chelsea.jpg", "chelsea")};
    for (const auto& [kind, decodes] : decoders) {
        const auto type = static_cast<AlgorithmType>(kind);
        auto input = std::make_shared<Input>(photos, CoverUtil::getAlgorithmConf(type), IntParams{}, type);
        ErrorPair error{0, ""};
        auto out = extractor->extractFeatures(input, true, &error);
        EXPECT_EQ(error, ErrorPair(0, "")) << "kind " << kind;
        ASSERT_EQ(out.size(), 2u);
        for (const auto& result : out) {
            if (!decodes) {
                EXPECT_EQ(result->result, nullptr) << "kind " << kind;
                continue;
            }
            ASSERT_NE(result->result, nullptr) << "kind " << kind << " " << result->assetId;
            EXPECT_TRUE(decodes(*result)) << "kind " << kind << " " << result->assetId;
        }
        // Now cached: a second walk answers without running.
        auto again = extractor->extractFeatures(input, true, &error);
        EXPECT_EQ(again[0], out[0]) << "kind " << kind;
    }
}

TEST_F(FrameworkExtractorTest, FrameworkFaultsReachTheErrorPair) {
    auto extractor = make(R"({"faults":{"33":{"execute":7},"25":{"result":null},"58":{"throw":"node crashed"}}})");
    auto run = [&](AlgorithmType type) {
        ErrorPair error{0, ""};
        auto input = std::make_shared<Input>(ResourceList{photo("coffee.jpg", "coffee"), photo("rocket.jpg", "rocket")},
                                             CoverUtil::getAlgorithmConf(type), IntParams{}, type);
        auto out = extractor->extractFeatures(input, true, &error);
        EXPECT_EQ(out.size(), 2u);  // the walk went on past the failed asset
        EXPECT_EQ(out[1]->result, nullptr);
        return error;
    };
    EXPECT_EQ(run(AlgorithmType::PornCls), ErrorPair(7, "Vantor Execute error:INVALID_NODE, algorithmType:33"));
    EXPECT_EQ(run(AlgorithmType::SceneRecog), ErrorPair(204, "Vantor Result is NULL"));
    EXPECT_EQ(run(AlgorithmType::SceneRecogV3), ErrorPair(500, "Vantor Throw Exception:node crashed"));
    // Unaffected kinds still run on the same extractor.
    ErrorPair error{0, ""};
    auto ok = extractor->extractFeatures(
        std::make_shared<Input>(ResourceList{photo("coffee.jpg", "coffee")},
                                CoverUtil::getAlgorithmConf(AlgorithmType::Similarity), IntParams{},
                                AlgorithmType::Similarity),
        false, &error);
    EXPECT_EQ(error.first, 0);
    EXPECT_NE(ok[0]->result, nullptr);
}

}  // namespace
}  // namespace VQFeature
