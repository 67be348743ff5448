#include "encoding/message_json.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

#include "vqfe_results.pb-c.h"

namespace VQFeature {
namespace {

TEST(MessageJsonTest, WritesEveryFieldByDescriptor) {
    CSceneRecogInfo infos[2] = {C__SCENE_RECOG_INFO__INIT, C__SCENE_RECOG_INFO__INIT};
    char beach[] = "beach \"sunny\"\n";
    char empty[] = "";
    infos[0].prob = 0.25f;
    infos[0].satisfied = 1;
    infos[0].name = beach;
    infos[1].prob = NAN;
    infos[1].name = empty;
    CSceneRecogInfo* pointers[2] = {&infos[0], &infos[1]};
    CSceneRecogBuffer buffer = C__SCENE_RECOG_BUFFER__INIT;
    buffer.n_m_scenerecoginfo = 2;
    buffer.m_scenerecoginfo = pointers;
    buffer.m_choose = -1;
    EXPECT_EQ(messageToJson(buffer.base),
              R"({"m_SceneRecogInfo":[{"prob":0.25,"satisfied":true,"name":"beach \"sunny\"\n"},)"
              R"({"prob":null,"satisfied":false,"name":""}],"m_choose":-1})");

    uint32_t features[] = {0, 255};
    CSimilarityBuffer similarity = C__SIMILARITY_BUFFER__INIT;
    similarity.n_feature = 2;
    similarity.feature = features;
    similarity.score = INFINITY;  // no JSON number either
    EXPECT_EQ(messageToJson(similarity.base), R"({"score":null,"feature":[0,255],"clusterIds":[]})");
}

TEST(MessageJsonTest, BlobsDecodeByKindAndFailuresSayWhy) {
    CPornClsBuffer porn = C__PORN_CLS_BUFFER__INIT;
    porn.is_porn = 1;
    porn.confidence = 0.5f;
    std::vector<uint8_t> blob(c__porn_cls_buffer__get_packed_size(&porn));
    c__porn_cls_buffer__pack(&porn, blob.data());
    std::string error;
    EXPECT_EQ(blobToJson(33, blob.data(), blob.size(), &error), R"({"is_porn":true,"confidence":0.5})");
    EXPECT_EQ(blobToJson(9, blob.data(), blob.size(), &error), "");
    EXPECT_EQ(error, "no blob format for kind 9");
    EXPECT_EQ(blobToJson(4, blob.data(), blob.size(), &error), "");
    EXPECT_EQ(error, "malformed blob for kind 4");
    EXPECT_EQ(blobDescriptorForKind(130), blobDescriptorForKind(121));
}

// File names are bytes: UTF-8 ones stay as they are, any other byte becomes \udcXX (what
// Python's surrogateescape reads back), so a line stays valid JSON.
TEST(MessageJsonTest, QuotedTextKeepsUtf8AndEscapesOtherBytes) {
    EXPECT_EQ(jsonQuoted("caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x93\xb7.jpg"), "\"caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x93\xb7.jpg\"");
    EXPECT_EQ(jsonQuoted("bad\xff\xfe" "name.jpg"), R"("bad\udcff\udcfename.jpg")");
    // Latin-1 e acute, an overlong slash, a UTF-16 surrogate, a sequence cut by the end.
    EXPECT_EQ(jsonQuoted("caf\xe9"), R"("caf\udce9")");
    EXPECT_EQ(jsonQuoted("\xc0\xaf"), R"("\udcc0\udcaf")");
    EXPECT_EQ(jsonQuoted("\xed\xa0\x80"), R"("\udced\udca0\udc80")");
    EXPECT_EQ(jsonQuoted("x\xe2\x82"), R"("x\udce2\udc82")");
    EXPECT_EQ(jsonQuoted("\xf4\x90\x80\x80"), R"("\udcf4\udc90\udc80\udc80")");
    EXPECT_EQ(jsonQuoted("a\"b\nc"), R"("a\"b\nc")");
    EXPECT_TRUE(isUtf8("caf\xc3\xa9 \xf0\x9f\x93\xb7"));
    EXPECT_TRUE(isUtf8(std::string("a\0b", 3)));
    EXPECT_FALSE(isUtf8("caf\xe9"));
    EXPECT_FALSE(isUtf8("x\xe2\x82"));
}

// Numbers are formatted without printf; they must read exactly as printf's "%.9g" and "%d"
// wrote them, for floats across every exponent and for the integer extremes.
TEST(MessageJsonTest, NumbersReadAsPrintfWroteThem) {
    std::mt19937 random(7);
    std::vector<float> floats = {0.f, -0.f, 1.f, -1.f, 0.1f, 1e-45f, 1.17549435e-38f, 3.40282347e38f, 123456789.f, 1e9f, 1e-5f, 0.000123f};
    for (int i = 0; i < 20000; ++i) {
        const uint32_t bits = random();
        float value;
        std::memcpy(&value, &bits, sizeof value);
        if (std::isfinite(value)) floats.push_back(value);
        floats.push_back(float(random() % 100000) / 1000.f);
    }
    CPornClsBuffer porn = C__PORN_CLS_BUFFER__INIT;
    CFaceMouthMask mask = C__FACE_MOUTH_MASK__INIT;
    uint32_t pixels[] = {0, 7, 255, 4294967295u};
    mask.face_mask_size = -2147483647 - 1;
    mask.n_face_mask = 4;
    mask.face_mask = pixels;
    EXPECT_EQ(messageToJson(mask.base), R"({"face_mask_size":-2147483648,"face_mask":[0,7,255,4294967295],"warp_mat":[],"id":0})");
    for (float value : floats) {
        porn.confidence = value;
        char expected[64];
        std::snprintf(expected, sizeof expected, R"({"is_porn":false,"confidence":%.9g})", double(value));
        ASSERT_EQ(messageToJson(porn.base), expected) << value;
    }
}

// Long arrays are written through a buffer flushed every few kilobytes: every element and
// comma must come out as printf would write them one by one, across the flushes.
TEST(MessageJsonTest, LongArraysReadAsPrintfWroteThem) {
    std::mt19937 random(11);
    std::vector<uint32_t> features = {0, 4294967295u};
    std::vector<int32_t> clusters = {-2147483647 - 1, 2147483647, 0};
    std::vector<float> floats = {NAN, INFINITY, -0.f};
    for (int i = 0; i < 30000; ++i) {
        features.push_back(random() >> (random() % 32));
        clusters.push_back(static_cast<int32_t>(random()));
        const uint32_t bits = random();
        float value;
        std::memcpy(&value, &bits, sizeof value);
        floats.push_back(value);
    }
    auto list = [](const auto& values, const char* format) {
        std::string text = "[";
        char element[64];
        for (size_t k = 0; k < values.size(); ++k) {
            using Value = std::decay_t<decltype(values[k])>;
            const bool finite = !std::is_floating_point_v<Value> || std::isfinite(double(values[k]));
            if (finite) std::snprintf(element, sizeof element, format, values[k]);
            else std::snprintf(element, sizeof element, "null");
            text += (k ? "," : "") + std::string(element);
        }
        return text + "]";
    };
    CSimilarityBuffer similarity = C__SIMILARITY_BUFFER__INIT;
    similarity.n_feature = features.size();
    similarity.feature = features.data();
    similarity.n_clusterids = clusters.size();
    similarity.clusterids = clusters.data();
    EXPECT_EQ(messageToJson(similarity.base),
              R"({"score":0,"feature":)" + list(features, "%u") + R"(,"clusterIds":)" + list(clusters, "%d") + "}");

    std::vector<double> widened(floats.begin(), floats.end());
    CSceneRecogV3Buffer scene = C__SCENE_RECOG_V3_BUFFER__INIT;
    scene.n_c3_feature = floats.size();
    scene.c3_feature = floats.data();
    EXPECT_EQ(messageToJson(scene.base), R"({"m_sceneRecogV3Info":[],"c3_feature":)" + list(widened, "%.9g") + "}");
}

}  // namespace
}  // namespace VQFeature
