// Round trips of the whole-image encoders, with the classification slot rules.
#include <gtest/gtest.h>

#include "testing/encoder_test_support.h"

namespace VQFeature {
namespace {

using namespace testing_support;
using Glintcore::makeShared;

TEST(SceneEncoderTest, AestheticsSceneAndSimilarityRoundTrip) {
    Vantor::AfterEffectBuffer aesthetics;
    aesthetics.scores = {{0, 0.5f, 0.25f, 0.75f, 0.125f, 0.0625f, 0.875f}, {40, 1.f, 2.f, 3.f, 4.f, 5.f, 6.f}};
    EXPECT_EQ(json(encode(&aesthetics), after_effect_buffer_alloc, after_effect_buffer_free),
              R"({"m_scores":[{"time":0,"score":0.5,"face_score":0.25,"quality_score":0.75,"sharepness_score":0.125,)"
              R"("meaningless_score":0.0625,"portrait_score":0.875},{"time":40,"score":1,"face_score":2,)"
              R"("quality_score":3,"sharepness_score":4,"meaningless_score":5,"portrait_score":6}]})");
    Vantor::AfterEffectBuffer noScores;  // packs to zero bytes, still a blob
    Blob emptyAe = encode(&noScores);
    EXPECT_NE(emptyAe.data, nullptr);
    EXPECT_EQ(emptyAe.size, 0u);

    Vantor::SceneRecogBuffer scenes;
    auto beach = makeShared<Vantor::SceneRecogInfo>();
    beach->prob = 0.75f;
    beach->satisfied = true;
    beach->name = "beach";
    auto unnamed = makeShared<Vantor::SceneRecogInfo>();
    unnamed->prob = 0.125f;
    scenes.infos = {beach, nullptr, unnamed};
    scenes.choose = -2;
    EXPECT_EQ(json(encode(&scenes), scene_recog_buffer_alloc, scene_recog_buffer_free),
              R"({"m_SceneRecogInfo":[{"prob":0.75,"satisfied":true,"name":"beach"},)"
              R"({"prob":0.125,"satisfied":false,"name":""}],"m_choose":-2})");
    EXPECT_EQ(beach->refCount(), 2);  // references taken while reading are given back

    Vantor::SceneRecogV3Buffer v3;
    auto food = makeShared<Vantor::SceneRecogV3Info>();
    food->id = 12;
    food->confidence = 0.625f;
    food->thres = 0.5f;
    food->satisfied = true;
    food->name = "food";
    v3.infos = {food};
    v3.c3Feature = {-1.f, 0.f, 3.25f};
    EXPECT_EQ(json(encode(&v3), scene_recog_v3_buffer_alloc, scene_recog_v3_buffer_free),
              R"({"m_sceneRecogV3Info":[{"id":12,"confidence":0.625,"thres":0.5,"satisfied":true,"name":"food"}],)"
              R"("c3_feature":[-1,0,3.25]})");

    Vantor::SimilarityBuffer similarity;
    similarity.score = 0.375f;
    similarity.feature = {0, 127, 128, 255};  // one element per byte, zero-extended
    similarity.clusterIds = {-2, 5};
    EXPECT_EQ(json(encode(&similarity), similarity_buffer_alloc, similarity_buffer_free),
              R"({"score":0.375,"feature":[0,127,128,255],"clusterIds":[-2,5]})");

    Vantor::PornClsBuffer porn;
    porn.isPorn = 1;
    porn.confidence = 0.5f;
    EXPECT_EQ(json(encode(&porn), porn_cls_buffer_alloc, porn_cls_buffer_free), R"({"is_porn":true,"confidence":0.5})");
}

Glintcore::SharePtr<Vantor::NHClassificationInfo> classificationInfo(int32_t firstId) {
    auto info = makeShared<Vantor::NHClassificationInfo>();
    info->id = {firstId, firstId + 1};
    info->confidence = {0.75f, 0.25f};
    info->exceedThresh = {1, -128};
    info->numClasses = 2;
    return info;
}

Glintcore::SharePtr<Vantor::NHClassificationFeature> classificationFeature(float value) {
    auto feature = makeShared<Vantor::NHClassificationFeature>();
    feature->features = {value, -value};
    return feature;
}

// Decodes a classification blob; the counts of infos and features, the first id and the
// first feature value of each, as text.
std::string classificationShape(Vantor::NHClassificationBuffer& buffer) {
    auto c = decode(encode(&buffer), nhclassification_buffer_alloc, nhclassification_buffer_free);
    if (!c) return "<undecodable>";
    std::string out = "size=" + std::to_string(c->m_buffersize) + " ids=";
    for (size_t i = 0; i < c->n_m_classificationinfos; ++i) out += std::to_string(c->m_classificationinfos[i]->id[0]) + ",";
    out += " features=";
    for (size_t i = 0; i < c->n_m_classificationfeatures; ++i) {
        out += std::to_string(static_cast<int>(c->m_classificationfeatures[i]->features[0])) + ",";
    }
    return out;
}

TEST(SceneEncoderTest, ClassificationRoundTripsWithOneFeaturePerInfo) {
    Vantor::NHClassificationBuffer buffer;
    buffer.bufferSize = 2;
    buffer.infos[0] = classificationInfo(10);
    buffer.infos[1] = classificationInfo(20);
    buffer.features[0] = classificationFeature(0.5f);
    buffer.features[1] = classificationFeature(-0.5f);
    buffer.labels = {"cat", "", "dog"};
    buffer.thresh = {0.25f, 0.625f};
    EXPECT_EQ(json(encode(&buffer), nhclassification_buffer_alloc, nhclassification_buffer_free),
              R"({"m_bufferSize":2,"m_classificationInfos":[)"
              R"({"id":[10,11],"confidence":[0.75,0.25],"exceedThresh":[1,-128],"numClasses":2},)"  // sign-extended
              R"({"id":[20,21],"confidence":[0.75,0.25],"exceedThresh":[1,-128],"numClasses":2}],)"
              R"("m_classificationFeatures":[{"features":[0.5,-0.5]},{"features":[-0.5,0.5]}],)"
              R"("m_labels":["cat","","dog"],"m_thresh":[0.25,0.625]})");
}

TEST(SceneEncoderTest, ClassificationNeverReadsEmptyOrMissingSlots) {
    // First feature slot empty: no features, even though a later slot is filled.
    Vantor::NHClassificationBuffer gap;
    gap.bufferSize = 2;
    gap.infos[0] = classificationInfo(1);
    gap.infos[1] = classificationInfo(2);
    gap.features[1] = classificationFeature(1.f);
    EXPECT_EQ(classificationShape(gap), "size=2 ids=1,2, features=");

    // More features than infos: only one feature per info slot is carried.
    Vantor::NHClassificationBuffer extraFeatures;
    extraFeatures.bufferSize = 1;
    extraFeatures.infos[0] = classificationInfo(1);
    extraFeatures.features[0] = classificationFeature(1.f);
    extraFeatures.features[1] = classificationFeature(2.f);
    EXPECT_EQ(classificationShape(extraFeatures), "size=1 ids=1, features=1,");

    // Fewer leading features than infos, and a size beyond the ten slots: the features
    // stop at the first empty slot, the infos at the last slot (empty ones skipped), the
    // size is kept.
    Vantor::NHClassificationBuffer oversized;
    oversized.bufferSize = 1000;
    for (int i = 0; i < Vantor::NHClassificationBuffer::kSlots; ++i) oversized.infos[i] = classificationInfo(i);
    oversized.infos[4] = nullptr;
    oversized.features[0] = classificationFeature(0.f);
    oversized.features[1] = classificationFeature(1.f);
    EXPECT_EQ(classificationShape(oversized), "size=1000 ids=0,1,2,3,5,6,7,8,9, features=0,1,");
}

}  // namespace
}  // namespace VQFeature
