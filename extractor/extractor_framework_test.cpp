// The Extractor end to end over the open framework: built-in graphs on real photographs,
// models from the model directory and framework-injected faults. (Concurrent runs:
// extractor_concurrency_test.)
#include <gtest/gtest.h>

#include <map>
#include <opencv2/imgcodecs.hpp>

#include "cache/memory_cache.h"
#include "encoding/decode_helpers.h"
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

// Every kind with a built-in graph: the blob decodes as the message of its row in the
// table of result kinds; a kind without a row (9) gives no blob.
TEST_F(FrameworkExtractorTest, EveryTemplateKindGivesADecodableBlob) {
    std::map<int, bool (*)(const void*, unsigned long)> decoders;
#define VQFE_RESULT_KIND(kind, number, cliName, Buffer, Message, name)                   \
    decoders[number] = [](const void* blob, unsigned long size) {                      \
        Message* message = name##_alloc(static_cast<const uint8_t*>(blob), size);      \
        const bool decoded = message != nullptr;                                        \
        name##_free(message);                                                           \
        return decoded;                                                                 \
    };
#include "encoding/result_kinds.def"
    int graphs = 0;
    auto extractor = make();
    const ResourceList photos{photo("astronaut.jpg", "astronaut"), photo("chelsea.jpg", "chelsea")};
    for (int kind = 0; kind <= 255; ++kind) {
        const auto type = static_cast<AlgorithmType>(kind);
        if (CoverUtil::getAlgorithmConf(type).empty()) continue;
        ++graphs;
        auto decodes = decoders.count(kind) != 0 ? decoders[kind] : nullptr;
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
            EXPECT_TRUE(decodes(result->result, result->resultLength)) << "kind " << kind << " " << result->assetId;
        }
        // Now cached: a second walk answers without running.
        auto again = extractor->extractFeatures(input, true, &error);
        EXPECT_EQ(again[0], out[0]) << "kind " << kind;
    }
    EXPECT_EQ(graphs, 16);
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
