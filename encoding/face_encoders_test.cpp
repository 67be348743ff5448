// Round trips of the face encoders: framework buffer -> blob -> decoded message.
#include <gtest/gtest.h>

#include <string>

#include "testing/encoder_test_support.h"

namespace VQFeature {
namespace {

using namespace testing_support;
using Glintcore::makeShared;
using Glintcore::SharePtr;

SharePtr<Vantor::Face106> makeFace(float score, Glintcore::Rect rect, int32_t id) {
    auto face = makeShared<Vantor::Face106>();
    face->rect = rect;
    face->score = score;
    face->points = points(2, static_cast<float>(id));
    face->visibility = Glintcore::PrimitiveVector<float>(2, 0.5f + static_cast<float>(id));
    face->yaw = 10.f + id;
    face->pitch = -5.f - id;
    face->roll = 1.5f;
    face->eyeDist = 0.125f;
    face->id = id;
    face->action = 0x80000001u;
    face->trackingCount = 7u + id;
    return face;
}

// makeFace(0.5f, {0.25f, 0.5f, 0.25f, 0.125f}, 1) as decoded: y flipped, y_vantor kept.
const std::string kFace1 =
    R"({"rect":{"x":0.25,"y":0.375,"y_vantor":0.5,"width":0.25,"height":0.125},"score":0.5,)"
    R"("points_array":[{"x":1,"y":1},{"x":2,"y":0}],"visibility_array":[1.5,1.5],"yaw":11,"pitch":-6,"roll":1.5,)"
    R"("eye_dist":0.125,"ID":1,"action":2147483649,"tracking_cnt":8})";

template <typename Mask>
SharePtr<Mask> makeMask(int32_t id) {
    auto mask = makeShared<Mask>();
    mask->faceMaskSize = 2;
    mask->faceMask = {0, 255, static_cast<uint8_t>(id)};  // bytes zero-extended
    mask->warpMat = {1.f, -3.5f};
    mask->id = id;
    return mask;
}

std::string maskJson(int id) {
    const std::string n = std::to_string(id);
    return R"({"face_mask_size":2,"face_mask":[0,255,)" + n + R"(],"warp_mat":[1,-3.5],"id":)" + n + "}";
}

TEST(FaceEncoderTest, RoundTripsEveryListAndWritesTheDiagnosticLine) {
    Vantor::FaceBuffer buffer;
    buffer.imageWidth = 1920;
    buffer.imageHeight = 1080;
    buffer.faces = {makeFace(0.5f, {0.25f, 0.5f, 0.25f, 0.125f}, 1), makeFace(0.75f, {0.1f, 0.2f, 0.3f, 0.4f}, 2)};
    auto extra = makeShared<Vantor::FaceExtra>();
    extra->eyeCount = 8;
    extra->eyebrowCount = 9;
    extra->lipsCount = 10;
    extra->irisCount = 11;
    extra->eyeLeft = points(1, 1.f);
    extra->eyeRight = points(1, 2.f);
    extra->eyebrowLeft = points(1, 3.f);
    extra->eyebrowRight = points(1, 4.f);
    extra->lips = points(1, 5.f);
    extra->leftIris = points(1, 6.f);
    buffer.extras = {extra};  // right iris left empty
    buffer.mouthMasks = {makeMask<Vantor::FaceMouthMask>(1)};
    buffer.teethMasks = {makeMask<Vantor::FaceTeethMask>(2), makeMask<Vantor::FaceTeethMask>(3)};
    buffer.faceMasks = {makeMask<Vantor::FaceFaceMask>(4)};
    auto occlusion = makeShared<Vantor::FaceOcclusion>();
    occlusion->prob = 0.875f;
    occlusion->id = 2;
    buffer.occlusions = {occlusion, occlusion, occlusion};  // independent of the face count

    ::testing::internal::CaptureStdout();
    Blob blob = encode(&buffer);
    // Tools read this line: each rectangle shows its width twice and never its height.
    EXPECT_EQ(::testing::internal::GetCapturedStdout(),
              "[VQFE]FaceBuffer: size=2"
              " score=0.5 rect=(0.25,0.5,0.25,0.25) n_points_array=2 n_visibility_array=2"
              " c_score=0.5 c_rect=(0.25,0.375,0.25,0.25) c_n_points_array=2 c_n_visibility_array=2"
              " score=0.75 rect=(0.1,0.2,0.3,0.3) n_points_array=2 n_visibility_array=2"
              " c_score=0.75 c_rect=(0.1,0.4,0.3,0.3) c_n_points_array=2 c_n_visibility_array=2\n");

    auto face = decode(blob, face_buffer_alloc, face_buffer_free);
    ASSERT_NE(face, nullptr);
    ASSERT_EQ(face->n_m_facebaseinfos, 2u);
    EXPECT_EQ(messageToJson(face->m_facebaseinfos[0]->base), kFace1);
    // The flip is computed in single precision.
    EXPECT_EQ(face->m_facebaseinfos[1]->rect->y, flippedY(buffer.faces[1]->rect));
    EXPECT_EQ(face->m_facebaseinfos[1]->rect->y_vantor, 0.2f);
    face->n_m_facebaseinfos = 0;  // the rest of the message below
    EXPECT_EQ(messageToJson(face->base),
              R"({"m_faceBaseInfos":[],"m_faceExtraInfos":[{"eye_count":8,"eyebrow_count":9,"lips_count":10,)"
              R"("iris_count":11,"eye_left":[{"x":1,"y":1}],"eye_right":[{"x":2,"y":2}],"eyebrow_left":[{"x":3,"y":3}],)"
              R"("eyebrow_right":[{"x":4,"y":4}],"lips":[{"x":5,"y":5}],"left_iris":[{"x":6,"y":6}],"right_iris":[]}],)"
              R"("m_faceMouthMask":[)" + maskJson(1) + R"(],"m_faceTeethMask":[)" + maskJson(2) + "," + maskJson(3) +
                  R"(],"m_faceFaceMask":[)" + maskJson(4) + R"(],"m_faceOcclusion":[{"prob":0.875,"id":2},)"
                  R"({"prob":0.875,"id":2},{"prob":0.875,"id":2}],"m_width":1920,"m_height":1080})");
    face->n_m_facebaseinfos = 2;  // so the free releases both faces
}

TEST(FaceEncoderTest, EmptyBufferAndNullElements) {
    Vantor::FaceBuffer empty;
    ::testing::internal::CaptureStdout();
    Blob blob = encode(&empty);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "[VQFE]FaceBuffer: size=0\n");
    EXPECT_EQ(blob.size, 4u);  // the two required sizes only

    // A null element carries no result: it is skipped, never dereferenced.
    Vantor::FaceBuffer holes;
    holes.faces = {nullptr, makeFace(0.25f, {}, 5)};
    holes.extras = {nullptr};
    holes.occlusions = {nullptr};
    ::testing::internal::CaptureStdout();
    Blob withHoles = encode(&holes);
    EXPECT_EQ(::testing::internal::GetCapturedStdout().rfind("[VQFE]FaceBuffer: size=2 score=0.25 ", 0), 0u);
    auto decoded = decode(withHoles, face_buffer_alloc, face_buffer_free);
    ASSERT_NE(decoded, nullptr);
    ASSERT_EQ(decoded->n_m_facebaseinfos, 1u);
    EXPECT_EQ(decoded->m_facebaseinfos[0]->id, 5);
    EXPECT_EQ(decoded->n_m_faceextrainfos + decoded->n_m_faceocclusion, 0u);

    unsigned long size = 77;
    EXPECT_EQ(convertToBlob(static_cast<Vantor::FaceBuffer*>(nullptr), &size), nullptr);
    EXPECT_EQ(size, 77u);
}

SharePtr<Vantor::FaceVerifyInfo> makeVerifyInfo(int32_t id, const char* version) {
    auto info = makeShared<Vantor::FaceVerifyInfo>();
    info->features = {0.25f, -0.5f, static_cast<float>(id)};
    info->face = *makeFace(0.5f, {0.25f, 0.5f, 0.25f, 0.125f}, 1);
    info->id = id;
    info->rect = {0.25f, 0.125f, 0.25f, 0.5f};
    info->faceStatus = -id;
    info->modelVersion = version;
    return info;
}

TEST(FaceEncoderTest, VerifyAttributeAndClusteringRoundTrip) {
    Vantor::FaceVerifyBuffer verify;
    verify.faceVerifyInfos = {makeVerifyInfo(1, "v1.2"), makeVerifyInfo(2, "")};
    verify.dynamicInfos = {makeVerifyInfo(3, "dyn"), nullptr};
    verify.needUpdate = true;
    verify.validFaceNum = 2;
    verify.dynamicFaceNum = 1;
    ::testing::internal::CaptureStdout();  // only the face encoder writes a line
    Blob verifyBlob = encode(&verify);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
    auto v = decode(verifyBlob, face_verify_buffer_alloc, face_verify_buffer_free);
    ASSERT_NE(v, nullptr);
    ASSERT_EQ(v->n_m_faceverifyinfos, 2u);
    ASSERT_EQ(v->n_m_dynamicinfos, 1u);
    EXPECT_EQ(messageToJson(v->m_faceverifyinfos[0]->base),
              R"({"features":[0.25,-0.5,1],"m_face106":)" + kFace1 +
                  R"(,"ID":1,"rect":{"x":0.25,"y":0.375,"y_vantor":0.125,"width":0.25,"height":0.5},)"
                  R"("m_faceStatus":-1,"m_modelVersion":"v1.2"})");
    EXPECT_STREQ(v->m_faceverifyinfos[1]->m_modelversion, "");
    EXPECT_STREQ(v->m_dynamicinfos[0]->m_modelversion, "dyn");
    EXPECT_TRUE(v->needupdate);
    EXPECT_EQ(v->m_validfacenum, 2);
    EXPECT_EQ(v->m_dynamicfacenum, 1);

    Vantor::FaceAttributeBuffer attributes;
    auto attribute = makeShared<Vantor::FaceAttribute>();
    attribute->age = 31.5f;
    attribute->boyProb = 0.25f;
    attribute->gender = 1;
    attribute->attractive = 0.75f;
    attribute->happyScore = 0.125f;
    attribute->expType = 3;
    attribute->expProbs = {0.5f, 0.0625f};
    attribute->realFaceProb = 0.875f;
    attribute->quality = 0.375f;
    attributes.attributes = {attribute, nullptr};
    EXPECT_EQ(json(encode(&attributes), face_attribute_buffer_alloc, face_attribute_buffer_free),
              R"({"m_faceAttributeInfos":[{"age":31.5,"boy_prob":0.25,"gender":1,"attractive":0.75,)"
              R"("happy_score":0.125,"exp_type":3,"exp_probs":[0.5,0.0625],"real_face_prob":0.875,"quality":0.375}]})");

    Vantor::FaceClustingBuffer clusters;
    clusters.results = {0, 1, -1, 1};
    clusters.clusters = {{0}, {1, 3}, {}};
    clusters.clustingInfo.flag = 1;
    EXPECT_EQ(json(encode(&clusters), face_clusting_buffer_alloc, face_clusting_buffer_free),
              R"({"m_results":[0,1,-1,1],"m_clusters":[{"i":[0]},{"i":[1,3]},{"i":[]}],"m_faceClustingInfo":true})");
}

}  // namespace
}  // namespace VQFeature
