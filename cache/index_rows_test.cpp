#include "cache/index_rows.h"

#include <gtest/gtest.h>

#include <string>

#include "testing/stored_results.h"
#include "vqfe_results.pb-c.h"

namespace VQFeature {
namespace {

std::string packed(const ProtobufCMessage& message) {
    std::string bytes(protobuf_c_message_get_packed_size(&message), '\0');
    protobuf_c_message_pack(&message, reinterpret_cast<uint8_t*>(bytes.data()));
    return bytes;
}

void expectLabels(const IndexRows& rows, const std::string& source, const std::string& name, float score) {
    EXPECT_EQ(rows.labelSource, source);
    ASSERT_TRUE(rows.labels.has_value());
    ASSERT_EQ(rows.labels->size(), 1u);
    EXPECT_EQ(rows.labels->front().assetId, "a1");
    EXPECT_EQ(rows.labels->front().name, name);
    EXPECT_FLOAT_EQ(rows.labels->front().score, score);
    EXPECT_FALSE(rows.faces || rows.faceCount || rows.hash || rows.signature);
}

TEST(IndexRowsTest, BothSceneKindsGiveTheirSatisfiedLabelsWithTheirOwnScore) {
    char beach[] = "beach";
    char snow[] = "snow";
    CSceneRecogInfo scenes[2] = {C__SCENE_RECOG_INFO__INIT, C__SCENE_RECOG_INFO__INIT};
    scenes[0].prob = 0.75f;
    scenes[0].satisfied = 1;
    scenes[0].name = beach;
    scenes[1].prob = 0.5f;
    scenes[1].name = snow;
    CSceneRecogInfo* scenePointers[2] = {&scenes[0], &scenes[1]};
    CSceneRecogBuffer scene = C__SCENE_RECOG_BUFFER__INIT;
    scene.n_m_scenerecoginfo = 2;
    scene.m_scenerecoginfo = scenePointers;
    expectLabels(indexRowsOf(*makeResult("a1", "25", Vantor::AlgorithmType::SceneRecog, packed(scene.base))), "25",
                 "beach", 0.75f);

    CSceneRecogV3Info v3[2] = {C__SCENE_RECOG_V3_INFO__INIT, C__SCENE_RECOG_V3_INFO__INIT};
    v3[0].confidence = 0.25f;
    v3[0].name = beach;
    v3[1].confidence = 0.5f;
    v3[1].satisfied = 1;
    v3[1].name = snow;
    CSceneRecogV3Info* v3Pointers[2] = {&v3[0], &v3[1]};
    CSceneRecogV3Buffer sceneV3 = C__SCENE_RECOG_V3_BUFFER__INIT;
    sceneV3.n_m_scenerecogv3info = 2;
    sceneV3.m_scenerecogv3info = v3Pointers;
    expectLabels(indexRowsOf(*makeResult("a1", "58", Vantor::AlgorithmType::SceneRecogV3, packed(sceneV3.base))),
                 "58", "snow", 0.5f);
}

TEST(IndexRowsTest, OtherKindsAndUndecodableBlobsGiveNoRows) {
    CPornClsBuffer porn = C__PORN_CLS_BUFFER__INIT;
    porn.is_porn = 1;
    EXPECT_TRUE(indexRowsOf(*makeResult("a1", "33", Vantor::AlgorithmType::PornCls, packed(porn.base))).empty());
    EXPECT_TRUE(indexRowsOf(*makeResult("a1", "25", Vantor::AlgorithmType::SceneRecog, "\xff\xff\xff")).empty());
}

}  // namespace
}  // namespace VQFeature
