#include <gtest/gtest.h>

#include <cstring>

#include "extractor/algorithm_types.h"
#include "extractor/config.h"
#include "extractor/input.h"

namespace VQFeature {
namespace {

using Vantor::AlgorithmType;

// Expected keys are digests of the hashed texts computed with md5sum.
TEST(AlgorithmKeyTest, SingleKindKeyHashesGraphTypeAndParameters) {
    Input plain({}, "", {}, AlgorithmType::Face);
    EXPECT_EQ(plain.algorithmKey(AlgorithmType::AllNodes), "ffd03eb69528e0e5338c63b3fc9451a8");  // "|4|"
    EXPECT_EQ(plain.algorithmKey(AlgorithmType::Skeleton), plain.algorithmKey());  // argument ignored

    Input withInt({}, "", {{"face_max_num", 10}}, AlgorithmType::Face);
    EXPECT_EQ(withInt.algorithmKey(), "45e697e8419a009e08b4aa45d11707f3");  // "|4|face_max_num:10"

    Input withFloat({}, "", {}, {{"thres", 0.5f}}, {}, AlgorithmType::Face);
    EXPECT_EQ(withFloat.algorithmKey(), "c2068c752b1013228316b9decef1dd39");  // "|4|thres:0.500000"

    // All three maps, no separator between entries or maps.
    Input all({}, "graph", {{"face_max_num", 10}}, {{"thres", 0.5f}}, {{"model_name", "qm_sim"}},
              AlgorithmType::Similarity);
    EXPECT_EQ(all.algorithmKey(), "5c3ade4eabbc9b4c9825f968537e3c49");
}

TEST(AlgorithmKeyTest, SeveralKindKeyIsDigestBarKindAndDigestIsKept) {
    MultiAlgorithmInput request({}, "", {AlgorithmType::Face}, {AlgorithmTypeC300});
    EXPECT_TRUE(request.confMd5.empty());
    EXPECT_EQ(request.algorithmKey(AlgorithmType::Face), "d41d8cd98f00b204e9800998ecf8427e|4");
    EXPECT_EQ(request.algorithmKey(std::string(AlgorithmTypeC300)),
              "d41d8cd98f00b204e9800998ecf8427e|ClassificationPostProcess_c300");
    EXPECT_EQ(request.confMd5, "d41d8cd98f00b204e9800998ecf8427e");

    request.algorithmConf = "graph";  // the digest is cached: later keys keep it
    EXPECT_EQ(request.algorithmKey(AlgorithmType::RelationRecog), "d41d8cd98f00b204e9800998ecf8427e|130");

    MultiAlgorithmInput fresh({}, "graph", {}, {});
    EXPECT_EQ(fresh.algorithmKey(AlgorithmType::AllNodes), "f8b0b924ebd7046dbfa85a856e4682c8|-1");
}

TEST(ImageBufferTest, SetDataCopiesAndLeavesLengthToTheCaller) {
    ImageBuffer buffer;
    EXPECT_EQ(buffer.data, nullptr);
    const char pixels[4] = {1, 2, 3, 4};
    buffer.setData(pixels, 4);
    ASSERT_NE(buffer.data, nullptr);
    EXPECT_EQ(0, std::memcmp(buffer.data, pixels, 4));
    EXPECT_EQ(buffer.length, 0u);

    auto holder = std::make_shared<ImageBuffer>();
    holder->width = 2;
    holder->height = 2;
    holder->setData(pixels, 4);
    Resource resource("id", "", holder);
    EXPECT_TRUE(resource.isInvalidResource());  // length still 0
    holder->length = 4;
    EXPECT_FALSE(resource.isInvalidResource());
    holder->width = 0;
    EXPECT_TRUE(resource.isInvalidResource());
    holder->width = 2;
    holder->recycle();
    EXPECT_EQ(holder->data, nullptr);
    EXPECT_EQ(holder->length, 4u);
    EXPECT_TRUE(resource.isInvalidResource());
    EXPECT_TRUE(Resource("id").isInvalidResource());

    // The string form keeps its own copy, so the caller's text may die right away.
    std::string text = "abc";
    ImageBuffer fromText(1, 1, text.c_str(), 3);
    text.assign("xyz");
    EXPECT_EQ(0, std::memcmp(fromText.data, "abc", 3));
    EXPECT_EQ(fromText.length, 3u);
}

TEST(ConfigTest, DefaultsAndCloneSharesHandles) {
    VQ::AppConfig app;
    EXPECT_EQ(app.status, "1");
    EXPECT_EQ(app.vantorApplicationName, "Extractor");
    EXPECT_EQ(app.platformSdkVersion, "2.9.115");

    Config config;
    EXPECT_EQ(config.cursorMaxSize, 16777216);
    EXPECT_TRUE(config.graph.empty());
    EXPECT_EQ(config.clone()->appConfig, nullptr);

    config.appConfig = std::make_shared<VQ::AppConfig>();
    config.modelsDownloadCallback = std::make_shared<ModelsDownloadCallback>();
    config.graph = "g";
    auto copy = config.clone();
    copy->graph = "other";
    copy->appConfig->host = "h";
    EXPECT_EQ(config.graph, "g");
    EXPECT_EQ(config.appConfig->host, "h");  // same AppConfig object
    EXPECT_EQ(copy->modelsDownloadCallback, config.modelsDownloadCallback);
    EXPECT_EQ(config.appConfig.use_count(), 2);  // shared by the two Configs
}

}  // namespace
}  // namespace VQFeature
