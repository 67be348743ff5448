// Round trips of the whole-image encoders, with the classification slot rules.
#include <gtest/gtest.h>

#include "encoding/encoder_test_support.h"

namespace VQFeature {
namespace {

using namespace testing_support;
using Glintcore::makeShared;

TEST(SceneEncoderTest, AestheticsSceneAndSimilarityRoundTrip) {
    Vantor::AfterEffectBuffer aesthetics;
    aesthetics.scores = {{0, 0.5f, 0.25f, 0.75f, 0.125f, 0.0625f, 0.875f}, {40, 1.f, 2.f, 3.f, 4.f, 5.f, 6.f}};
    Blob aeBlob = encode(&aesthetics);
    auto ae = decode(aeBlob, after_effect_buffer_alloc, after_effect_buffer_free);
    ASSERT_NE(ae, nullptr);
    ASSERT_EQ(ae->n_m_scores, 2u);
    const CAEScoreInfo* s = ae->m_scores[0];
    EXPECT_EQ(s->time, 0);
    EXPECT_EQ(s->score, 0.5f);
    EXPECT_EQ(s->face_score, 0.25f);
    EXPECT_EQ(s->quality_score, 0.75f);
    EXPECT_EQ(s->sharepness_score, 0.125f);
    EXPECT_EQ(s->meaningless_score, 0.0625f);
    EXPECT_EQ(s->portrait_score, 0.875f);
    EXPECT_EQ(ae->m_scores[1]->time, 40);

    Vantor::AfterEffectBuffer noScores;  // packs to zero bytes, still a blob
    Blob emptyAe = encode(&noScores);
    EXPECT_NE(emptyAe.data, nullptr);
    EXPECT_EQ(emptyAe.size, 0u);

    Vantor::SceneRecogBuffer scenes;
    auto beach = makeShared<Vantor::SceneRecogInfo>();
    beach->prob = 0.9f;
    beach->satisfied = true;
    beach->name = "beach";
    auto unnamed = makeShared<Vantor::SceneRecogInfo>();
    unnamed->prob = 0.1f;
    scenes.infos = {beach, nullptr, unnamed};
    scenes.choose = 0;
    Blob sceneBlob = encode(&scenes);
    EXPECT_EQ(beach->refCount(), 2);  // references taken while reading are given back
    auto scene = decode(sceneBlob, scene_recog_buffer_alloc, scene_recog_buffer_free);
    ASSERT_NE(scene, nullptr);
    ASSERT_EQ(scene->n_m_scenerecoginfo, 2u);
    EXPECT_EQ(scene->m_scenerecoginfo[0]->prob, 0.9f);
    EXPECT_TRUE(scene->m_scenerecoginfo[0]->satisfied);
    EXPECT_STREQ(scene->m_scenerecoginfo[0]->name, "beach");
    EXPECT_FALSE(scene->m_scenerecoginfo[1]->satisfied);
    EXPECT_STREQ(scene->m_scenerecoginfo[1]->name, "");
    EXPECT_EQ(scene->m_choose, 0);

    Vantor::SceneRecogV3Buffer v3;
    auto food = makeShared<Vantor::SceneRecogV3Info>();
    food->id = 12;
    food->confidence = 0.625f;
    food->thres = 0.5f;
    food->satisfied = true;
    food->name = "food";
    v3.infos = {food};
    v3.c3Feature = {-1.f, 0.f, 3.25f};
    Blob v3Blob = encode(&v3);
    auto v3Decoded = decode(v3Blob, scene_recog_v3_buffer_alloc, scene_recog_v3_buffer_free);
    ASSERT_NE(v3Decoded, nullptr);
    ASSERT_EQ(v3Decoded->n_m_scenerecogv3info, 1u);
    const CSceneRecogV3Info* f = v3Decoded->m_scenerecogv3info[0];
    EXPECT_EQ(f->id, 12);
    EXPECT_EQ(f->confidence, 0.625f);
    EXPECT_EQ(f->thres, 0.5f);
    EXPECT_TRUE(f->satisfied);
    EXPECT_STREQ(f->name, "food");
    ASSERT_EQ(v3Decoded->n_c3_feature, 3u);
    EXPECT_EQ(v3Decoded->c3_feature[2], 3.25f);

    Vantor::SimilarityBuffer similarity;
    similarity.score = 0.3f;
    similarity.feature = {0, 127, 128, 255};
    similarity.clusterIds = {-2, 5};
    Blob simBlob = encode(&similarity);
    auto sim = decode(simBlob, similarity_buffer_alloc, similarity_buffer_free);
    ASSERT_NE(sim, nullptr);
    EXPECT_EQ(sim->score, 0.3f);
    ASSERT_EQ(sim->n_feature, 4u);
    EXPECT_EQ(sim->feature[2], 128u);
    EXPECT_EQ(sim->feature[3], 255u);
    ASSERT_EQ(sim->n_clusterids, 2u);
    EXPECT_EQ(sim->clusterids[0], -2);

    Vantor::PornClsBuffer porn;
    porn.isPorn = 1;
    porn.confidence = 0.99f;
    Blob pornBlob = encode(&porn);
    auto p = decode(pornBlob, porn_cls_buffer_alloc, porn_cls_buffer_free);
    ASSERT_NE(p, nullptr);
    EXPECT_TRUE(p->is_porn);
    EXPECT_EQ(p->confidence, 0.99f);
}

Glintcore::SharePtr<Vantor::NHClassificationInfo> classificationInfo(int32_t firstId) {
    auto info = makeShared<Vantor::NHClassificationInfo>();
    info->id = {firstId, firstId + 1};
    info->confidence = {0.75f, 0.25f};
    info->exceedThresh = {1, -3};
    info->numClasses = 2;
    return info;
}

Glintcore::SharePtr<Vantor::NHClassificationFeature> classificationFeature(float value) {
    auto feature = makeShared<Vantor::NHClassificationFeature>();
    feature->features = Glintcore::PrimitiveVector<float>(128, value);
    return feature;
}

TEST(SceneEncoderTest, ClassificationRoundTripsWithOneFeaturePerInfo) {
    Vantor::NHClassificationBuffer buffer;
    buffer.bufferSize = 2;
    buffer.infos[0] = classificationInfo(10);
    buffer.infos[1] = classificationInfo(20);
    buffer.features[0] = classificationFeature(0.5f);
    buffer.features[1] = classificationFeature(-0.5f);
    buffer.labels = {"cat", "", "dog"};
    buffer.thresh = {0.3f, 0.6f};
    Blob blob = encode(&buffer);
    auto c = decode(blob, nhclassification_buffer_alloc, nhclassification_buffer_free);
    ASSERT_NE(c, nullptr);
    EXPECT_EQ(c->m_buffersize, 2u);
    ASSERT_EQ(c->n_m_classificationinfos, 2u);
    const CNHClassificationInfo* info = c->m_classificationinfos[1];
    ASSERT_EQ(info->n_id, 2u);
    EXPECT_EQ(info->id[1], 21);
    EXPECT_EQ(info->confidence[0], 0.75f);
    ASSERT_EQ(info->n_exceedthresh, 2u);
    EXPECT_EQ(info->exceedthresh[1], -3);  // sign-extended flag byte
    EXPECT_EQ(info->numclasses, 2);
    ASSERT_EQ(c->n_m_classificationfeatures, 2u);
    ASSERT_EQ(c->m_classificationfeatures[1]->n_features, 128u);
    EXPECT_EQ(c->m_classificationfeatures[1]->features[127], -0.5f);
    ASSERT_EQ(c->n_m_labels, 3u);
    EXPECT_STREQ(c->m_labels[0], "cat");
    EXPECT_STREQ(c->m_labels[1], "");
    EXPECT_STREQ(c->m_labels[2], "dog");
    ASSERT_EQ(c->n_m_thresh, 2u);
    EXPECT_EQ(c->m_thresh[1], 0.6f);
}

TEST(SceneEncoderTest, ClassificationNeverReadsEmptyOrMissingSlots) {
    // First feature slot empty: no features, even though a later slot is filled.
    Vantor::NHClassificationBuffer gap;
    gap.bufferSize = 2;
    gap.infos[0] = classificationInfo(1);
    gap.infos[1] = classificationInfo(2);
    gap.features[1] = classificationFeature(1.f);
    Blob gapBlob = encode(&gap);
    auto g = decode(gapBlob, nhclassification_buffer_alloc, nhclassification_buffer_free);
    ASSERT_NE(g, nullptr);
    EXPECT_EQ(g->n_m_classificationinfos, 2u);
    EXPECT_EQ(g->n_m_classificationfeatures, 0u);
    EXPECT_EQ(g->n_m_labels + g->n_m_thresh, 0u);

    // More features than infos: only one feature per info slot is carried.
    Vantor::NHClassificationBuffer extraFeatures;
    extraFeatures.bufferSize = 1;
    extraFeatures.infos[0] = classificationInfo(1);
    extraFeatures.features[0] = classificationFeature(1.f);
    extraFeatures.features[1] = classificationFeature(2.f);
    Blob extraBlob = encode(&extraFeatures);
    auto e = decode(extraBlob, nhclassification_buffer_alloc, nhclassification_buffer_free);
    ASSERT_NE(e, nullptr);
    EXPECT_EQ(e->n_m_classificationfeatures, 1u);

    // Fewer leading features than infos, and a size beyond the ten slots: the features
    // stop at the first empty slot, the infos at the last slot, the size is kept.
    Vantor::NHClassificationBuffer oversized;
    oversized.bufferSize = 1000;
    for (int i = 0; i < Vantor::NHClassificationBuffer::kSlots; ++i) oversized.infos[i] = classificationInfo(i);
    oversized.infos[4] = nullptr;
    oversized.features[0] = classificationFeature(0.f);
    oversized.features[1] = classificationFeature(1.f);
    Blob overBlob = encode(&oversized);
    auto o = decode(overBlob, nhclassification_buffer_alloc, nhclassification_buffer_free);
    ASSERT_NE(o, nullptr);
    EXPECT_EQ(o->m_buffersize, 1000u);
    ASSERT_EQ(o->n_m_classificationinfos, 9u);
    EXPECT_EQ(o->m_classificationinfos[4]->id[0], 5);
    ASSERT_EQ(o->n_m_classificationfeatures, 2u);
    EXPECT_EQ(o->m_classificationfeatures[1]->features[0], 1.f);
}

}  // namespace
}  // namespace VQFeature
